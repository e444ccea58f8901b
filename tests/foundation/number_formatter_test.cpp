#include "velquist/foundation/number_formatter.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace velquist::foundation {
namespace {

using Style = NumberFormatter::Style;
using Mode = NumberFormatter::RoundingMode;
using Text = std::optional<std::string>;

Decimal number(const std::string& text) { return text == "NaN" ? Decimal::nan() : Decimal::fromString(text).value(); }

// The settings the price formatter makes, applied in its order; unset optionals are left alone.
struct Config {
  std::string locale;
  Style style = Style::currency;
  Mode mode = Mode::halfEven;
  std::optional<int> minimumFractionDigits;
  std::optional<std::string> symbol, positive, negative;

  void applyTo(NumberFormatter& formatter) const {
    formatter.setNumberStyle(style);
    formatter.setLocale(Locale(locale));
    formatter.setRoundingMode(mode);
    if (minimumFractionDigits) formatter.setMinimumFractionDigits(*minimumFractionDigits);
    if (symbol) formatter.setCurrencySymbol(*symbol);
    if (positive) formatter.setPositiveFormat(*positive);
    if (negative) formatter.setNegativeFormat(*negative);
  }
};

// For each row, formats every number with one formatter so configured and compares the texts.
void expectTexts(const std::vector<const char*>& numbers, const std::vector<std::pair<Config, std::vector<Text>>>& rows) {
  for (const auto& [config, expected] : rows) {
    NumberFormatter formatter;
    config.applyTo(formatter);
    ASSERT_EQ(numbers.size(), expected.size());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      EXPECT_EQ(formatter.string(number(numbers[i])), expected[i])
          << config.locale.substr(0, 20) << " mode " << static_cast<int>(config.mode) << " " << numbers[i];
    }
  }
}

TEST(NumberFormatter, EachStyleInEachLocalesOwnFormat) {
  expectTexts({"1234567.5", "-9.99", "0.125"}, {
      {{.locale = "en_US"}, {"$1,234,567.50", "-$9.99", "$0.12"}},
      {{.locale = "de_DE"}, {"1.234.567,50\u00A0\u20AC", "-9,99\u00A0\u20AC", "0,12\u00A0\u20AC"}},
      {{.locale = "ja_JP"}, {"\uFFE51,234,568", "-\uFFE510", "\uFFE50"}},  // no minor unit
      {{.locale = "en_IN"}, {"\u20B912,34,567.50", "-\u20B99.99", "\u20B90.12"}},
      {{.locale = "ar"}, {"\u200F\u0661\u066C\u0662\u0663\u0664\u066C\u0665\u0666\u0667\u066B\u0665\u0660\u00A0\u00A4",
                          "\u061C-\u200F\u0669\u066B\u0669\u0669\u00A0\u00A4", "\u200F\u0660\u066B\u0661\u0662\u00A0\u00A4"}},
      {{.locale = "de_DE", .style = Style::percent}, {"123.456.750\u00A0%", "-999\u00A0%", "12\u00A0%"}},
      {{.locale = "tr_TR", .style = Style::percent}, {"%123.456.750", "-%999", "%12"}},
      {{.locale = "de_DE", .style = Style::none}, {"1234568", "-10", "0"}},
  });
  expectTexts({"1234567890123456789012345678901234567.8", "NaN"},  // no digit is lost to a double
              {{{.locale = "en_US", .style = Style::decimal}, {"1,234,567,890,123,456,789,012,345,678,901,234,567.8", {}}}});
}

TEST(NumberFormatter, RoundsByEachMode) {  // together these numbers tell every mode from every other
  expectTexts({"9.999", "9.995", "-9.995", "9.985", "9.991", "-9.991"}, {
      {{.locale = "en_US", .mode = Mode::ceiling}, {"$10.00", "$10.00", "-$9.99", "$9.99", "$10.00", "-$9.99"}},
      {{.locale = "en_US", .mode = Mode::floor}, {"$9.99", "$9.99", "-$10.00", "$9.98", "$9.99", "-$10.00"}},
      {{.locale = "en_US", .mode = Mode::down}, {"$9.99", "$9.99", "-$9.99", "$9.98", "$9.99", "-$9.99"}},
      {{.locale = "en_US", .mode = Mode::up}, {"$10.00", "$10.00", "-$10.00", "$9.99", "$10.00", "-$10.00"}},
      {{.locale = "en_US", .mode = Mode::halfEven}, {"$10.00", "$10.00", "-$10.00", "$9.98", "$9.99", "-$9.99"}},
      {{.locale = "en_US", .mode = Mode::halfDown}, {"$10.00", "$9.99", "-$9.99", "$9.98", "$9.99", "-$9.99"}},
      {{.locale = "en_US", .mode = Mode::halfUp}, {"$10.00", "$10.00", "-$10.00", "$9.99", "$9.99", "-$9.99"}},
  });
}

TEST(NumberFormatter, FollowsSymbolFormatsAndFractionDigits) {
  expectTexts({"9.99", "-9.99", "1234.5"}, {
      {{.locale = "en_US", .minimumFractionDigits = 2, .symbol = "$", .positive = "\u00A40.00", .negative = "-\u00A40.00"},
       {"$9.99", "-$9.99", "$1234.50"}},
      {{.locale = "ru_RU", .minimumFractionDigits = 0, .symbol = "\u20BD", .positive = "0.##\u00A4", .negative = "-0.##\u00A4"},
       {"9,99\u20BD", "-9,99\u20BD", "1234,5\u20BD"}},  // the pattern's point is the locale's separator
      {{.locale = "ja_JP", .minimumFractionDigits = 2}, {"\uFFE59.99", "-\uFFE59.99", "\uFFE51,234.50"}},
      {{.locale = "en_US", .positive = "0.00\u00A0\u00A4"}, {"9.99\u00A0$", "-$9.99", "1234.50\u00A0$"}},  // other: own
      {{.locale = "de_CH", .negative = "(\u00A4#,##0.00)"}, {"CHF\u00A09.99", "(CHF\u00A09.99)", "CHF\u00A01\u2019234.50"}},
      {{.locale = "en_US", .positive = "0.0.0"}, {"$9.99", "-$9.99", "$1,234.50"}},  // unreadable: ignored
  });
}

TEST(NumberFormatter, RebuildsFromTheLocaleAndReappliesSettings) {
  NumberFormatter formatter;
  Config{.locale = "en_US"}.applyTo(formatter);
  EXPECT_EQ(formatter.positiveFormat() + ";" + formatter.negativeFormat(), "\u00A4#,##0.00;-\u00A4#,##0.00");
  EXPECT_EQ(formatter.currencySymbol(), "$");
  formatter.setPositiveFormat("\u00A40.00");
  formatter.setMinimumFractionDigits(0);  // set after the formats: overrides their digits
  EXPECT_EQ(formatter.string(number("1234.5")), "$1234.5");
  EXPECT_EQ(std::pair(formatter.minimumFractionDigits(), formatter.maximumFractionDigits()), std::pair(0, 2));
  formatter.setPositiveFormat("\u00A40.00");  // set after the digits: its own digits win
  EXPECT_EQ(formatter.string(number("1234.5")), "$1234.50");
  formatter.setRoundingMode(Mode::up);
  formatter.setLocale(Locale("de_DE"));  // its own currency and separators, under the same format and rounding
  EXPECT_EQ(formatter.string(number("1234.501")), "\u20AC1234,51");
}

TEST(NumberFormatter, OddLocalesAndSettingsNeverFail) {
  const std::vector<Text> root = {"\u00A4\u00A01.50", "-\u00A4\u00A00.00"};  // the generic currency sign
  expectTexts({"1.5", "-1e-128"}, {
      {{.locale = ""}, root}, {{.locale = "garbage"}, root}, {{.locale = std::string(100000, 'a')}, root},
      {{.locale = std::string("en\0_US", 6)}, root}, {{.locale = "en_US@numbers=roman"}, {"$1.50", "-$0.00"}},
      {{.locale = "en_US", .minimumFractionDigits = 1'000'000},  // clamped to 127
       {"$1.5" + std::string(126, '0'), "-$0." + std::string(127, '0')}},
      {{.locale = "en_US", .minimumFractionDigits = -3, .symbol = "\xFF"}, {"\uFFFD1.5", "-\uFFFD0"}},  // not UTF-8
  });
}

TEST(NumberFormatter, ManyThreadsFormatWithOneFormatter) {
  NumberFormatter formatter;
  Config{.locale = "de_DE", .mode = Mode::down}.applyTo(formatter);
  const auto formatSome = [&formatter](std::int64_t first) {
    for (std::int64_t cents = first; cents < 3500; cents += 7) {  // x,yz9 rounds down to x,yz
      const std::string whole = std::to_string(cents / 100), fraction = std::to_string(100 + cents % 100).substr(1);
      EXPECT_EQ(formatter.string(Decimal(cents * 10 + 9, -3)), whole + "," + fraction + "\u00A0\u20AC");
    }
  };
  const std::jthread second(formatSome, 1), third(formatSome, 2), fourth(formatSome, 3);  // joined when the test ends
  formatSome(0);
}

}  // namespace
}  // namespace velquist::foundation
