#pragma once

#include "velquist/export.h"
#include <optional>
#include <string>
#include <string_view>

#include "velquist/platform/sk_product.h"
#include "velquist/storekit/product/product.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

// The library's product records built from the store's records. Each conversion is a free
// function named `make` and the record it makes; every one succeeds (store values the
// library does not know fall back to fixed cases), and only `makeSubscriptionInfo` may give
// nothing. Display prices are made by `displayPrice(price, priceLocale, down)`, and are the
// empty text when the formatter gives none.
//
//     Product product = makeProduct(skProduct);
//     Product::SubscriptionPeriod period = makeSubscriptionPeriod({.numberOfUnits = 7, .unit = day});  // 7 days
//
// Pure functions of their arguments apart from the shared price formatter (see
// shared_formatters.h); they may run on any thread.

/// The product with its subscription part (`makeSubscriptionInfo`) and no promotional
/// offer chosen.
Product makeProduct(const platform::SKProduct& product);

/// The display price a product or offer made from store records carries: the price in its
/// locale, rounded down; empty when the locale cannot format it.
///
///     recordDisplayPrice(4.999, en_US@currency=USD)  ->  "$4.99"
std::string recordDisplayPrice(const Decimal& price, const Locale& priceLocale);

/// The subscription part of an auto-renewing product; nothing when the product has no
/// subscription group (a non-renewing product) or no subscription period. The
/// introductory offer keeps the type the store gave it, promotional offers keep the
/// store's order, and the product counts as eligible for its introductory offer.
std::optional<Product::SubscriptionInfo> makeSubscriptionInfo(const platform::SKProduct& product);

/// The offer; the store's count of periods is not carried over.
Product::SubscriptionOffer makeSubscriptionOffer(const platform::SKProductDiscount& discount);

/// The period, unit mapped and count unchanged.
Product::SubscriptionPeriod makeSubscriptionPeriod(const platform::SKProductSubscriptionPeriod& period);

/// `introductory` for the store's introductory type; every other value is `promotional`.
Product::SubscriptionOffer::OfferType makeOfferType(platform::SKProductDiscountType type);
/// The payment mode of the same name; a value the store did not define is `freeTrial`.
Product::SubscriptionOffer::PaymentMode makePaymentMode(platform::SKProductDiscountPaymentMode mode);
/// The unit of the same name; a value the store did not define is `year`.
Product::SubscriptionPeriod::Unit makeUnit(platform::SKProductPeriodUnit unit);

/// The store product as text: identifier, the store's text of its period when it has one,
/// and the price as plain decimal text without currency.
///
///     <SKProduct productIdentifier: com.example.pro, subscriptionPeriod: <SKProductSubscriptionPeriod numberOfUnits: 1, unit: month>, price: 4.99>
///     <SKProduct productIdentifier: com.example.lifetime, price: 29.99>
std::string description(const platform::SKProduct& product);

/// The store unit's name: "day", "week", "month", "year", and "unknown" for any other value.
std::string_view description(platform::SKProductPeriodUnit unit);

}  // namespace velquist::storekit
VELQUIST_API_END
