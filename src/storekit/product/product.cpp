#include "velquist/storekit/product/product.h"

#include "velquist/support/fatal.h"
#include "velquist/support/hasher.h"

namespace velquist::storekit {

using support::DumpValue;
using support::dumpValue;
using Period = Product::SubscriptionPeriod;
using Unit = Period::Unit;
using OfferType = Product::SubscriptionOffer::OfferType;
using PaymentMode = Product::SubscriptionOffer::PaymentMode;

std::string_view rawValue(OfferType type) {
  switch (type) {
    case OfferType::introductory: return "introductory";
    case OfferType::promotional: return "promotional";
  }
  return "";
}

std::string_view rawValue(PaymentMode mode) {
  switch (mode) {
    case PaymentMode::payAsYouGo: return "pay_as_you_go";
    case PaymentMode::payUpFront: return "pay_up_front";
    case PaymentMode::freeTrial: return "free_trial";
  }
  return "";
}

std::int64_t rawValue(Unit unit) { return static_cast<std::int64_t>(unit); }

std::string_view description(Unit unit) {
  switch (unit) {
    case Unit::day: return "day";
    case Unit::week: return "week";
    case Unit::month: return "month";
    case Unit::year: return "year";
  }
  return "";
}

std::int64_t Period::numberOfDays() const {
  std::int64_t daysPerUnit = 1;
  switch (unit) {
    case Unit::day: return value;
    case Unit::week: daysPerUnit = 7; break;
    case Unit::month: daysPerUnit = 28; break;
    case Unit::year: daysPerUnit = 336; break;
  }
  std::int64_t days = 0;
  if (__builtin_mul_overflow(value, daysPerUnit, &days)) {
    support::fatalError("arithmetic overflow: numberOfDays of " + std::to_string(value) + " " +
                        std::string(storekit::description(unit)) + " units does not fit in a signed 64-bit integer");
  }
  return days;
}

std::string Period::analyticsValue() const {
  // One week alone is reported as seven days; two weeks stay weeks.
  const Period reported = (unit == Unit::week && value == 1) ? day(7) : *this;
  return std::to_string(reported.value) + "_" + std::string(storekit::description(reported.unit));
}

std::optional<Period> Product::subscriptionPeriod() const {
  if (!subscription) return std::nullopt;
  return subscription->subscriptionPeriod;
}

std::optional<Product::SubscriptionOffer> Product::introductoryPrice() const {
  if (!subscription) return std::nullopt;
  return subscription->introductoryOffer;
}

DumpValue customDumpValue(const Product& product) {
  return DumpValue::structure("Product", {
                                             {"id", dumpValue(product.id)},
                                             {"displayName", dumpValue(product.displayName)},
                                             {"description", dumpValue(product.description)},
                                             {"price", dumpValue(product.price)},
                                             {"priceLocale", dumpValue(product.priceLocale)},
                                             {"displayPrice", dumpValue(product.displayPrice)},
                                             {"subscription", dumpValue(product.subscription)},
                                             {"promotionalOfferID", dumpValue(product.promotionalOfferID)},
                                         });
}

DumpValue customDumpValue(const Product::SubscriptionInfo& info) {
  return DumpValue::structure("Product.SubscriptionInfo",
                              {
                                  {"introductoryOffer", dumpValue(info.introductoryOffer)},
                                  {"subscriptionGroupID", dumpValue(info.subscriptionGroupID)},
                                  {"subscriptionPeriod", dumpValue(info.subscriptionPeriod)},
                                  {"promotionalOffers", dumpValue(info.promotionalOffers)},
                                  {"isEligibleForIntroOffer", dumpValue(info.isEligibleForIntroOffer)},
                              });
}

DumpValue customDumpValue(const Product::SubscriptionOffer& offer) {
  return DumpValue::structure("Product.SubscriptionOffer", {
                                                               {"id", dumpValue(offer.id)},
                                                               {"type", dumpValue(offer.type)},
                                                               {"price", dumpValue(offer.price)},
                                                               {"priceLocale", dumpValue(offer.priceLocale)},
                                                               {"displayPrice", dumpValue(offer.displayPrice)},
                                                               {"period", dumpValue(offer.period)},
                                                               {"paymentMode", dumpValue(offer.paymentMode)},
                                                           });
}

DumpValue customDumpValue(const Period& period) {
  return DumpValue::structure("Product.SubscriptionPeriod",
                              {{"unit", dumpValue(period.unit)}, {"value", dumpValue(period.value)}});
}

DumpValue customDumpValue(OfferType type) {
  return DumpValue::enumeration("Product.SubscriptionOffer.OfferType",
                                type == OfferType::introductory ? "introductory" : "promotional");
}

DumpValue customDumpValue(PaymentMode mode) {
  // The case names, not the raw values.
  const char* name = mode == PaymentMode::payAsYouGo   ? "payAsYouGo"
                     : mode == PaymentMode::payUpFront ? "payUpFront"
                                                       : "freeTrial";
  return DumpValue::enumeration("Product.SubscriptionOffer.PaymentMode", name);
}

DumpValue customDumpValue(Unit unit) {
  return DumpValue::enumeration("Product.SubscriptionPeriod.Unit", std::string(description(unit)));
}

}  // namespace velquist::storekit

using velquist::support::Hasher;

std::size_t std::hash<velquist::storekit::Product::SubscriptionPeriod>::operator()(
    const velquist::storekit::Product::SubscriptionPeriod& period) const {
  return Hasher().combine(period.unit).combine(period.value).finalize();
}

std::size_t std::hash<velquist::storekit::Product::SubscriptionOffer>::operator()(
    const velquist::storekit::Product::SubscriptionOffer& offer) const {
  return Hasher()
      .combine(offer.id)
      .combine(offer.type)
      .combine(offer.price)
      .combine(offer.priceLocale)
      .combine(offer.displayPrice)
      .combine(offer.period)
      .combine(offer.paymentMode)
      .finalize();
}

std::size_t std::hash<velquist::storekit::Product::SubscriptionInfo>::operator()(
    const velquist::storekit::Product::SubscriptionInfo& info) const {
  return Hasher()
      .combine(info.introductoryOffer)
      .combine(info.subscriptionGroupID)
      .combine(info.subscriptionPeriod)
      .combine(info.promotionalOffers)
      .combine(info.isEligibleForIntroOffer)
      .finalize();
}

std::size_t std::hash<velquist::storekit::Product>::operator()(const velquist::storekit::Product& product) const {
  return Hasher()
      .combine(product.id)
      .combine(product.displayName)
      .combine(product.description)
      .combine(product.price)
      .combine(product.priceLocale)
      .combine(product.displayPrice)
      .combine(product.subscription)
      .combine(product.promotionalOfferID)
      .finalize();
}
