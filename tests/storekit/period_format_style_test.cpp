#include "velquist/storekit/formatting/period_format_style.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "common/hash_testing.h"
#include "velquist/coreui/l10n.h"

namespace velquist::storekit {
namespace {

using foundation::Locale;
using formatting::GrammaticalNumber;
using formatting::UnitStyle;
using formatting::ValueDisplayStrategy;
using Period = Product::SubscriptionPeriod;
using Unit = Period::Unit;
using Style = Period::FormatStyle;
using UnitFormatStyle = Period::UnitFormatStyle;
namespace W = coreui::L10n::Product::SubscriptionPeriod::Unit;

constexpr std::int64_t int64Min = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t int64Max = std::numeric_limits<std::int64_t>::max();

// The word tables run in Russian, where the two plural forms differ ("недели", "недель"),
// so that a swapped entry shows.
class PeriodFormatStyle : public ::testing::Test {
 protected:
  void SetUp() override { Locale::setCurrent(Locale("ru_RU")); }
  void TearDown() override { Locale::setCurrent(std::nullopt); }
};

TEST(GrammaticalNumber, LooksAtTheAbsoluteValueOnly) {
  const struct {
    std::int64_t count;
    GrammaticalNumber expected;
  } cases[] = {
      {0, GrammaticalNumber::singular},  {1, GrammaticalNumber::singular},      {-1, GrammaticalNumber::singular},
      {2, GrammaticalNumber::plural},    {4, GrammaticalNumber::plural},        {-3, GrammaticalNumber::plural},
      {5, GrammaticalNumber::pluralTwo}, {21, GrammaticalNumber::pluralTwo},    {22, GrammaticalNumber::pluralTwo},
      {104, GrammaticalNumber::pluralTwo}, {-5, GrammaticalNumber::pluralTwo}, {int64Max, GrammaticalNumber::pluralTwo},
      {int64Min + 1, GrammaticalNumber::pluralTwo},
  };
  for (const auto& c : cases) EXPECT_EQ(grammaticalNumber(c.count), c.expected) << c.count;
}

TEST(GrammaticalNumberDeathTest, TheMostNegativeIntegerStopsTheProcess) {
  EXPECT_DEATH(grammaticalNumber(int64Min), "Fatal error: .*-9223372036854775808");
  EXPECT_DEATH(Style().format(Period::day(int64Min)), "Fatal error: ");
}

TEST_F(PeriodFormatStyle, UnitWordByStyleAndNumber) {
  using Word = std::string (*)();
  const struct {
    Unit unit;
    Word singular, plural, plural2, compactName, recurrent;
  } units[] = {
      {Unit::day, W::day, W::Day::plural, W::Day::plural2, W::Day::compactName, W::Day::recurrent},
      {Unit::week, W::week, W::Week::plural, W::Week::plural2, W::Week::compactName, W::Week::recurrent},
      {Unit::month, W::month, W::Month::plural, W::Month::plural2, W::Month::compactName, W::Month::recurrent},
      {Unit::year, W::year, W::Year::plural, W::Year::plural2, W::Year::compactName, W::Year::recurrent},
  };
  for (const auto& u : units) {
    SCOPED_TRACE(description(u.unit));
    EXPECT_EQ(UnitFormatStyle(UnitStyle::complete, GrammaticalNumber::singular).format(u.unit), u.singular());
    EXPECT_EQ(UnitFormatStyle(UnitStyle::complete, GrammaticalNumber::plural).format(u.unit), u.plural());
    EXPECT_EQ(UnitFormatStyle(UnitStyle::complete, GrammaticalNumber::pluralTwo).format(u.unit), u.plural2());
    // Compact and recurrent names are the same for every number.
    for (auto number : {GrammaticalNumber::singular, GrammaticalNumber::plural, GrammaticalNumber::pluralTwo}) {
      EXPECT_EQ(formatted(u.unit, UnitStyle::shortened, number), u.compactName());
      EXPECT_EQ(formatted(u.unit, UnitStyle::recurrent, number), u.recurrent());
    }
  }
}

TEST_F(PeriodFormatStyle, PeriodTextFollowsTheFirstMatchingCase) {
  const auto always = ValueDisplayStrategy::always;
  const auto automatic = ValueDisplayStrategy::automatic;
  const struct {
    Period period;
    Style style;
    std::function<std::string()> expected;
  } cases[] = {
      {Period::week(1), Style(), [] { return W::week(); }},
      {Period::week(1), Style().valueDisplayStrategy(always), [] { return "1 " + W::week(); }},
      {Period::year(1), Style(UnitStyle::shortened, {}, {}, always), [] { return "1 " + W::Year::compactName(); }},
      // Collapse: exactly 7 days and exactly 12 months.
      {Period::day(7), Style().unitsCollapsed({Unit::day}), [] { return W::week(); }},
      {Period::day(7), Style(UnitStyle::complete, {Unit::day}, {}, always), [] { return "1 " + W::week(); }},
      {Period::day(7), Style(UnitStyle::shortened, {Unit::day}, {}), [] { return W::Week::compactName(); }},
      {Period::day(7), Style(UnitStyle::recurrent, {Unit::day}, {}), [] { return W::Week::recurrent(); }},
      {Period::day(7), Style(), [] { return "7 " + W::Day::plural2(); }},
      {Period::day(14), Style().unitsCollapsed({Unit::day}), [] { return "14 " + W::Day::plural2(); }},
      {Period::month(12), Style(UnitStyle::shortened, {Unit::month}, {}), [] { return W::Year::compactName(); }},
      {Period::month(12), Style(UnitStyle::recurrent, {Unit::month}, {}, always),
       [] { return "1 " + W::Year::recurrent(); }},
      {Period::month(12), Style().unitsCollapsed({Unit::day}), [] { return "12 " + W::Month::plural2(); }},
      // Expansion: exactly 1 week and exactly 1 year, with the number written even under automatic.
      {Period::week(1), Style().unitsExpanded({Unit::week}), [] { return "7 " + W::Day::plural2(); }},
      {Period::week(1), Style(UnitStyle::shortened, {}, {Unit::week}, automatic),
       [] { return "7 " + W::Day::compactName(); }},
      {Period::week(1), Style(UnitStyle::recurrent, {}, {Unit::week}), [] { return "7 " + W::Day::recurrent(); }},
      {Period::year(1), Style().unitsExpanded({Unit::year}), [] { return "12 " + W::Month::plural2(); }},
      {Period::year(1), Style(UnitStyle::shortened, {}, {Unit::year}), [] { return "12 " + W::Month::compactName(); }},
      {Period::week(2), Style().unitsExpanded({Unit::week}), [] { return "2 " + W::Week::plural(); }},
      // Members the lists never test change nothing.
      {Period::month(1), Style(UnitStyle::complete, {Unit::week, Unit::year}, {Unit::day, Unit::month}),
       [] { return W::month(); }},
      {Period::week(1), Style().unitsCollapsed({Unit::week}), [] { return W::week(); }},
      // Plain counts.
      {Period::day(0), Style(), [] { return "0 " + W::day(); }},
      {Period::month(3), Style(), [] { return "3 " + W::Month::plural(); }},
      {Period::day(21), Style(), [] { return "21 " + W::Day::plural2(); }},
      {Period::day(-3), Style(), [] { return "-3 " + W::Day::plural(); }},
      {Period::month(3), Style().unitStyle(UnitStyle::shortened), [] { return "3 " + W::Month::compactName(); }},
      {Period::year(5), Style().unitStyle(UnitStyle::recurrent), [] { return "5 " + W::Year::recurrent(); }},
      {Period::day(int64Max), Style(), [] { return "9223372036854775807 " + W::Day::plural2(); }},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.style.format(c.period), c.expected()) << c.period.analyticsValue();
    EXPECT_EQ(c.period.formatted(c.style), c.expected());
  }
}

TEST(PeriodFormatStyleWords, LiteralTextsInEnglishAndRussian) {
  const struct {
    const char* locale;
    Period period;
    Style style;
    const char* expected;
  } cases[] = {
      {"en_US", Period::month(3), Style(), "3 months"},
      {"en_US", Period::week(1), Style().unitsExpanded({Unit::week}), "7 days"},
      {"en_US", Period::year(1), Style().unitStyle(UnitStyle::recurrent), "yearly"},
      {"ru_RU", Period::month(3), Style(), "3 месяца"},
      {"ru_RU", Period::day(7), Style(), "7 дней"},
      {"ru_RU", Period::day(7), Style().unitsCollapsed({Unit::day}), "неделя"},
      // Digits stay ASCII whatever the locale's own digits (the words fall back to English).
      {"ar_EG", Period::day(21), Style(), "21 days"},
  };
  for (const auto& c : cases) {
    Locale::setCurrent(Locale(c.locale));
    EXPECT_EQ(c.style.format(c.period), c.expected) << c.locale;
  }
  Locale::setCurrent(std::nullopt);
}

TEST(PeriodFormatStyleValue, ModifiersReplaceOneFieldAndFormattedBuildsTheStyle) {
  const Style base(UnitStyle::recurrent, {Unit::day}, {Unit::week}, ValueDisplayStrategy::always);
  EXPECT_EQ(base.unitStyle(UnitStyle::shortened),
            Style(UnitStyle::shortened, {Unit::day}, {Unit::week}, ValueDisplayStrategy::always));
  EXPECT_EQ(base.unitsCollapsed({Unit::month}),  // replaced whole, not merged
            Style(UnitStyle::recurrent, {Unit::month}, {Unit::week}, ValueDisplayStrategy::always));
  EXPECT_EQ(base.unitsExpanded({}), Style(UnitStyle::recurrent, {Unit::day}, {}, ValueDisplayStrategy::always));
  EXPECT_EQ(base.valueDisplayStrategy(ValueDisplayStrategy::automatic),
            Style(UnitStyle::recurrent, {Unit::day}, {Unit::week}, ValueDisplayStrategy::automatic));
  EXPECT_EQ(UnitFormatStyle().style(UnitStyle::shortened).number(GrammaticalNumber::plural),
            UnitFormatStyle(UnitStyle::shortened, GrammaticalNumber::plural));
  EXPECT_EQ(Period::month(12).formatted(UnitStyle::shortened, {Unit::month}, {}, ValueDisplayStrategy::always),
            Style(UnitStyle::shortened, {Unit::month}, {}, ValueDisplayStrategy::always).format(Period::month(12)));
}

TEST(PeriodFormatStyleValue, EqualStylesHashAlike) {
  testing::expectHashAgreesWithEquality<Style>({
      Style(),
      Style(UnitStyle::complete, {}, {}, ValueDisplayStrategy::automatic),
      Style().unitsCollapsed({Unit::day}),
      Style().unitsExpanded({Unit::day}),
      Style().unitsCollapsed({Unit::day, Unit::month}),
      Style().unitsCollapsed({Unit::month, Unit::day}),
      Style().valueDisplayStrategy(ValueDisplayStrategy::always),
  });
  testing::expectHashAgreesWithEquality<UnitFormatStyle>({
      UnitFormatStyle(),
      UnitFormatStyle(UnitStyle::complete, GrammaticalNumber::singular),
      UnitFormatStyle(UnitStyle::shortened),
      UnitFormatStyle().number(GrammaticalNumber::pluralTwo),
  });
  EXPECT_NE(Style().unitsCollapsed({Unit::day}), Style().unitsExpanded({Unit::day}));
  EXPECT_NE(Style().unitsCollapsed({Unit::day, Unit::month}), Style().unitsCollapsed({Unit::month, Unit::day}));
}

}  // namespace
}  // namespace velquist::storekit
