#pragma once

// The keyed serial form of the format styles and their options, so that a style can be
// stored or sent (for instance in a paywall's remote configuration) and rebuilt equal.
//
// - Styles are objects keyed by their field names in declaration order; `Price` omits
//   "subscriptionPeriod" when it is absent. Unknown keys are ignored on reading.
// - `UnitStyle`, `ValueDisplayStrategy`, `GrammaticalNumber` and `PluralFormatStyle::Width`
//   ("complete", "shortened") are objects with exactly one
//   key, the case name, holding an empty object. Reading one takes only the keys that name
//   a case; unless there is exactly one, it fails with typeMismatch at the object's path,
//   "Invalid number of keys found, expected one.".
// - `Separator` and `SubscriptionPeriodStyle` are their text raw values; the rounding rule
//   is its case name as text. An unknown text is dataCorrupted.
// - The two offer styles have no fields: they write `{}` and read from any value at all
//   (null or a number included) without looking at it.
//
//     encodeToJsonText(Product::FormatStyle::price())
//       ->  {"roundingRule":"down","separator":"/","subscriptionPeriodStyle":"automatic",
//            "subscriptionPeriodUnitStyle":{"complete":{}}}
//     encodeToJsonText(Product::SubscriptionPeriod::PluralFormatStyle())
//       ->  {"width":{"complete":{}},"unitsCollapsed":[],"unitsExpanded":[],
//            "valueDisplayStrategy":{"automatic":{}}}
//
// Every other fault is the decoder's standard error: keyNotFound for a missing required
// key, typeMismatch or valueNotFound for a value of the wrong kind.

#include "velquist/export.h"
#include "velquist/foundation/coding.h"
#include "velquist/foundation/rounding_rule.h"
#include "velquist/storekit/formatting/offer_format_style.h"
#include "velquist/storekit/formatting/period_format_style.h"
#include "velquist/storekit/formatting/plural_period_format_style.h"
#include "velquist/storekit/formatting/price_format_style.h"
#include "velquist/storekit/formatting/style_options.h"
#include "velquist/storekit/product/product_coding.h"

VELQUIST_API_BEGIN
namespace velquist::foundation {

template <>
struct Coding<FloatingPointRoundingRule> {
  static void encode(Encoder& encoder, FloatingPointRoundingRule rule);
  static FloatingPointRoundingRule decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::formatting::UnitStyle> {
  static void encode(Encoder& encoder, storekit::formatting::UnitStyle style);
  static storekit::formatting::UnitStyle decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::formatting::ValueDisplayStrategy> {
  static void encode(Encoder& encoder, storekit::formatting::ValueDisplayStrategy strategy);
  static storekit::formatting::ValueDisplayStrategy decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::formatting::GrammaticalNumber> {
  static void encode(Encoder& encoder, storekit::formatting::GrammaticalNumber number);
  static storekit::formatting::GrammaticalNumber decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::Product::FormatStyle::Price::Separator> {
  static void encode(Encoder& encoder, storekit::Product::FormatStyle::Price::Separator separator);
  static storekit::Product::FormatStyle::Price::Separator decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::Product::FormatStyle::Price::SubscriptionPeriodStyle> {
  static void encode(Encoder& encoder, storekit::Product::FormatStyle::Price::SubscriptionPeriodStyle style);
  static storekit::Product::FormatStyle::Price::SubscriptionPeriodStyle decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::Product::FormatStyle::Price> {
  static void encode(Encoder& encoder, const storekit::Product::FormatStyle::Price& style);
  static storekit::Product::FormatStyle::Price decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::Product::SubscriptionPeriod::FormatStyle> {
  static void encode(Encoder& encoder, const storekit::Product::SubscriptionPeriod::FormatStyle& style);
  static storekit::Product::SubscriptionPeriod::FormatStyle decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::Product::SubscriptionPeriod::UnitFormatStyle> {
  static void encode(Encoder& encoder, const storekit::Product::SubscriptionPeriod::UnitFormatStyle& style);
  static storekit::Product::SubscriptionPeriod::UnitFormatStyle decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::Product::SubscriptionPeriod::PluralFormatStyle::Width> {
  static void encode(Encoder& encoder, storekit::Product::SubscriptionPeriod::PluralFormatStyle::Width width);
  static storekit::Product::SubscriptionPeriod::PluralFormatStyle::Width decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::Product::SubscriptionPeriod::PluralFormatStyle> {
  static void encode(Encoder& encoder, const storekit::Product::SubscriptionPeriod::PluralFormatStyle& style);
  static storekit::Product::SubscriptionPeriod::PluralFormatStyle decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::Product::SubscriptionOffer::FormatStyle> {
  static void encode(Encoder& encoder, const storekit::Product::SubscriptionOffer::FormatStyle& style);
  static storekit::Product::SubscriptionOffer::FormatStyle decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::Product::SubscriptionOffer::PaymentModeFormatStyle> {
  static void encode(Encoder& encoder, const storekit::Product::SubscriptionOffer::PaymentModeFormatStyle& style);
  static storekit::Product::SubscriptionOffer::PaymentModeFormatStyle decode(const Decoder& decoder);
};

}  // namespace velquist::foundation
VELQUIST_API_END
