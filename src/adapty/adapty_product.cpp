#include "velquist/adapty/adapty_product.h"

#include <utility>

namespace velquist::adapty {
namespace {

AdaptyProductSubscriptionPeriod makeAdaptyPeriod(const platform::SKProductSubscriptionPeriod& period) {
  return {.unit = makeAdaptyPeriodUnit(period.unit), .numberOfUnits = period.numberOfUnits};
}

}  // namespace

AdaptyPaywallProduct::Fields AdaptyPaywallProduct::fieldsFrom(platform::SKProduct storeProduct) {
  Fields fields;
  fields.productIdentifier = storeProduct.productIdentifier;
  fields.localizedTitle = storeProduct.localizedTitle;
  fields.localizedDescription = storeProduct.localizedDescription;
  fields.price = storeProduct.price;
  fields.subscriptionGroupIdentifier = storeProduct.subscriptionGroupIdentifier;
  if (storeProduct.subscriptionPeriod) fields.subscriptionPeriod = makeAdaptyPeriod(*storeProduct.subscriptionPeriod);
  if (const auto& discount = storeProduct.introductoryPrice) {
    fields.introductoryDiscount = AdaptyProductDiscount{.identifier = discount->identifier,
                                                        .price = discount->price,
                                                        .subscriptionPeriod = makeAdaptyPeriod(discount->subscriptionPeriod),
                                                        .paymentMode = makeAdaptyPaymentMode(discount->paymentMode)};
  }
  fields.skProduct = std::move(storeProduct);
  return fields;
}

AdaptyPeriodUnit makeAdaptyPeriodUnit(platform::SKProductPeriodUnit unit) {
  switch (unit) {
    case platform::SKProductPeriodUnit::day:
      return AdaptyPeriodUnit::day;
    case platform::SKProductPeriodUnit::week:
      return AdaptyPeriodUnit::week;
    case platform::SKProductPeriodUnit::month:
      return AdaptyPeriodUnit::month;
    case platform::SKProductPeriodUnit::year:
      return AdaptyPeriodUnit::year;
  }
  return AdaptyPeriodUnit::unknown;
}

AdaptyProductDiscount::PaymentMode makeAdaptyPaymentMode(platform::SKProductDiscountPaymentMode mode) {
  using Mode = AdaptyProductDiscount::PaymentMode;
  switch (mode) {
    case platform::SKProductDiscountPaymentMode::payAsYouGo:
      return Mode::payAsYouGo;
    case platform::SKProductDiscountPaymentMode::payUpFront:
      return Mode::payUpFront;
    case platform::SKProductDiscountPaymentMode::freeTrial:
      return Mode::freeTrial;
  }
  return Mode::unknown;
}

}  // namespace velquist::adapty
