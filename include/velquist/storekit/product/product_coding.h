#pragma once

// The keyed serial form of the nested product records. Records are objects keyed by their
// field names in declaration order, with absent optionals omitted; enumerations are their
// bare raw values. `Product` itself has no serial form.
//
//     encodeToJsonText(Product::SubscriptionPeriod::week(1))  ->  {"unit":1,"value":1}
//
// Decoding reports the first fault as a DecodingError: a missing required key
// (keyNotFound), a value of the wrong kind (typeMismatch), null for a required value
// (valueNotFound), or a raw value that names no case (dataCorrupted). Unknown keys are
// ignored.

#include "velquist/export.h"
#include "velquist/foundation/coding.h"
#include "velquist/storekit/product/product.h"

VELQUIST_API_BEGIN
namespace velquist::foundation {

template <>
struct Coding<storekit::Product::SubscriptionInfo> {
  static void encode(Encoder& encoder, const storekit::Product::SubscriptionInfo& info);
  static storekit::Product::SubscriptionInfo decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::Product::SubscriptionOffer> {
  static void encode(Encoder& encoder, const storekit::Product::SubscriptionOffer& offer);
  static storekit::Product::SubscriptionOffer decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::Product::SubscriptionPeriod> {
  static void encode(Encoder& encoder, const storekit::Product::SubscriptionPeriod& period);
  static storekit::Product::SubscriptionPeriod decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::Product::SubscriptionOffer::OfferType> {
  static void encode(Encoder& encoder, storekit::Product::SubscriptionOffer::OfferType type);
  static storekit::Product::SubscriptionOffer::OfferType decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::Product::SubscriptionOffer::PaymentMode> {
  static void encode(Encoder& encoder, storekit::Product::SubscriptionOffer::PaymentMode mode);
  static storekit::Product::SubscriptionOffer::PaymentMode decode(const Decoder& decoder);
};

template <>
struct Coding<storekit::Product::SubscriptionPeriod::Unit> {
  static void encode(Encoder& encoder, storekit::Product::SubscriptionPeriod::Unit unit);
  static storekit::Product::SubscriptionPeriod::Unit decode(const Decoder& decoder);
};

}  // namespace velquist::foundation
VELQUIST_API_END
