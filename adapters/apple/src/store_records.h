// Conversions between the store framework's objects and the library's store values.
// Objective-C++ only. Every function reads its argument once, on the calling thread, and
// accepts nil where the framework may give nil.
#pragma once

#import <StoreKit/StoreKit.h>

#include <optional>
#include <string>
#include <variant>

#include "velquist/foundation/decimal.h"
#include "velquist/platform/sk_error.h"
#include "velquist/platform/sk_payment.h"
#include "velquist/platform/sk_product.h"
#include "velquist/platform/sk_products_request.h"
#include "velquist/platform/sk_storefront.h"

namespace velquist::apple::detail {

/// UTF-8 text of `text`; empty for nil.
std::string utf8(NSString* text);
/// nil for an absent text.
NSString* nsString(const std::optional<std::string>& text);
NSString* nsString(const std::string& text);

/// The decimal number's own text read exactly (never through a double): "4.99",
/// "1.2345678901234567890123456789012345678E164". NaN for nil, NaN or text that is not a
/// number.
foundation::Decimal decimal(NSDecimalNumber* number);

platform::SKProductSubscriptionPeriod period(SKProductSubscriptionPeriod* period);
platform::SKProductDiscount discount(SKProductDiscount* discount);
platform::SKProduct product(SKProduct* product);
platform::SKProductsResponse productsResponse(SKProductsResponse* response);

/// Errors of the store's domain keep their code; any other domain's error becomes code
/// `unknown` with the domain and code added to its message: "The network connection was
/// lost. (NSURLErrorDomain -1005)". A missing error reads "the store gave no reason".
platform::SKError error(NSError* error);

std::optional<platform::SKStorefront> storefront(SKStorefront* storefront);

platform::SKPayment payment(SKPayment* payment);
/// What the transaction says now: state, identifier, date and error.
platform::SKPaymentTransactionProgress progress(SKPaymentTransaction* transaction);

/// The framework's payment for the library's, autoreleased; or why it cannot be made (an
/// offer whose nonce is not a UUID).
std::variant<SKMutablePayment*, platform::SKError> makePayment(const platform::SKPayment& payment);

}  // namespace velquist::apple::detail
