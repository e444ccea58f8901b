#include "velquist/storekit/formatting/format_style_coding.h"

#include <array>
#include <optional>
#include <string_view>
#include <utility>

namespace velquist::foundation {

using storekit::Product;
using storekit::formatting::GrammaticalNumber;
using storekit::formatting::UnitStyle;
using storekit::formatting::ValueDisplayStrategy;
using Period = Product::SubscriptionPeriod;
using Price = Product::FormatStyle::Price;
using OfferStyle = Product::SubscriptionOffer::FormatStyle;
using PaymentModeStyle = Product::SubscriptionOffer::PaymentModeFormatStyle;
using PluralStyle = Product::SubscriptionPeriod::PluralFormatStyle;

namespace {

// Enumerations without raw values are objects with one key, the case name, holding an
// empty object: {"shortened":{}}.
constexpr std::array<std::pair<std::string_view, UnitStyle>, 3> unitStyleNames{{
    {"complete", UnitStyle::complete},
    {"shortened", UnitStyle::shortened},
    {"recurrent", UnitStyle::recurrent},
}};
constexpr std::array<std::pair<std::string_view, ValueDisplayStrategy>, 2> valueDisplayStrategyNames{{
    {"automatic", ValueDisplayStrategy::automatic},
    {"always", ValueDisplayStrategy::always},
}};
constexpr std::array<std::pair<std::string_view, PluralStyle::Width>, 2> widthNames{{
    {"complete", PluralStyle::Width::complete},
    {"shortened", PluralStyle::Width::shortened},
}};
constexpr std::array<std::pair<std::string_view, GrammaticalNumber>, 3> grammaticalNumberNames{{
    {"singular", GrammaticalNumber::singular},
    {"plural", GrammaticalNumber::plural},
    {"pluralTwo", GrammaticalNumber::pluralTwo},
}};

template <class E, std::size_t N>
void encodeCaseObject(Encoder& encoder, E value, const std::array<std::pair<std::string_view, E>, N>& names) {
  KeyedEncoder keyed = encoder.keyed();
  for (const auto& [name, candidate] : names) {
    if (candidate == value) {
      keyed.encode(name, JsonValue(JsonValue::Object{}));
      return;
    }
  }
  throw encoder.invalidValue("Not a case of the enumeration.");
}

template <class E, std::size_t N>
E decodeCaseObject(const Decoder& decoder, const std::array<std::pair<std::string_view, E>, N>& names) {
  const KeyedDecoder keyed = decoder.keyed();
  // Keys that name no case are not seen at all.
  const std::pair<std::string_view, E>* found = nullptr;
  std::size_t caseKeys = 0;
  for (const auto& entry : names) {
    if (keyed.contains(entry.first)) {
      ++caseKeys;
      found = &entry;
    }
  }
  if (caseKeys != 1) {
    throw DecodingError(DecodingError::Kind::typeMismatch, decoder.codingPath(),
                        "Invalid number of keys found, expected one.");
  }
  (void)keyed.nested(found->first).keyed();  // the case's payload must be an object; its contents are ignored
  return found->second;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Options

void Coding<FloatingPointRoundingRule>::encode(Encoder& encoder, FloatingPointRoundingRule rule) {
  encoder.encode(std::string(caseName(rule)));
}

FloatingPointRoundingRule Coding<FloatingPointRoundingRule>::decode(const Decoder& decoder) {
  return decodeRawValue<std::string>(decoder, "FloatingPointRoundingRule",
                                     [](const std::string& name) { return roundingRuleNamed(name); });
}

void Coding<UnitStyle>::encode(Encoder& encoder, UnitStyle style) { encodeCaseObject(encoder, style, unitStyleNames); }

UnitStyle Coding<UnitStyle>::decode(const Decoder& decoder) { return decodeCaseObject(decoder, unitStyleNames); }

void Coding<ValueDisplayStrategy>::encode(Encoder& encoder, ValueDisplayStrategy strategy) {
  encodeCaseObject(encoder, strategy, valueDisplayStrategyNames);
}

ValueDisplayStrategy Coding<ValueDisplayStrategy>::decode(const Decoder& decoder) {
  return decodeCaseObject(decoder, valueDisplayStrategyNames);
}

void Coding<GrammaticalNumber>::encode(Encoder& encoder, GrammaticalNumber number) {
  encodeCaseObject(encoder, number, grammaticalNumberNames);
}

GrammaticalNumber Coding<GrammaticalNumber>::decode(const Decoder& decoder) {
  return decodeCaseObject(decoder, grammaticalNumberNames);
}

void Coding<Price::Separator>::encode(Encoder& encoder, Price::Separator separator) {
  encoder.encode(std::string(rawValue(separator)));
}

Price::Separator Coding<Price::Separator>::decode(const Decoder& decoder) {
  return decodeRawValue<std::string>(
      decoder, "Separator", [](const std::string& raw) { return support::fromRawValue<Price::Separator>(raw); });
}

void Coding<Price::SubscriptionPeriodStyle>::encode(Encoder& encoder, Price::SubscriptionPeriodStyle style) {
  encoder.encode(std::string(rawValue(style)));
}

Price::SubscriptionPeriodStyle Coding<Price::SubscriptionPeriodStyle>::decode(const Decoder& decoder) {
  return decodeRawValue<std::string>(decoder, "SubscriptionPeriodStyle", [](const std::string& raw) {
    return support::fromRawValue<Price::SubscriptionPeriodStyle>(raw);
  });
}

// ---------------------------------------------------------------------------------------
// Styles. Fields are read in declaration order, so the first fault reported is the first
// in the record.

void Coding<Price>::encode(Encoder& encoder, const Price& style) {
  KeyedEncoder keyed = encoder.keyed();
  keyed.encode("roundingRule", style.roundingRule());
  keyed.encode("separator", style.separator());
  keyed.encodeIfPresent("subscriptionPeriod", style.subscriptionPeriod());
  keyed.encode("subscriptionPeriodStyle", style.subscriptionPeriodStyle());
  keyed.encode("subscriptionPeriodUnitStyle", style.subscriptionPeriodUnitStyle());
}

Price Coding<Price>::decode(const Decoder& decoder) {
  const KeyedDecoder keyed = decoder.keyed();
  const auto roundingRule = keyed.decode<FloatingPointRoundingRule>("roundingRule");
  const auto separator = keyed.decode<Price::Separator>("separator");
  const auto subscriptionPeriod = keyed.decodeIfPresent<Period>("subscriptionPeriod");
  const auto subscriptionPeriodStyle = keyed.decode<Price::SubscriptionPeriodStyle>("subscriptionPeriodStyle");
  const auto subscriptionPeriodUnitStyle = keyed.decode<UnitStyle>("subscriptionPeriodUnitStyle");
  return Price(roundingRule, separator, subscriptionPeriod, subscriptionPeriodStyle, subscriptionPeriodUnitStyle);
}

void Coding<Period::FormatStyle>::encode(Encoder& encoder, const Period::FormatStyle& style) {
  KeyedEncoder keyed = encoder.keyed();
  keyed.encode("unitStyle", style.unitStyle());
  keyed.encode("unitsCollapsed", style.unitsCollapsed());
  keyed.encode("unitsExpanded", style.unitsExpanded());
  keyed.encode("valueDisplayStrategy", style.valueDisplayStrategy());
}

Period::FormatStyle Coding<Period::FormatStyle>::decode(const Decoder& decoder) {
  const KeyedDecoder keyed = decoder.keyed();
  const auto unitStyle = keyed.decode<UnitStyle>("unitStyle");
  auto unitsCollapsed = keyed.decode<std::vector<Period::Unit>>("unitsCollapsed");
  auto unitsExpanded = keyed.decode<std::vector<Period::Unit>>("unitsExpanded");
  const auto valueDisplayStrategy = keyed.decode<ValueDisplayStrategy>("valueDisplayStrategy");
  return Period::FormatStyle(unitStyle, std::move(unitsCollapsed), std::move(unitsExpanded), valueDisplayStrategy);
}

void Coding<Period::UnitFormatStyle>::encode(Encoder& encoder, const Period::UnitFormatStyle& style) {
  KeyedEncoder keyed = encoder.keyed();
  keyed.encode("style", style.style());
  keyed.encode("number", style.number());
}

Period::UnitFormatStyle Coding<Period::UnitFormatStyle>::decode(const Decoder& decoder) {
  const KeyedDecoder keyed = decoder.keyed();
  const auto style = keyed.decode<UnitStyle>("style");
  return Period::UnitFormatStyle(style, keyed.decode<GrammaticalNumber>("number"));
}

void Coding<PluralStyle::Width>::encode(Encoder& encoder, PluralStyle::Width width) {
  encodeCaseObject(encoder, width, widthNames);
}

PluralStyle::Width Coding<PluralStyle::Width>::decode(const Decoder& decoder) {
  return decodeCaseObject(decoder, widthNames);
}

void Coding<PluralStyle>::encode(Encoder& encoder, const PluralStyle& style) {
  KeyedEncoder keyed = encoder.keyed();
  keyed.encode("width", style.width());
  keyed.encode("unitsCollapsed", style.unitsCollapsed());
  keyed.encode("unitsExpanded", style.unitsExpanded());
  keyed.encode("valueDisplayStrategy", style.valueDisplayStrategy());
}

PluralStyle Coding<PluralStyle>::decode(const Decoder& decoder) {
  const KeyedDecoder keyed = decoder.keyed();
  const auto width = keyed.decode<PluralStyle::Width>("width");
  auto unitsCollapsed = keyed.decode<std::vector<Period::Unit>>("unitsCollapsed");
  auto unitsExpanded = keyed.decode<std::vector<Period::Unit>>("unitsExpanded");
  const auto valueDisplayStrategy = keyed.decode<ValueDisplayStrategy>("valueDisplayStrategy");
  return PluralStyle(width, std::move(unitsCollapsed), std::move(unitsExpanded), valueDisplayStrategy);
}

// The offer styles have no fields: an empty object out, and nothing looked at on the way in.

void Coding<OfferStyle>::encode(Encoder& encoder, const OfferStyle&) { (void)encoder.keyed(); }

OfferStyle Coding<OfferStyle>::decode(const Decoder&) { return OfferStyle(); }

void Coding<PaymentModeStyle>::encode(Encoder& encoder, const PaymentModeStyle&) { (void)encoder.keyed(); }

PaymentModeStyle Coding<PaymentModeStyle>::decode(const Decoder&) { return PaymentModeStyle(); }

}  // namespace velquist::foundation
