#include "velquist/storekit/formatting/format_style_coding.h"

#include <gtest/gtest.h>

namespace velquist::storekit {
namespace {

using formatting::GrammaticalNumber;
using formatting::UnitStyle;
using formatting::ValueDisplayStrategy;
using foundation::decodeFromJsonText;
using foundation::DecodingError;
using foundation::encodeToJsonText;
using foundation::FloatingPointRoundingRule;
using Kind = DecodingError::Kind;
using Period = Product::SubscriptionPeriod;
using Unit = Period::Unit;
using PeriodStyle = Period::FormatStyle;
using UnitFormatStyle = Period::UnitFormatStyle;
using Price = Product::FormatStyle::Price;
using OfferStyle = Product::SubscriptionOffer::FormatStyle;
using PaymentModeStyle = Product::SubscriptionOffer::PaymentModeFormatStyle;

TEST(FormatStyleCoding, WritesFieldsInDeclarationOrder) {
  EXPECT_EQ(encodeToJsonText(Product::FormatStyle::price()),
            R"({"roundingRule":"down","separator":"/","subscriptionPeriodStyle":"automatic",)"
            R"("subscriptionPeriodUnitStyle":{"complete":{}}})");
  EXPECT_EQ(encodeToJsonText(Product::FormatStyle::price(Period::year(1))
                                 .separator(Price::Separator::omitted)
                                 .roundingRule(FloatingPointRoundingRule::toNearestOrEven)),
            R"({"roundingRule":"toNearestOrEven","separator":"","subscriptionPeriod":{"unit":3,"value":1},)"
            R"("subscriptionPeriodStyle":"automatic","subscriptionPeriodUnitStyle":{"complete":{}}})");
  EXPECT_EQ(
      encodeToJsonText(PeriodStyle(UnitStyle::recurrent, {Unit::day, Unit::month}, {}, ValueDisplayStrategy::always)),
      R"({"unitStyle":{"recurrent":{}},"unitsCollapsed":[0,2],"unitsExpanded":[],)"
      R"("valueDisplayStrategy":{"always":{}}})");
  EXPECT_EQ(encodeToJsonText(UnitFormatStyle(UnitStyle::shortened, GrammaticalNumber::pluralTwo)),
            R"({"style":{"shortened":{}},"number":{"pluralTwo":{}}})");
  EXPECT_EQ(encodeToJsonText(OfferStyle()), "{}");
  EXPECT_EQ(encodeToJsonText(PaymentModeStyle()), "{}");
}

template <class T>
void expectRoundTrip(const T& value) {
  const std::string json = encodeToJsonText(value);
  EXPECT_EQ(decodeFromJsonText<T>(json), value) << json;
}

TEST(FormatStyleCoding, EveryStyleRoundTrips) {
  const Price price = Product::FormatStyle::price();
  for (const Price& style :
       {price, Product::FormatStyle::price(Period::week(2)), price.separator(Price::Separator::omitted),
        price.subscriptionPeriodStyle(Price::SubscriptionPeriodStyle::omitted),
        price.subscriptionPeriodUnitStyle(UnitStyle::shortened),
        price.subscriptionPeriodUnitStyle(UnitStyle::recurrent),
        price.roundingRule(FloatingPointRoundingRule::toNearestOrAwayFromZero),
        price.roundingRule(FloatingPointRoundingRule::towardZero)}) {
    expectRoundTrip(style);
  }
  expectRoundTrip(PeriodStyle(UnitStyle::shortened, {Unit::year, Unit::week}, {Unit::week}));
  expectRoundTrip(PeriodStyle().valueDisplayStrategy(ValueDisplayStrategy::always));
  for (auto number : {GrammaticalNumber::singular, GrammaticalNumber::plural, GrammaticalNumber::pluralTwo}) {
    expectRoundTrip(UnitFormatStyle(UnitStyle::complete, number));
  }
  expectRoundTrip(OfferStyle());
  expectRoundTrip(PaymentModeStyle());
}

template <class T>
void decode(std::string_view json) {
  (void)decodeFromJsonText<T>(json);
}

TEST(FormatStyleCoding, MalformedFormsFailWithTheStandardErrors) {
  constexpr const char* invalidKeys = "Invalid number of keys found, expected one.";
  const auto unitStyle = [](const std::string& style) {
    return R"({"style":)" + style + R"(,"number":{"singular":{}}})";
  };
  const auto price = [](const std::string& roundingRule, const std::string& separator, const std::string& periodStyle) {
    return R"({"roundingRule":)" + roundingRule + R"(,"separator":)" + separator + R"(,"subscriptionPeriodStyle":)" +
           periodStyle + R"(,"subscriptionPeriodUnitStyle":{"complete":{}}})";
  };
  const struct {
    std::string json;
    void (*decode)(std::string_view);
    Kind kind;
    const char* path;
    const char* description;  // the end of the description
  } cases[] = {
      {unitStyle(R"({"complete":{},"shortened":{}})"), decode<UnitFormatStyle>, Kind::typeMismatch, "style",
       invalidKeys},
      {unitStyle("{}"), decode<UnitFormatStyle>, Kind::typeMismatch, "style", invalidKeys},
      {unitStyle(R"({"Complete":{}})"), decode<UnitFormatStyle>, Kind::typeMismatch, "style", invalidKeys},
      {unitStyle(R"({"complete":1})"), decode<UnitFormatStyle>, Kind::typeMismatch, "style.complete",
       "but found a number instead."},
      {unitStyle(R"({"complete":null})"), decode<UnitFormatStyle>, Kind::valueNotFound, "style.complete",
       "found null value instead."},
      {unitStyle(R"("complete")"), decode<UnitFormatStyle>, Kind::typeMismatch, "style", "but found a string instead."},
      {R"({"style":{"complete":{}},"number":{"plural":{},"pluralTwo":{}}})", decode<UnitFormatStyle>,
       Kind::typeMismatch, "number", invalidKeys},
      {R"({"style":{"complete":{}}})", decode<UnitFormatStyle>, Kind::keyNotFound, "", R"(("number").)"},
      {R"({"unitStyle":{"complete":{}},"unitsCollapsed":[],"valueDisplayStrategy":{"always":{}}})", decode<PeriodStyle>,
       Kind::keyNotFound, "", R"(("unitsExpanded").)"},
      {R"({"unitStyle":{"complete":{}},"unitsCollapsed":[4],"unitsExpanded":[],"valueDisplayStrategy":{"always":{}}})",
       decode<PeriodStyle>, Kind::dataCorrupted, "unitsCollapsed[0]", "invalid Int value 4"},
      {R"({"unitStyle":{"complete":{}},"unitsCollapsed":[],"unitsExpanded":[],)"
       R"("valueDisplayStrategy":{"always":{},"automatic":{}}})",
       decode<PeriodStyle>, Kind::typeMismatch, "valueDisplayStrategy", invalidKeys},
      {price(R"("down")", R"(" / ")", R"("automatic")"), decode<Price>, Kind::dataCorrupted, "separator",
       "Cannot initialize Separator from invalid String value  / "},
      {price(R"("down")", "null", R"("automatic")"), decode<Price>, Kind::valueNotFound, "separator",
       "but found null instead."},
      {price(R"("down")", R"("/")", R"("Automatic")"), decode<Price>, Kind::dataCorrupted, "subscriptionPeriodStyle",
       "invalid String value Automatic"},
      {price(R"("nearest")", R"("/")", R"("omitted")"), decode<Price>, Kind::dataCorrupted, "roundingRule",
       "Cannot initialize FloatingPointRoundingRule from invalid String value nearest"},
      {price("2", R"("/")", R"("omitted")"), decode<Price>, Kind::typeMismatch, "roundingRule",
       "but found a number instead."},
      {R"({"separator":"/","subscriptionPeriodStyle":"automatic","subscriptionPeriodUnitStyle":{"complete":{}}})",
       decode<Price>, Kind::keyNotFound, "", R"(("roundingRule").)"},
  };
  for (const auto& c : cases) {
    try {
      c.decode(c.json);
      ADD_FAILURE() << "decoded: " << c.json;
    } catch (const DecodingError& error) {
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
  // A null or missing period is absent; an empty separator is `omitted`.
  const Price omitted = Product::FormatStyle::price().separator(Price::Separator::omitted);
  EXPECT_EQ(decodeFromJsonText<Price>(
                R"({"roundingRule":"down","separator":"","subscriptionPeriod":null,)"
                R"("subscriptionPeriodStyle":"automatic","subscriptionPeriodUnitStyle":{"complete":{}}})"),
            omitted);
  // The offer styles read from anything at all.
  for (const char* json : {"{}", "null", "3", R"("text")", "[1,2]", R"({"a":1})"}) {
    EXPECT_EQ(decodeFromJsonText<OfferStyle>(json), OfferStyle()) << json;
    EXPECT_EQ(decodeFromJsonText<PaymentModeStyle>(json), PaymentModeStyle()) << json;
  }
}

}  // namespace
}  // namespace velquist::storekit
