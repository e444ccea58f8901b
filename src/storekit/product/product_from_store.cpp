#include "velquist/storekit/product/product_from_store.h"

#include <utility>

namespace velquist::storekit {
namespace {

using Offer = Product::SubscriptionOffer;
using Period = Product::SubscriptionPeriod;

}  // namespace

std::string recordDisplayPrice(const Decimal& price, const Locale& priceLocale) {
  return displayPrice(price, priceLocale, FloatingPointRoundingRule::down).value_or("");
}

Product makeProduct(const platform::SKProduct& product) {
  return Product(Product::ID(product.productIdentifier), product.localizedTitle, product.localizedDescription,
                 product.price, product.priceLocale, recordDisplayPrice(product.price, product.priceLocale),
                 makeSubscriptionInfo(product));
}

std::optional<Product::SubscriptionInfo> makeSubscriptionInfo(const platform::SKProduct& product) {
  if (!product.subscriptionGroupIdentifier || !product.subscriptionPeriod) return std::nullopt;
  Product::SubscriptionInfo info;
  if (product.introductoryPrice) info.introductoryOffer = makeSubscriptionOffer(*product.introductoryPrice);
  info.subscriptionGroupID = *product.subscriptionGroupIdentifier;
  info.subscriptionPeriod = makeSubscriptionPeriod(*product.subscriptionPeriod);
  for (const auto& discount : product.discounts) info.promotionalOffers.push_back(makeSubscriptionOffer(discount));
  info.isEligibleForIntroOffer = true;  // the store knows better; whoever asks it may change this
  return info;
}

Offer makeSubscriptionOffer(const platform::SKProductDiscount& discount) {
  Offer offer;
  if (discount.identifier) offer.id = Offer::ID(*discount.identifier);
  offer.type = makeOfferType(discount.type);
  offer.price = discount.price;
  offer.priceLocale = discount.priceLocale;
  offer.displayPrice = recordDisplayPrice(offer.price, offer.priceLocale);
  offer.period = makeSubscriptionPeriod(discount.subscriptionPeriod);
  offer.paymentMode = makePaymentMode(discount.paymentMode);
  return offer;
}

Period makeSubscriptionPeriod(const platform::SKProductSubscriptionPeriod& period) {
  return Period(makeUnit(period.unit), period.numberOfUnits);
}

Offer::OfferType makeOfferType(platform::SKProductDiscountType type) {
  return type == platform::SKProductDiscountType::introductory ? Offer::OfferType::introductory
                                                                 : Offer::OfferType::promotional;
}

Offer::PaymentMode makePaymentMode(platform::SKProductDiscountPaymentMode mode) {
  switch (mode) {
    case platform::SKProductDiscountPaymentMode::payAsYouGo:
      return Offer::PaymentMode::payAsYouGo;
    case platform::SKProductDiscountPaymentMode::payUpFront:
      return Offer::PaymentMode::payUpFront;
    default:
      return Offer::PaymentMode::freeTrial;  // the store's free trial, and anything newer
  }
}

Period::Unit makeUnit(platform::SKProductPeriodUnit unit) {
  switch (unit) {
    case platform::SKProductPeriodUnit::day:
      return Period::Unit::day;
    case platform::SKProductPeriodUnit::week:
      return Period::Unit::week;
    case platform::SKProductPeriodUnit::month:
      return Period::Unit::month;
    default:
      return Period::Unit::year;  // the store's year, and anything newer
  }
}

std::string description(const platform::SKProduct& product) {
  std::string text = "<SKProduct productIdentifier: " + product.productIdentifier + ",";
  if (product.subscriptionPeriod) text += " subscriptionPeriod: " + product.subscriptionPeriod->description() + ",";
  return text + " price: " + product.price.description() + ">";
}

std::string_view description(platform::SKProductPeriodUnit unit) {
  switch (unit) {
    case platform::SKProductPeriodUnit::day:
      return "day";
    case platform::SKProductPeriodUnit::week:
      return "week";
    case platform::SKProductPeriodUnit::month:
      return "month";
    case platform::SKProductPeriodUnit::year:
      return "year";
  }
  return "unknown";
}

}  // namespace velquist::storekit
