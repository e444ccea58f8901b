#include "velquist/storekit/product/product_coding.h"

namespace velquist::foundation {

using storekit::Product;
using Info = Product::SubscriptionInfo;
using Offer = Product::SubscriptionOffer;
using Period = Product::SubscriptionPeriod;

void Coding<Info>::encode(Encoder& encoder, const Info& info) {
  KeyedEncoder keyed = encoder.keyed();
  keyed.encodeIfPresent("introductoryOffer", info.introductoryOffer);
  keyed.encode("subscriptionGroupID", info.subscriptionGroupID);
  keyed.encode("subscriptionPeriod", info.subscriptionPeriod);
  keyed.encode("promotionalOffers", info.promotionalOffers);
  keyed.encode("isEligibleForIntroOffer", info.isEligibleForIntroOffer);
}

Info Coding<Info>::decode(const Decoder& decoder) {
  // Fields are read in declaration order so that the first fault reported is the first in
  // the record.
  const KeyedDecoder keyed = decoder.keyed();
  Info info;
  info.introductoryOffer = keyed.decodeIfPresent<Offer>("introductoryOffer");
  info.subscriptionGroupID = keyed.decode<std::string>("subscriptionGroupID");
  info.subscriptionPeriod = keyed.decode<Period>("subscriptionPeriod");
  info.promotionalOffers = keyed.decode<std::vector<Offer>>("promotionalOffers");
  info.isEligibleForIntroOffer = keyed.decode<bool>("isEligibleForIntroOffer");
  return info;
}

void Coding<Offer>::encode(Encoder& encoder, const Offer& offer) {
  KeyedEncoder keyed = encoder.keyed();
  keyed.encodeIfPresent("id", offer.id);
  keyed.encode("type", offer.type);
  keyed.encode("price", offer.price);
  keyed.encode("priceLocale", offer.priceLocale);
  keyed.encode("displayPrice", offer.displayPrice);
  keyed.encode("period", offer.period);
  keyed.encode("paymentMode", offer.paymentMode);
}

Offer Coding<Offer>::decode(const Decoder& decoder) {
  const KeyedDecoder keyed = decoder.keyed();
  Offer offer;
  offer.id = keyed.decodeIfPresent<Offer::ID>("id");
  offer.type = keyed.decode<Offer::OfferType>("type");
  offer.price = keyed.decode<Decimal>("price");
  offer.priceLocale = keyed.decode<Locale>("priceLocale");
  offer.displayPrice = keyed.decode<std::string>("displayPrice");
  offer.period = keyed.decode<Period>("period");
  offer.paymentMode = keyed.decode<Offer::PaymentMode>("paymentMode");
  return offer;
}

void Coding<Period>::encode(Encoder& encoder, const Period& period) {
  KeyedEncoder keyed = encoder.keyed();
  keyed.encode("unit", period.unit);
  keyed.encode("value", period.value);
}

Period Coding<Period>::decode(const Decoder& decoder) {
  const KeyedDecoder keyed = decoder.keyed();
  const auto unit = keyed.decode<Period::Unit>("unit");
  return Period(unit, keyed.decode<std::int64_t>("value"));
}

// Enumerations are written as their raw values and read back by exact lookup.

void Coding<Offer::OfferType>::encode(Encoder& encoder, Offer::OfferType type) {
  encoder.encode(std::string(rawValue(type)));
}

Offer::OfferType Coding<Offer::OfferType>::decode(const Decoder& decoder) {
  return decodeRawValue<std::string>(decoder, "OfferType",
                                     [](const std::string& raw) { return support::fromRawValue<Offer::OfferType>(raw); });
}

void Coding<Offer::PaymentMode>::encode(Encoder& encoder, Offer::PaymentMode mode) {
  encoder.encode(std::string(rawValue(mode)));
}

Offer::PaymentMode Coding<Offer::PaymentMode>::decode(const Decoder& decoder) {
  return decodeRawValue<std::string>(
      decoder, "PaymentMode", [](const std::string& raw) { return support::fromRawValue<Offer::PaymentMode>(raw); });
}

void Coding<Period::Unit>::encode(Encoder& encoder, Period::Unit unit) { encoder.encode(rawValue(unit)); }

Period::Unit Coding<Period::Unit>::decode(const Decoder& decoder) {
  return decodeRawValue<std::int64_t>(decoder, "Unit",
                                      [](std::int64_t raw) { return support::fromRawValue<Period::Unit>(raw); });
}

}  // namespace velquist::foundation
