#include <gtest/gtest.h>

#include <limits>
#include <type_traits>

#include "common/hash_testing.h"
#include "velquist/coreui/l10n.h"
#include "velquist/storekit/formatting/format_style_coding.h"
#include "velquist/storekit/formatting/offer_format_style.h"
#include "velquist/storekit/formatting/period_format_style.h"
#include "velquist/storekit/formatting/price_format_style.h"

namespace velquist::storekit {
namespace {

using formatting::GrammaticalNumber;
using formatting::UnitStyle;
using formatting::ValueDisplayStrategy;
using foundation::decodeFromJsonText;
using foundation::encodeToJsonText;
using foundation::FloatingPointRoundingRule;
using Kind = foundation::DecodingError::Kind;
using foundation::Locale;
using Period = Product::SubscriptionPeriod;
using Unit = Period::Unit;
using Style = Period::FormatStyle;
using UnitFormatStyle = Period::UnitFormatStyle;
using Price = Product::FormatStyle::Price;
using Offer = Product::SubscriptionOffer;
using PaymentMode = Offer::PaymentMode;
using OfferStyle = Offer::FormatStyle;
using PaymentModeStyle = Offer::PaymentModeFormatStyle;
using Word = std::string (*)();
namespace W = coreui::L10n::Product::SubscriptionPeriod::Unit;
namespace OfferWords = coreui::L10n::Product::SubscriptionOffer;

constexpr auto always = formatting::ValueDisplayStrategy::always;
constexpr auto complete = UnitStyle::complete;
constexpr auto shortened = UnitStyle::shortened;
constexpr auto recurrent = UnitStyle::recurrent;
constexpr std::int64_t int64Max = std::numeric_limits<std::int64_t>::max();

static_assert(!std::is_default_constructible_v<Product::FormatStyle>, "a namespace only");

// The words come in Russian, where the two plural forms differ, so a swap shows; prices
// always use the product's own locale.
class PeriodFormatStyle : public ::testing::Test {
 protected:
  void SetUp() override { Locale::setCurrent(Locale("ru_RU")); }
  void TearDown() override { Locale::setCurrent(std::nullopt); }
};
using PriceFormatStyle = PeriodFormatStyle;

TEST(GrammaticalNumber, LooksAtTheAbsoluteValueOnly) {
  using enum GrammaticalNumber;
  const std::pair<std::int64_t, GrammaticalNumber> cases[] = {
      {0, singular},  {1, singular},   {-1, singular},  {2, plural},           {4, plural},             {-3, plural},
      {5, pluralTwo}, {21, pluralTwo}, {-5, pluralTwo}, {int64Max, pluralTwo}, {-int64Max, pluralTwo},
  };
  for (const auto& [count, expected] : cases) EXPECT_EQ(grammaticalNumber(count), expected) << count;
  EXPECT_DEATH(grammaticalNumber(-int64Max - 1), "Fatal error: .*-9223372036854775808");
}

TEST_F(PeriodFormatStyle, UnitWordByStyleAndNumber) {
  const struct { Unit unit; Word singular, plural, plural2, compactName, recurrent; } units[] = {
      {Unit::day, W::day, W::Day::plural, W::Day::plural2, W::Day::compactName, W::Day::recurrent},
      {Unit::week, W::week, W::Week::plural, W::Week::plural2, W::Week::compactName, W::Week::recurrent},
      {Unit::month, W::month, W::Month::plural, W::Month::plural2, W::Month::compactName, W::Month::recurrent},
      {Unit::year, W::year, W::Year::plural, W::Year::plural2, W::Year::compactName, W::Year::recurrent},
  };
  for (const auto& u : units) {
    SCOPED_TRACE(description(u.unit));
    EXPECT_EQ(UnitFormatStyle().format(u.unit), u.singular());
    EXPECT_EQ(UnitFormatStyle().number(GrammaticalNumber::plural).format(u.unit), u.plural());
    EXPECT_EQ(formatted(u.unit, complete, GrammaticalNumber::pluralTwo), u.plural2());
    for (auto number : {GrammaticalNumber::singular, GrammaticalNumber::plural, GrammaticalNumber::pluralTwo}) {
      EXPECT_EQ(formatted(u.unit, shortened, number), u.compactName());
      EXPECT_EQ(UnitFormatStyle(recurrent, number).format(u.unit), u.recurrent());
    }
  }
}

TEST_F(PeriodFormatStyle, PeriodTextFollowsTheFirstMatchingCase) {
  // The value, if any, is written before the word with one space.
  const struct { Period period; Style style; const char* value; Word word; } cases[] = {
      {Period::week(1), Style(), "", W::week},
      {Period::week(1), Style().valueDisplayStrategy(always), "1", W::week},
      // Collapse only at exactly 7 days and exactly 12 months, and only for the unit listed.
      {Period::day(7), Style().unitsCollapsed({Unit::day}), "", W::week},
      {Period::day(7), Style(complete, {Unit::day}, {}, always), "1", W::week},
      {Period::day(7), Style(), "7", W::Day::plural2},
      {Period::day(14), Style().unitsCollapsed({Unit::day}), "14", W::Day::plural2},
      {Period::month(12), Style(shortened, {Unit::month}), "", W::Year::compactName},
      {Period::month(12), Style().unitsCollapsed({Unit::day}), "12", W::Month::plural2},
      // Expansion only at exactly 1 week and 1 year, the number written even under automatic.
      {Period::week(1), Style().unitsExpanded({Unit::week}), "7", W::Day::plural2},
      {Period::week(1), Style(shortened, {}, {Unit::week}), "7", W::Day::compactName},
      {Period::year(1), Style().unitsExpanded({Unit::year}), "12", W::Month::plural2},
      {Period::week(2), Style().unitsExpanded({Unit::week}), "2", W::Week::plural},
      {Period::month(1), Style(complete, {Unit::week, Unit::year}, {Unit::day, Unit::month}), "", W::month},
      // Plain counts: ASCII digits, no grouping, "-" for negatives; compact words ignore the number.
      {Period::month(3), Style(), "3", W::Month::plural},
      {Period::day(21), Style(), "21", W::Day::plural2},
      {Period::day(-3), Style(), "-3", W::Day::plural},
      {Period::month(3), Style().unitStyle(shortened), "3", W::Month::compactName},
  };
  for (const auto& c : cases) {
    const std::string expected = *c.value ? c.value + (" " + c.word()) : c.word();
    EXPECT_EQ(c.period.formatted(c.style), expected) << c.period.analyticsValue();
  }
  EXPECT_EQ(Period::day(1000).formatted(Style()), "1000 дней");  // plain digits, no grouping
  Locale::setCurrent(Locale("ar_EG"));
  EXPECT_EQ(Period::day(1000).formatted(Style()), "1000 أيام");  // ASCII digits, whatever digits the locale writes
  Locale::setCurrent(Locale("sw_KE"));
  EXPECT_EQ(Period::day(1000).formatted(Style()), "1000 days");  // a language without a file: English words
}

TEST(PeriodFormatStyleValue, ModifiersReplaceOneFieldAndEqualStylesHashAlike) {
  const Style base(recurrent, {Unit::day}, {Unit::week}, always);
  EXPECT_EQ(base.unitStyle(shortened), Style(shortened, {Unit::day}, {Unit::week}, always));
  EXPECT_EQ(base.unitsCollapsed({Unit::month}), Style(recurrent, {Unit::month}, {Unit::week}, always));  // not merged
  EXPECT_EQ(base.valueDisplayStrategy(formatting::ValueDisplayStrategy::automatic),
            Style(recurrent, {Unit::day}, {Unit::week}));
  EXPECT_EQ(Period::month(12).formatted(shortened, {Unit::month}, {}, always), "1 " + W::Year::compactName());
  testing::expectHashAgreesWithEquality<Style>(
      {Style(), Style(complete, {}, {}), base, Style(shortened, {Unit::day, Unit::month})});
  testing::expectHashAgreesWithEquality<UnitFormatStyle>({UnitFormatStyle(), UnitFormatStyle(complete)});
}

// A product priced in en_US; an empty price is NaN, which has no price text.
Product product(const char* price, std::optional<Period> period) {
  std::optional<Product::SubscriptionInfo> subscription;
  if (period) subscription = Product::SubscriptionInfo{std::nullopt, "group", *period, {}, false};
  const Decimal amount = *price ? *Decimal::fromString(price) : Decimal::nan();
  return Product(Product::ID("p"), "", "", amount, Locale("en_US"), "", subscription);
}

TEST_F(PriceFormatStyle, JoinsThePresentPartsByTheSeparatorAndUnitStyle) {
  const Product weekly = product("4.99", Period::week(1));
  const Price price = Product::FormatStyle::price();
  const Price omitted = price.separator(Price::Separator::omitted);
  const Price noPeriod = price.subscriptionPeriodStyle(Price::SubscriptionPeriodStyle::omitted);
  const auto perYear = Product::FormatStyle::price(Period::year(1));
  // The text holds the price part and the joint; the word, if any, is the period part.
  const struct { Product product; Price style; const char* text; Word word; } cases[] = {
      {product("9.99", std::nullopt), price, "$9.99", nullptr},
      {product("", std::nullopt), price, "", nullptr},
      {weekly, price, "$4.99 / ", W::week},
      {weekly, price.subscriptionPeriodUnitStyle(UnitStyle::shortened), "$4.99/", W::Week::compactName},
      {weekly, price.subscriptionPeriodUnitStyle(UnitStyle::recurrent), "$4.99 / ", W::Week::recurrent},
      {weekly, omitted.subscriptionPeriodUnitStyle(UnitStyle::recurrent), "$4.99 ", W::Week::recurrent},
      {weekly, omitted.subscriptionPeriodUnitStyle(UnitStyle::shortened), "$4.99 ", W::Week::compactName},
      {product("19.99", Period::month(3)), price, "$19.99 / 3 ", W::Month::plural},
      {weekly, noPeriod, "$4.99", nullptr},
      // Restated: 4.99 x 52.1786 = 260.371214..., rounded by the style's rule.
      {weekly, perYear, "$260.37 / ", W::year},
      {weekly, perYear.roundingRule(FloatingPointRoundingRule::up), "$260.38 / ", W::year},
      {product("", Period::week(1)), price, "", W::week},
  };
  for (const auto& [p, style, text, word] : cases) EXPECT_EQ(p.formatted(style), text + (word ? word() : "")) << text;
  EXPECT_EQ(weekly.formatted(omitted.subscriptionPeriodUnitStyle(UnitStyle::recurrent)), "$4.99 еженедельно");
}

TEST(PriceFormatStyleValue, LocaleLeavesTheStyleAsItIsAndHashAgrees) {
  const Price price = Product::FormatStyle::price();
  EXPECT_EQ(price.locale(Locale("de_DE")), price);
  testing::expectHashAgreesWithEquality<Price>({price, Product::FormatStyle::price(std::nullopt),
                                                price.roundingRule(FloatingPointRoundingRule::up)});
}

TEST_F(PriceFormatStyle, OnlyFreeTrialsHaveAnOfferLineAndPaymentModesHaveNames) {
  const auto offer = [](PaymentMode mode, Period period) {
    return Offer{std::nullopt, Offer::OfferType::introductory, Decimal(0), Locale("en_US"), "$0.00", period, mode};
  };
  // The unit word handed to the free-trial sentence; none: the empty text.
  const std::pair<Offer, Word> cases[] = {
      {offer(PaymentMode::payAsYouGo, Period::day(3)), nullptr},
      {offer(PaymentMode::payUpFront, Period::day(3)), nullptr},
      {offer(PaymentMode::freeTrial, Period::day(3)), W::Day::plural},
      {offer(PaymentMode::freeTrial, Period::day(7)), W::Day::plural2},
      {offer(PaymentMode::freeTrial, Period::week(1)), W::week},
  };
  for (const auto& [o, word] : cases) {
    const std::string expected = word ? OfferWords::freeTrial(o.period.value, word()) : "";
    EXPECT_EQ(o.formatted(), expected) << o.period.analyticsValue();
    EXPECT_EQ(o.formatted(Offer::FormatStyle()), expected);
  }
  namespace Mode = OfferWords::PaymentMode;
  for (const auto& [mode, name] : {std::pair{PaymentMode::payAsYouGo, &Mode::payAsYouGo},
                                   std::pair{PaymentMode::payUpFront, &Mode::payUpFront},
                                   std::pair{PaymentMode::freeTrial, &Mode::freeTrial}}) {
    EXPECT_EQ(formatted(mode), name());
    EXPECT_EQ(formatted(mode, Offer::PaymentModeFormatStyle()), name());
  }
}

// The value is written exactly as `json` and read back from it.
template <class T>
void expectSerialForm(const T& value, const std::string& json) {
  EXPECT_EQ(encodeToJsonText(value), json);
  EXPECT_EQ(decodeFromJsonText<T>(json), value) << json;
}

TEST(FormatStyleCoding, WritesEveryFieldInDeclarationOrderAndReadsItBack) {
  const Price price = Product::FormatStyle::price();
  expectSerialForm(price, R"({"roundingRule":"down","separator":"/","subscriptionPeriodStyle":"automatic",)"
                          R"("subscriptionPeriodUnitStyle":{"complete":{}}})");
  expectSerialForm(Product::FormatStyle::price(Period::year(1))
                       .separator(Price::Separator::omitted)
                       .roundingRule(FloatingPointRoundingRule::toNearestOrEven)
                       .subscriptionPeriodStyle(Price::SubscriptionPeriodStyle::omitted),
                   R"({"roundingRule":"toNearestOrEven","separator":"","subscriptionPeriod":{"unit":3,"value":1},)"
                   R"("subscriptionPeriodStyle":"omitted","subscriptionPeriodUnitStyle":{"complete":{}}})");
  expectSerialForm(Style(UnitStyle::recurrent, {Unit::day, Unit::month}, {Unit::year, Unit::week},
                               ValueDisplayStrategy::always),
                   R"({"unitStyle":{"recurrent":{}},"unitsCollapsed":[0,2],"unitsExpanded":[3,1],)"
                   R"("valueDisplayStrategy":{"always":{}}})");
  expectSerialForm(Style(), R"({"unitStyle":{"complete":{}},"unitsCollapsed":[],"unitsExpanded":[],)"
                                  R"("valueDisplayStrategy":{"automatic":{}}})");
  using enum GrammaticalNumber;
  for (const auto& [number, name] : {std::pair{singular, "singular"}, {plural, "plural"}, {pluralTwo, "pluralTwo"}}) {
    expectSerialForm(UnitFormatStyle(UnitStyle::shortened, number),
                     R"({"style":{"shortened":{}},"number":{")" + std::string(name) + R"(":{}}})");
  }
  expectSerialForm(OfferStyle(), "{}");
  expectSerialForm(PaymentModeStyle(), "{}");
}

TEST(FormatStyleCoding, MalformedFormsFailWithTheStandardErrors) {
  constexpr const char* invalidKeys = "Invalid number of keys found, expected one.";
  const auto unitStyle = [](std::string style) { return R"({"style":)" + style + R"(,"number":{"singular":{}}})"; };
  const auto price = [](std::string keys) { return "{" + keys + R"(,"subscriptionPeriodUnitStyle":{"complete":{}}})"; };
  const auto decodeUnit = [](std::string_view json) { (void)decodeFromJsonText<UnitFormatStyle>(json); };
  const auto decodePeriod = [](std::string_view json) { (void)decodeFromJsonText<Style>(json); };
  const auto decodePrice = [](std::string_view json) { (void)decodeFromJsonText<Price>(json); };
  // The description is checked by its end.
  const struct { std::string json; void (*decode)(std::string_view); Kind kind; const char *path, *description; }
      cases[] = {
      {unitStyle(R"({"complete":{},"shortened":{}})"), decodeUnit, Kind::typeMismatch, "style", invalidKeys},
      {unitStyle("{}"), decodeUnit, Kind::typeMismatch, "style", invalidKeys},
      {unitStyle(R"({"Complete":{}})"), decodeUnit, Kind::typeMismatch, "style", invalidKeys},
      {unitStyle(R"({"complete":1})"), decodeUnit, Kind::typeMismatch, "style.complete", "but found a number instead."},
      {R"({"unitStyle":{"complete":{}},"unitsCollapsed":[],"valueDisplayStrategy":{"always":{}}})", decodePeriod,
       Kind::keyNotFound, "", R"(("unitsExpanded").)"},
      {price(R"("roundingRule":"down","separator":" / ","subscriptionPeriodStyle":"automatic")"), decodePrice,
       Kind::dataCorrupted, "separator", "Cannot initialize Separator from invalid String value  / "},
      {price(R"("roundingRule":"down","separator":"/","subscriptionPeriodStyle":"Automatic")"), decodePrice,
       Kind::dataCorrupted, "subscriptionPeriodStyle", "invalid String value Automatic"},
      {price(R"("roundingRule":"nearest","separator":"/","subscriptionPeriodStyle":"omitted")"), decodePrice,
       Kind::dataCorrupted, "roundingRule",
       "Cannot initialize FloatingPointRoundingRule from invalid String value nearest"},
  };
  for (const auto& c : cases) {
    try {
      c.decode(c.json);
      ADD_FAILURE() << "decoded: " << c.json;
    } catch (const foundation::DecodingError& error) {
      EXPECT_EQ(error.kind(), c.kind) << c.json << "\n" << error.what();
      EXPECT_EQ(error.codingPathText(), c.path) << c.json;
      EXPECT_TRUE(error.debugDescription().ends_with(c.description)) << c.json << "\n" << error.debugDescription();
    }
  }
}

TEST(FormatStyleCoding, LenientReadings) {
  // Unknown keys beside the one case key, and in style objects, are ignored.
  EXPECT_EQ(decodeFromJsonText<UnitFormatStyle>(
                R"({"style":{"recurrent":{"x":1},"bogus":{}},"number":{"plural":{}},"future":true})"),
            UnitFormatStyle(UnitStyle::recurrent, GrammaticalNumber::plural));
  EXPECT_EQ(decodeFromJsonText<Price>(R"({"roundingRule":"down","separator":"/","subscriptionPeriod":null,)"
                                      R"("subscriptionPeriodStyle":"automatic",)"
                                      R"("subscriptionPeriodUnitStyle":{"complete":{}}})"),
            Product::FormatStyle::price());
  // The offer styles read from anything at all.
  for (const char* json : {"null", "3", R"("text")", "[1,2]", R"({"a":1})"}) {
    EXPECT_EQ(decodeFromJsonText<OfferStyle>(json), OfferStyle()) << json;
    EXPECT_EQ(decodeFromJsonText<PaymentModeStyle>(json), PaymentModeStyle()) << json;
  }
}

}  // namespace
}  // namespace velquist::storekit
