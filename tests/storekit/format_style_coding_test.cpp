#include "velquist/storekit/formatting/format_style_coding.h"

#include <gtest/gtest.h>

namespace velquist::storekit {
namespace {

using formatting::GrammaticalNumber;
using formatting::UnitStyle;
using formatting::ValueDisplayStrategy;
using foundation::decodeFromJsonText;
using foundation::encodeToJsonText;
using foundation::FloatingPointRoundingRule;
using Kind = foundation::DecodingError::Kind;
using Period = Product::SubscriptionPeriod;
using Unit = Period::Unit;
using PeriodStyle = Period::FormatStyle;
using UnitFormatStyle = Period::UnitFormatStyle;
using Price = Product::FormatStyle::Price;
using OfferStyle = Product::SubscriptionOffer::FormatStyle;
using PaymentModeStyle = Product::SubscriptionOffer::PaymentModeFormatStyle;

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
  expectSerialForm(PeriodStyle(UnitStyle::recurrent, {Unit::day, Unit::month}, {Unit::year, Unit::week},
                               ValueDisplayStrategy::always),
                   R"({"unitStyle":{"recurrent":{}},"unitsCollapsed":[0,2],"unitsExpanded":[3,1],)"
                   R"("valueDisplayStrategy":{"always":{}}})");
  expectSerialForm(PeriodStyle(), R"({"unitStyle":{"complete":{}},"unitsCollapsed":[],"unitsExpanded":[],)"
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
  const auto decodePeriod = [](std::string_view json) { (void)decodeFromJsonText<PeriodStyle>(json); };
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
      {price(R"("separator":"/","subscriptionPeriodStyle":"automatic")"), decodePrice, Kind::keyNotFound, "",
       R"(("roundingRule").)"},
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
