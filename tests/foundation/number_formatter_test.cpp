#include "velquist/foundation/number_formatter.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace velquist::foundation {
namespace {

using Style = NumberFormatter::Style;
using Mode = NumberFormatter::RoundingMode;
using Text = std::optional<std::string>;

// Text with every character outside ASCII spelled \uXXXX, so that a failure shows which
// space or digit ICU chose.
std::string spelled(const Text& text) {
  if (!text) return "(none)";
  std::string result;
  for (std::size_t i = 0; i < text->size();) {
    const auto lead = static_cast<unsigned char>((*text)[i]);
    const int length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (length == 1) {
      result += static_cast<char>(lead);
    } else {
      unsigned codePoint = lead & (0x3F >> (length - 1));
      for (int k = 1; k < length && i + k < text->size(); ++k) {
        codePoint = (codePoint << 6) | (static_cast<unsigned char>((*text)[i + k]) & 0x3F);
      }
      char escaped[12];
      std::snprintf(escaped, sizeof escaped, "\\u%04X", codePoint);
      result += escaped;
    }
    i += static_cast<std::size_t>(length);
  }
  return result;
}

Decimal number(const char* text) { return Decimal::fromString(text).value(); }

// The configuration the price formatter makes; unset optionals are left alone.
struct Config {
  std::string locale;
  Style style = Style::currency;
  Mode mode = Mode::halfEven;
  std::optional<int> minimumFractionDigits = {};
  std::optional<std::string> symbol = {};
  std::optional<std::string> positive = {};
  std::optional<std::string> negative = {};
};

void configure(NumberFormatter& formatter, const Config& config) {
  formatter.setNumberStyle(config.style);
  formatter.setLocale(Locale(config.locale));
  formatter.setRoundingMode(config.mode);
  if (config.minimumFractionDigits) formatter.setMinimumFractionDigits(*config.minimumFractionDigits);
  if (config.symbol) formatter.setCurrencySymbol(*config.symbol);
  if (config.positive) formatter.setPositiveFormat(*config.positive);
  if (config.negative) formatter.setNegativeFormat(*config.negative);
}

// Formats each number with one formatter configured by `config` and compares the texts.
template <std::size_t N>
void expectTexts(const Config& config, const std::array<const char*, N>& numbers,
                 const std::array<Text, N>& expected) {
  NumberFormatter formatter;
  configure(formatter, config);
  for (std::size_t i = 0; i < N; ++i) {
    EXPECT_EQ(spelled(formatter.string(number(numbers[i]))), spelled(expected[i]))
        << config.locale << " " << numbers[i];
  }
}

TEST(NumberFormatterCurrency, UsesEachLocalesOwnFormat) {
  const std::array<const char*, 6> numbers = {"9.99", "1234.5", "0", "-9.99", "199", "199.5"};
  const std::vector<std::pair<std::string, std::array<Text, 6>>> cases = {
      {"en_US", {"$9.99", "$1,234.50", "$0.00", "-$9.99", "$199.00", "$199.50"}},
      {"de_DE", {"9,99\u00A0\u20AC", "1.234,50\u00A0\u20AC", "0,00\u00A0\u20AC", "-9,99\u00A0\u20AC",
                 "199,00\u00A0\u20AC", "199,50\u00A0\u20AC"}},
      {"fr_FR", {"9,99\u00A0\u20AC", "1\u202F234,50\u00A0\u20AC", "0,00\u00A0\u20AC", "-9,99\u00A0\u20AC",
                 "199,00\u00A0\u20AC", "199,50\u00A0\u20AC"}},
      {"ru_RU", {"9,99\u00A0\u20BD", "1\u00A0234,50\u00A0\u20BD", "0,00\u00A0\u20BD", "-9,99\u00A0\u20BD",
                 "199,00\u00A0\u20BD", "199,50\u00A0\u20BD"}},
      // The yen has no minor unit: 199.5 rounds half to even.
      {"ja_JP", {"\uFFE510", "\uFFE51,234", "\uFFE50", "-\uFFE510", "\uFFE5199", "\uFFE5200"}},
      {"tr_TR", {"\u20BA9,99", "\u20BA1.234,50", "\u20BA0,00", "-\u20BA9,99", "\u20BA199,00", "\u20BA199,50"}},
      {"en_IN", {"\u20B99.99", "\u20B91,234.50", "\u20B90.00", "-\u20B99.99", "\u20B9199.00", "\u20B9199.50"}},
      // The keyword decides the currency; the digits stay those of the identifier's language.
      {"en_PT@currency=EUR", {"\u20AC9.99", "\u20AC1,234.50", "\u20AC0.00", "-\u20AC9.99", "\u20AC199.00",
                              "\u20AC199.50"}},
      // Arabic-Indic digits; no region means no currency, shown as the generic sign.
      {"ar", {"\u200F\u0669\u066B\u0669\u0669\u00A0\u00A4", "\u200F\u0661\u066C\u0662\u0663\u0664\u066B\u0665\u0660\u00A0\u00A4",
              "\u200F\u0660\u066B\u0660\u0660\u00A0\u00A4", "\u061C-\u200F\u0669\u066B\u0669\u0669\u00A0\u00A4",
              "\u200F\u0661\u0669\u0669\u066B\u0660\u0660\u00A0\u00A4", "\u200F\u0661\u0669\u0669\u066B\u0665\u0660\u00A0\u00A4"}},
      {"ar_EG", {"\u200F\u0669\u066B\u0669\u0669\u00A0\u062C.\u0645.\u200F",
                 "\u200F\u0661\u066C\u0662\u0663\u0664\u066B\u0665\u0660\u00A0\u062C.\u0645.\u200F",
                 "\u200F\u0660\u066B\u0660\u0660\u00A0\u062C.\u0645.\u200F",
                 "\u061C-\u200F\u0669\u066B\u0669\u0669\u00A0\u062C.\u0645.\u200F",
                 "\u200F\u0661\u0669\u0669\u066B\u0660\u0660\u00A0\u062C.\u0645.\u200F",
                 "\u200F\u0661\u0669\u0669\u066B\u0665\u0660\u00A0\u062C.\u0645.\u200F"}},
  };
  for (const auto& [locale, expected] : cases) expectTexts({.locale = locale}, numbers, expected);
}

TEST(NumberFormatterCurrency, RoundsByEachMode) {
  // Together these numbers tell every mode from every other.
  const std::array<const char*, 6> numbers = {"9.999", "9.995", "-9.995", "9.985", "9.991", "-9.991"};
  const std::vector<std::pair<Mode, std::array<Text, 6>>> cases = {
      {Mode::ceiling, {"$10.00", "$10.00", "-$9.99", "$9.99", "$10.00", "-$9.99"}},
      {Mode::floor, {"$9.99", "$9.99", "-$10.00", "$9.98", "$9.99", "-$10.00"}},
      {Mode::down, {"$9.99", "$9.99", "-$9.99", "$9.98", "$9.99", "-$9.99"}},
      {Mode::up, {"$10.00", "$10.00", "-$10.00", "$9.99", "$10.00", "-$10.00"}},
      {Mode::halfEven, {"$10.00", "$10.00", "-$10.00", "$9.98", "$9.99", "-$9.99"}},
      {Mode::halfDown, {"$10.00", "$9.99", "-$9.99", "$9.98", "$9.99", "-$9.99"}},
      {Mode::halfUp, {"$10.00", "$10.00", "-$10.00", "$9.99", "$9.99", "-$9.99"}},
  };
  for (const auto& [mode, expected] : cases) {
    SCOPED_TRACE(static_cast<int>(mode));
    expectTexts({.locale = "en_US", .mode = mode}, numbers, expected);
  }
}

TEST(NumberFormatterCurrency, FollowsSymbolFormatsAndFractionDigits) {
  const std::array<const char*, 4> numbers = {"9.99", "-9.99", "1234.5", "199"};
  const std::vector<std::pair<Config, std::array<Text, 4>>> cases = {
      {{.locale = "en_US", .minimumFractionDigits = 2, .symbol = "$", .positive = "\u00A40.00", .negative = "-\u00A40.00"},
       {"$9.99", "-$9.99", "$1234.50", "$199.00"}},
      // The decimal separator in a pattern is the locale's.
      {{.locale = "ru_RU", .minimumFractionDigits = 0, .symbol = "\u20BD", .positive = "0.##\u00A4", .negative = "-0.##\u00A4"},
       {"9,99\u20BD", "-9,99\u20BD", "1234,5\u20BD", "199\u20BD"}},
      {{.locale = "en_RU", .minimumFractionDigits = 0, .symbol = "\u20BD", .positive = "0.##\u00A4", .negative = "-0.##\u00A4"},
       {"9.99\u20BD", "-9.99\u20BD", "1234.5\u20BD", "199\u20BD"}},
      {{.locale = "en_IN", .minimumFractionDigits = 0}, {"\u20B99.99", "-\u20B99.99", "\u20B91,234.5", "\u20B9199"}},
      {{.locale = "ja_JP", .minimumFractionDigits = 0}, {"\uFFE510", "-\uFFE510", "\uFFE51,234", "\uFFE5199"}},
      {{.locale = "ja_JP", .minimumFractionDigits = 2}, {"\uFFE59.99", "-\uFFE59.99", "\uFFE51,234.50", "\uFFE5199.00"}},
      // Only one format set: the other stays the locale's.
      {{.locale = "en_US", .positive = "0.00\u00A0\u00A4"}, {"9.99\u00A0$", "-$9.99", "1234.50\u00A0$", "199.00\u00A0$"}},
      {{.locale = "de_CH", .negative = "(\u00A4#,##0.00)"},
       {"CHF\u00A09.99", "(CHF\u00A09.99)", "CHF\u00A01\u2019234.50", "CHF\u00A0199.00"}},
      // A pattern ICU cannot read is ignored.
      {{.locale = "en_US", .positive = "0.0.0"}, {"$9.99", "-$9.99", "$1,234.50", "$199.00"}},
  };
  for (const auto& [config, expected] : cases) expectTexts(config, numbers, expected);
}

TEST(NumberFormatterPercent, ScalesByAHundredWithTheLocalesSign) {
  const std::array<const char*, 5> numbers = {"0.85", "0", "-0.44", "0.125", "0.135"};
  const std::vector<std::pair<std::string, std::array<Text, 5>>> cases = {
      {"en_US", {"85%", "0%", "-44%", "12%", "14%"}},
      {"de_DE", {"85\u00A0%", "0\u00A0%", "-44\u00A0%", "12\u00A0%", "14\u00A0%"}},
      {"fr_FR", {"85\u00A0%", "0\u00A0%", "-44\u00A0%", "12\u00A0%", "14\u00A0%"}},
      {"ru_RU", {"85\u00A0%", "0\u00A0%", "-44\u00A0%", "12\u00A0%", "14\u00A0%"}},
      {"tr_TR", {"%85", "%0", "-%44", "%12", "%14"}},
  };
  for (const auto& [locale, expected] : cases) expectTexts({.locale = locale, .style = Style::percent}, numbers, expected);
}

TEST(NumberFormatterOther, DecimalAndNoStyleAndExactDigits) {
  const std::array<const char*, 4> numbers = {"1234.5678", "0.5", "-2.5", "12345678901234567890.99"};
  const std::vector<std::pair<Config, std::array<Text, 4>>> cases = {
      {{.locale = "en_US", .style = Style::decimal}, {"1,234.568", "0.5", "-2.5", "12,345,678,901,234,567,890.99"}},
      {{.locale = "de_DE", .style = Style::none}, {"1235", "0", "-2", "12345678901234567891"}},
      {{.locale = "en_US"}, {"$1,234.57", "$0.50", "-$2.50", "$12,345,678,901,234,567,890.99"}},
      // Digits that a double would lose survive.
      {{.locale = "en_US", .style = Style::decimal, .minimumFractionDigits = 2},
       {"1,234.568", "0.50", "-2.50", "12,345,678,901,234,567,890.99"}},
  };
  for (const auto& [config, expected] : cases) expectTexts(config, numbers, expected);

  NumberFormatter formatter;
  configure(formatter, {.locale = "en_US", .style = Style::decimal});
  EXPECT_EQ(formatter.string(number("12345678901234567890123456789012345678")),
            "12,345,678,901,234,567,890,123,456,789,012,345,678");
  EXPECT_EQ(formatter.string(Decimal::nan()), std::nullopt);
}

TEST(NumberFormatterConfiguration, RebuildsFromTheLocaleAndReappliesSettings) {
  NumberFormatter formatter;
  EXPECT_EQ(formatter.numberStyle(), Style::none);
  EXPECT_EQ(formatter.roundingMode(), Mode::halfEven);
  EXPECT_EQ(formatter.locale(), Locale::current());

  configure(formatter, {.locale = "en_US"});
  EXPECT_EQ(formatter.positiveFormat(), "\u00A4#,##0.00");
  EXPECT_EQ(formatter.negativeFormat(), "-\u00A4#,##0.00");
  EXPECT_EQ(formatter.currencySymbol(), "$");

  // Digits set after the formats override the patterns'; set before, they yield.
  formatter.setPositiveFormat("\u00A40.00");
  formatter.setNegativeFormat("-\u00A40.00");
  formatter.setMinimumFractionDigits(0);
  EXPECT_EQ(formatter.string(number("-1234.5")), "-$1234.5");
  EXPECT_EQ(formatter.minimumFractionDigits(), 0);
  formatter.setPositiveFormat("\u00A40.00");
  EXPECT_EQ(formatter.string(number("-1234.5")), "-$1234.50");
  EXPECT_EQ(formatter.minimumFractionDigits(), 2);

  // A new locale brings its own currency and separators under the same formats.
  formatter.setLocale(Locale("de_DE"));
  EXPECT_EQ(formatter.string(number("-1234.5")), "-\u20AC1234,50");
  formatter.setCurrencySymbol("EUR ");
  formatter.setRoundingMode(Mode::up);
  formatter.setLocale(Locale("fr_FR"));
  EXPECT_EQ(formatter.string(number("1234.501")), "EUR 1234,51");
  EXPECT_EQ(formatter.currencySymbol(), "EUR ");
  EXPECT_EQ(formatter.positiveFormat(), "\u00A40.00");
  EXPECT_EQ(formatter.maximumFractionDigits(), 2);
}

TEST(NumberFormatterConfiguration, OddLocalesAndSettingsNeverFail) {
  const std::vector<std::pair<std::string, Text>> cases = {
      {"", "\u00A4\u00A01.50"},
      {"garbage", "\u00A4\u00A01.50"},
      {std::string(100000, 'a'), "\u00A4\u00A01.50"},
      {std::string("en\0_US", 6), "\u00A4\u00A01.50"},
      {"en_US@numbers=roman", "$1.50"},  // spelled-out numbering systems fall back to digits
  };
  for (const auto& [identifier, expected] : cases) {
    NumberFormatter formatter;
    configure(formatter, {.locale = identifier});
    EXPECT_EQ(spelled(formatter.string(number("1.5"))), spelled(expected)) << identifier.substr(0, 20);
  }

  NumberFormatter formatter;
  configure(formatter, {.locale = "en_US", .minimumFractionDigits = -3});
  EXPECT_EQ(formatter.minimumFractionDigits(), 0);
  formatter.setMinimumFractionDigits(1'000'000);
  EXPECT_EQ(formatter.minimumFractionDigits(), 127);
  EXPECT_EQ(formatter.string(number("1.5")), "$1.5" + std::string(126, '0'));
  formatter.setMinimumFractionDigits(0);
  formatter.setCurrencySymbol("\xFF");  // not UTF-8: replaced, not fatal
  EXPECT_EQ(spelled(formatter.string(number("1.5"))), "\\uFFFD1.5");
  EXPECT_EQ(spelled(formatter.string(Decimal::fromParts(true, 1, Decimal::minExponent))), "-\\uFFFD0");
}

TEST(NumberFormatterConcurrency, ManyThreadsFormatWithOneFormatter) {
  NumberFormatter formatter;
  configure(formatter, {.locale = "de_DE", .mode = Mode::down});
  std::vector<std::thread> threads;
  std::array<int, 4> mismatches = {};
  for (std::size_t t = 0; t < mismatches.size(); ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 500; ++i) {
        const auto cents = static_cast<std::int64_t>(i * 7 + static_cast<int>(t));
        const std::string expected =
            std::to_string(cents / 100) + "," + (cents % 100 < 10 ? "0" : "") + std::to_string(cents % 100) + "\u00A0\u20AC";
        if (formatter.string(Decimal(cents, -2)) != expected) ++mismatches[t];
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(mismatches, (std::array<int, 4>{}));
}

}  // namespace
}  // namespace velquist::foundation
