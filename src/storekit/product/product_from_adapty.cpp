#include "velquist/storekit/product/product_from_adapty.h"

#include <utility>

#include "velquist/storekit/product/product_from_store.h"

namespace velquist::storekit {
namespace {

using Offer = Product::SubscriptionOffer;
using Period = Product::SubscriptionPeriod;

}  // namespace

Product makeProduct(const adapty::AdaptyProduct& product) {
  const Decimal price = product.price();
  const Locale& priceLocale = product.skProduct().priceLocale;
  return Product(Product::ID(product.productIdentifier()), product.localizedTitle(), product.localizedDescription(),
                 price, priceLocale, recordDisplayPrice(price, priceLocale), makeSubscriptionInfo(product));
}

std::optional<Product::SubscriptionInfo> makeSubscriptionInfo(const adapty::AdaptyProduct& product) {
  std::optional<std::string> group = product.subscriptionGroupIdentifier();
  if (!group) return std::nullopt;
  const auto adaptyPeriod = product.subscriptionPeriod();
  if (!adaptyPeriod) return std::nullopt;
  std::optional<Period> period = makeSubscriptionPeriod(*adaptyPeriod);
  if (!period) return std::nullopt;

  Product::SubscriptionInfo info;
  if (const auto discount = product.introductoryDiscount()) info.introductoryOffer = makeIntroductoryOffer(*discount, product);
  // Promotional offers are the store's, with the store conversion's fallbacks.
  for (const auto& discount : product.skProduct().discounts) {
    info.promotionalOffers.push_back(makeSubscriptionOffer(discount));
  }
  info.subscriptionGroupID = std::move(*group);
  info.subscriptionPeriod = *period;
  info.isEligibleForIntroOffer = true;  // no eligibility decision here; the field is mutable
  return info;
}

std::optional<Offer> makeIntroductoryOffer(const adapty::AdaptyProductDiscount& discount,
                                           const adapty::AdaptyProduct& product) {
  const auto paymentMode = makePaymentMode(discount.paymentMode);
  if (!paymentMode) return std::nullopt;
  const auto period = makeSubscriptionPeriod(discount.subscriptionPeriod);
  if (!period) return std::nullopt;

  Offer offer;
  if (discount.identifier) offer.id = Offer::ID(*discount.identifier);
  offer.type = Offer::OfferType::introductory;  // whatever the discount is, it is offered as the introductory one
  offer.price = discount.price;
  offer.priceLocale = product.skProduct().priceLocale;  // the discount has no locale of its own
  offer.displayPrice = recordDisplayPrice(offer.price, offer.priceLocale);
  offer.period = *period;
  offer.paymentMode = *paymentMode;
  return offer;
}

std::optional<Period> makeSubscriptionPeriod(const adapty::AdaptyProductSubscriptionPeriod& period) {
  const auto unit = makeUnit(period.unit);
  if (!unit) return std::nullopt;
  return Period(*unit, period.numberOfUnits);
}

std::optional<Offer::PaymentMode> makePaymentMode(adapty::AdaptyProductDiscount::PaymentMode mode) {
  using Mode = adapty::AdaptyProductDiscount::PaymentMode;
  switch (mode) {
    case Mode::payAsYouGo:
      return Offer::PaymentMode::payAsYouGo;
    case Mode::payUpFront:
      return Offer::PaymentMode::payUpFront;
    case Mode::freeTrial:
      return Offer::PaymentMode::freeTrial;
    case Mode::unknown:
      break;
  }
  return std::nullopt;
}

std::optional<Period::Unit> makeUnit(adapty::AdaptyPeriodUnit unit) {
  using Unit = adapty::AdaptyPeriodUnit;
  switch (unit) {
    case Unit::day:
      return Period::Unit::day;
    case Unit::week:
      return Period::Unit::week;
    case Unit::month:
      return Period::Unit::month;
    case Unit::year:
      return Period::Unit::year;
    case Unit::unknown:
      break;
  }
  return std::nullopt;
}

}  // namespace velquist::storekit
