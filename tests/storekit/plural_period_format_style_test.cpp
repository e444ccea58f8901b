#include "velquist/storekit/formatting/plural_period_format_style.h"

#include <gtest/gtest.h>
#include <unicode/measunit.h>
#include <unicode/numberformatter.h>

#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "common/hash_testing.h"
#include "velquist/foundation/coding.h"
#include "velquist/storekit/formatting/format_style_coding.h"
#include "velquist/storekit/formatting/period_format_style.h"

namespace velquist::storekit {
namespace {

using foundation::Locale;
using Period = Product::SubscriptionPeriod;
using Unit = Period::Unit;
using Style = Period::PluralFormatStyle;
using Width = Style::Width;
using formatting::ValueDisplayStrategy;

constexpr auto always = ValueDisplayStrategy::always;

// What ICU itself writes for `count` of `unit`, with a formatter made here.
std::string icuUnitText(const std::string& locale, std::int64_t count, Unit unit, Width width) {
  const icu::MeasureUnit units[] = {icu::MeasureUnit::getDay(), icu::MeasureUnit::getWeek(),
                                    icu::MeasureUnit::getMonth(), icu::MeasureUnit::getYear()};
  UErrorCode status = U_ZERO_ERROR;
  const icu::UnicodeString text =
      icu::number::NumberFormatter::withLocale(icu::Locale(locale.c_str()))
          .unit(units[static_cast<int>(unit)])
          .unitWidth(width == Width::complete ? UNUM_UNIT_WIDTH_FULL_NAME : UNUM_UNIT_WIDTH_SHORT)
          .formatInt(count, status)
          .toString(status);
  EXPECT_TRUE(U_SUCCESS(status)) << u_errorName(status);
  std::string utf8;
  text.toUTF8String(utf8);
  return utf8;
}

TEST(PluralPeriodFormatStyle, WritesWhatICUWritesForEveryLanguageNumberUnitAndWidth) {
  const Style style = Style().valueDisplayStrategy(always);
  for (const std::string locale : {"ru_RU", "pl_PL", "ar_EG", "he_IL", "cs_CZ", "uk_UA", "fr_FR", "ja_JP", "hi_IN",
                                   "en_US", "sk_SK", "ro_RO", "zh_Hant_TW", "th_TH@numbers=thai"}) {
    for (const std::int64_t count : {0, 1, 2, 3, 5, 11, 21, 22, 101}) {
      for (const Unit unit : {Unit::day, Unit::week, Unit::month, Unit::year}) {
        for (const Width width : {Width::complete, Width::shortened}) {
          EXPECT_EQ(style.width(width).format(Period{unit, count}, Locale(locale)), icuUnitText(locale, count, unit, width))
              << locale << " " << count << " " << description(unit) << " " << static_cast<int>(width);
        }
      }
    }
  }
}

TEST(PluralPeriodFormatStyle, CollapsesExpandsAndLeavesOutTheNumberOneAsTheLibraryStyleDoes) {
  const std::vector<Unit> collapsed = {Unit::day, Unit::month};
  const std::vector<Unit> expanded = {Unit::week, Unit::year};
  struct Case {
    Period period;
    Style style;
    std::string english;
    std::string russian;
  };
  const Case cases[] = {
      {Period::week(1), Style(), "week", "неделя"},
      {Period::week(1), Style().valueDisplayStrategy(always), "1 week", "1 неделя"},
      {Period::week(1), Style(Width::shortened), "wk", "нед."},
      {Period::day(7), Style().unitsCollapsed(collapsed), "week", "неделя"},
      {Period::day(7), Style().unitsCollapsed(collapsed).valueDisplayStrategy(always), "1 week", "1 неделя"},
      {Period::day(7), Style(), "7 days", "7 дней"},
      {Period::month(12), Style(Width::shortened, collapsed), "yr", "г."},
      {Period::week(1), Style().unitsExpanded(expanded), "7 days", "7 дней"},
      {Period::year(1), Style().unitsExpanded(expanded), "12 months", "12 месяцев"},
      {Period::month(12), Style().unitsCollapsed({Unit::day}), "12 months", "12 месяцев"},  // only the unit listed
      {Period::day(14), Style().unitsCollapsed(collapsed), "14 days", "14 дней"},
      {Period::week(2), Style().unitsExpanded(expanded), "2 weeks", "2 недели"},
      {Period::month(1), Style().unitsCollapsed(expanded).unitsExpanded(collapsed), "month", "месяц"},  // no effect
      {Period::week(7), Style().unitsCollapsed({Unit::week}), "7 weeks", "7 недель"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.style.format(c.period, Locale("en_US")), c.english) << c.english;
    EXPECT_EQ(c.style.format(c.period, Locale("ru_RU")), c.russian) << c.russian;
  }
  // Without the number: the word CLDR uses with one, wherever the language puts the number.
  for (const auto& [locale, expected] : std::vector<std::pair<std::string, std::string>>{
           {"ar_EG", "أسبوع"}, {"he_IL", "שבוע"}, {"ja_JP", "週間"}, {"ko_KR", "주"}, {"zh_CN", "周"}, {"tr_TR", "hafta"}}) {
    EXPECT_EQ(Style().format(Period::week(1), Locale(locale)), expected) << locale;
    EXPECT_EQ(pluralUnitWord(Unit::week, 1, Width::complete, Locale(locale)), expected) << locale;
  }
  EXPECT_EQ(pluralUnitWord(Unit::day, 3, Width::complete, Locale("ru_RU")), "дня");
  EXPECT_EQ(pluralUnitWord(Unit::month, 1000, Width::complete, Locale("en_US")), "months");
  Locale::setCurrent(Locale("ru_RU"));  // without a locale: the current one
  EXPECT_EQ(Style().format(Period::day(22)), "22 дня");
  Locale::setCurrent(std::nullopt);
}

TEST(PluralPeriodFormatStyle, AnyValueAndAnyLocaleIdentifierGiveAText) {
  constexpr std::int64_t extremes[] = {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()};
  for (const std::string& locale : std::vector<std::string>{"ru_RU", "ar_EG", "", "garbage!!", "x", std::string("en\0US", 5)}) {
    for (const std::int64_t value : extremes) {
      const std::string text = Style().format(Period{Unit::month, value}, Locale(locale));
      EXPECT_FALSE(text.empty()) << locale;
    }
    EXPECT_FALSE(Style().format(Period::week(1), Locale(locale)).empty()) << locale;
  }
  // Grouping and negative numbers, outside what the comparison with ICU covers.
  EXPECT_EQ(Style().format(Period{Unit::day, std::numeric_limits<std::int64_t>::min()}, Locale("en_US")),
            "-9,223,372,036,854,775,808 days");
  EXPECT_EQ(Style().format(Period::day(-3), Locale("de_DE")), "-3 Tage");
}

TEST(PluralPeriodFormatStyle, ManyThreadsInManyLanguagesGetWhatOneThreadGets) {
  const std::vector<std::string> locales = {"ru_RU", "pl_PL", "ar_EG", "ja_JP", "fr_CA", "uk_UA"};
  const Style style = Style().valueDisplayStrategy(always);
  std::vector<std::string> expected;
  for (const std::string& locale : locales) expected.push_back(style.format(Period::day(21), Locale(locale)));
  std::vector<std::string> got(locales.size() * 4);
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < got.size(); ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 50; ++round) got[t] = style.format(Period::day(21), Locale(locales[t % locales.size()]));
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (std::size_t t = 0; t < got.size(); ++t) EXPECT_EQ(got[t], expected[t % locales.size()]) << locales[t % locales.size()];
}

TEST(PluralPeriodFormatStyle, ModifiersEqualityHashingAndSerialForm) {
  const Style full(Width::shortened, {Unit::day}, {Unit::year}, always);
  EXPECT_EQ(Style().width(Width::shortened).unitsCollapsed({Unit::day}).unitsExpanded({Unit::year}).valueDisplayStrategy(always),
            full);
  EXPECT_EQ(full.unitsCollapsed({Unit::month}).unitsCollapsed(), std::vector<Unit>{Unit::month});  // replaced, not merged
  testing::expectHashAgreesWithEquality<Style>({Style(), full, Style(Width::shortened), Style().unitsCollapsed({Unit::day}),
                                                Style().unitsExpanded({Unit::day}), Style().valueDisplayStrategy(always)});

  using foundation::decodeFromJsonText;
  using foundation::encodeToJsonText;
  const std::string json = R"({"width":{"shortened":{}},"unitsCollapsed":[0],"unitsExpanded":[3],)"
                           R"("valueDisplayStrategy":{"always":{}}})";
  EXPECT_EQ(encodeToJsonText(full), json);
  EXPECT_EQ(decodeFromJsonText<Style>(json), full);
  EXPECT_EQ(encodeToJsonText(Style()), R"({"width":{"complete":{}},"unitsCollapsed":[],"unitsExpanded":[],)"
                                       R"("valueDisplayStrategy":{"automatic":{}}})");

  // Widths are cases of their own: the unit styles' "recurrent" is none of them.
  EXPECT_THROW((void)decodeFromJsonText<Style>(R"({"width":{"recurrent":{}},"unitsCollapsed":[],"unitsExpanded":[],)"
                                               R"("valueDisplayStrategy":{"always":{}}})"),
               foundation::DecodingError);
}

}  // namespace
}  // namespace velquist::storekit
