#pragma once

#include "velquist/export.h"
#include <optional>

#include "velquist/adapty/adapty_product.h"
#include "velquist/storekit/product/product.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

// The library's product records built from the subscription SDK's records. The SDK's own
// values give identifier, texts, price, group, period and introductory discount; the store
// product it wraps gives the price locale and the promotional offers.
//
// Unlike the store conversions (product_from_store.h), which fall back to fixed cases, a
// unit or payment mode the SDK reports as unknown (or any value it does not define) gives
// nothing, and the absence spreads upward: no period, then no introductory offer or no
// subscription part. The product itself is always made.
//
//     makeProduct(weekly)  // Product{.id = "pro.weekly", .displayPrice = "$4.99", subscription ...}
//     makeSubscriptionPeriod({.unit = AdaptyPeriodUnit::unknown, .numberOfUnits = 1})  ->  nullopt
//
// Display prices are `displayPrice(price, priceLocale, down)`, or the empty text when the
// formatter gives none. Pure functions of their arguments apart from the shared price
// formatter (see shared_formatters.h); they may run on any thread.

/// The product: the SDK's identifier, texts and price, the store product's price locale,
/// and the subscription part of `makeSubscriptionInfo`.
Product makeProduct(const adapty::AdaptyProduct& product);

/// The subscription part; nothing when the product has no subscription group, no period, or
/// a period whose unit maps to nothing. The introductory offer comes from the SDK's
/// discount (and may itself be absent); the promotional offers are the store product's
/// discounts converted as the store conversions do, in the store's order. The product
/// counts as eligible for its introductory offer.
std::optional<Product::SubscriptionInfo> makeSubscriptionInfo(const adapty::AdaptyProduct& product);

/// The introductory offer of `product` described by `discount`: always of type
/// `introductory`, priced in the locale of the store product `product` wraps. Nothing when
/// the discount's payment mode or its period's unit maps to nothing.
std::optional<Product::SubscriptionOffer> makeIntroductoryOffer(const adapty::AdaptyProductDiscount& discount,
                                                                const adapty::AdaptyProduct& product);

/// The period with the unit mapped and the count unchanged; nothing for an unknown unit.
std::optional<Product::SubscriptionPeriod> makeSubscriptionPeriod(const adapty::AdaptyProductSubscriptionPeriod& period);

/// The payment mode of the same name; nothing for `unknown` and any value the SDK does not
/// define.
std::optional<Product::SubscriptionOffer::PaymentMode> makePaymentMode(adapty::AdaptyProductDiscount::PaymentMode mode);
/// The unit of the same name; nothing for `unknown` and any value the SDK does not define.
std::optional<Product::SubscriptionPeriod::Unit> makeUnit(adapty::AdaptyPeriodUnit unit);

}  // namespace velquist::storekit
VELQUIST_API_END
