#import "store_records.h"

#include <chrono>
#include <utility>
#include <vector>

#include "velquist/foundation/locale.h"

namespace velquist::apple::detail {

std::string utf8(NSString* text) {
  const char* bytes = [text UTF8String];
  return bytes ? std::string(bytes) : std::string();
}

NSString* nsString(const std::string& text) {
  NSString* result = [[[NSString alloc] initWithBytes:text.data() length:text.size()
                                             encoding:NSUTF8StringEncoding] autorelease];
  return result ? result : @"";  // invalid UTF-8 reaches the store as an empty text
}

NSString* nsString(const std::optional<std::string>& text) { return text ? nsString(*text) : nil; }

foundation::Decimal decimal(NSDecimalNumber* number) {
  if (!number) return foundation::Decimal::nan();
  // The text without a locale is locale-independent: "." before the fraction, "E" before
  // an exponent.
  const auto value = foundation::Decimal::fromString(utf8([number descriptionWithLocale:nil]));
  return value ? *value : foundation::Decimal::nan();
}

namespace {

foundation::Locale locale(NSLocale* locale) {
  return locale ? foundation::Locale(utf8([locale localeIdentifier])) : foundation::Locale();
}

std::optional<std::string> optionalText(NSString* text) {
  if (!text) return std::nullopt;
  return utf8(text);
}

std::optional<platform::SKProductSubscriptionPeriod> optionalPeriod(SKProductSubscriptionPeriod* value) {
  if (!value) return std::nullopt;
  return period(value);
}

std::optional<platform::SKProductDiscount> optionalDiscount(SKProductDiscount* value) {
  if (!value) return std::nullopt;
  return discount(value);
}

std::vector<std::string> texts(NSArray* array) {
  std::vector<std::string> result;
  for (id element in array) {
    if ([element isKindOfClass:[NSString class]]) result.push_back(utf8(element));
  }
  return result;
}

}  // namespace

platform::SKProductSubscriptionPeriod period(SKProductSubscriptionPeriod* period) {
  if (!period) return {};
  return {.numberOfUnits = static_cast<std::int64_t>(period.numberOfUnits),
          .unit = static_cast<platform::SKProductPeriodUnit>(period.unit)};
}

platform::SKProductDiscount discount(SKProductDiscount* discount) {
  if (!discount) return {.price = foundation::Decimal::nan()};
  return {.price = decimal(discount.price),
          .priceLocale = locale(discount.priceLocale),
          .identifier = optionalText(discount.identifier),
          .subscriptionPeriod = period(discount.subscriptionPeriod),
          .numberOfPeriods = static_cast<std::int64_t>(discount.numberOfPeriods),
          .paymentMode = static_cast<platform::SKProductDiscountPaymentMode>(discount.paymentMode),
          .type = static_cast<platform::SKProductDiscountType>(discount.type)};
}

platform::SKProduct product(SKProduct* product) {
  if (!product) return {.price = foundation::Decimal::nan()};
  platform::SKProduct result{.productIdentifier = utf8(product.productIdentifier),
                             .localizedTitle = utf8(product.localizedTitle),
                             .localizedDescription = utf8(product.localizedDescription),
                             .price = decimal(product.price),
                             .priceLocale = locale(product.priceLocale),
                             .subscriptionPeriod = optionalPeriod(product.subscriptionPeriod),
                             .subscriptionGroupIdentifier = optionalText(product.subscriptionGroupIdentifier),
                             .introductoryPrice = optionalDiscount(product.introductoryPrice)};
  for (SKProductDiscount* offer in product.discounts) result.discounts.push_back(discount(offer));
  return result;
}

platform::SKProductsResponse productsResponse(SKProductsResponse* response) {
  platform::SKProductsResponse result;
  for (SKProduct* item in response.products) result.products.push_back(product(item));
  result.invalidProductIdentifiers = texts(response.invalidProductIdentifiers);
  return result;
}

platform::SKError error(NSError* error) {
  using Code = platform::SKError::Code;
  if (!error) return platform::SKError(Code::unknown, "the store gave no reason");
  const std::string message = utf8([error localizedDescription]);
  if ([[error domain] isEqualToString:SKErrorDomain]) {
    return platform::SKError(static_cast<Code>([error code]), message);
  }
  return platform::SKError(Code::unknown,
                           message + " (" + utf8([error domain]) + " " + std::to_string([error code]) + ")");
}

std::optional<platform::SKStorefront> storefront(SKStorefront* storefront) {
  if (!storefront) return std::nullopt;
  return platform::SKStorefront{.countryCode = utf8(storefront.countryCode), .identifier = utf8(storefront.identifier)};
}

platform::SKPayment payment(SKPayment* payment) {
  platform::SKPayment result{.productIdentifier = utf8(payment.productIdentifier),
                             .quantity = static_cast<std::int64_t>(payment.quantity),
                             .applicationUsername = optionalText(payment.applicationUsername),
                             .simulatesAskToBuyInSandbox = payment.simulatesAskToBuyInSandbox ? true : false};
  if (SKPaymentDiscount* offer = payment.paymentDiscount) {
    result.paymentDiscount = platform::SKPaymentDiscount{.identifier = utf8(offer.identifier),
                                                         .keyIdentifier = utf8(offer.keyIdentifier),
                                                         .nonce = utf8([offer.nonce UUIDString]),
                                                         .signature = utf8(offer.signature),
                                                         .timestamp = [offer.timestamp longLongValue]};
  }
  return result;
}

platform::SKPaymentTransactionProgress progress(SKPaymentTransaction* transaction) {
  platform::SKPaymentTransactionProgress result{
      .state = static_cast<platform::SKPaymentTransactionState>(transaction.transactionState),
      .transactionIdentifier = optionalText(transaction.transactionIdentifier)};
  if (NSDate* date = transaction.transactionDate) {
    // To the nearest microsecond: the framework's dates are seconds in a double, counted
    // from 2001, so their last bits are noise.
    const std::chrono::duration<double> sinceEpoch([date timeIntervalSince1970]);
    result.transactionDate = platform::SKPaymentTransactionProgress::Date(
        std::chrono::round<std::chrono::microseconds>(sinceEpoch));
  }
  if (NSError* failure = transaction.error) result.error = error(failure);
  return result;
}

std::variant<SKMutablePayment*, platform::SKError> makePayment(const platform::SKPayment& payment) {
  SKMutablePayment* result = [[[SKMutablePayment alloc] init] autorelease];
  result.productIdentifier = nsString(payment.productIdentifier);
  result.quantity = static_cast<NSInteger>(payment.quantity);
  result.applicationUsername = nsString(payment.applicationUsername);
  result.simulatesAskToBuyInSandbox = payment.simulatesAskToBuyInSandbox ? YES : NO;
  if (const auto& offer = payment.paymentDiscount) {
    NSUUID* nonce = [[[NSUUID alloc] initWithUUIDString:nsString(offer->nonce)] autorelease];
    if (!nonce) {
      return platform::SKError(platform::SKError::Code::paymentInvalid,
                               "the offer's nonce is not a UUID: \"" + offer->nonce + "\"");
    }
    result.paymentDiscount = [[[SKPaymentDiscount alloc] initWithIdentifier:nsString(offer->identifier)
                                                              keyIdentifier:nsString(offer->keyIdentifier)
                                                                      nonce:nonce
                                                                  signature:nsString(offer->signature)
                                                                  timestamp:@(offer->timestamp)] autorelease];
  }
  return result;
}

}  // namespace velquist::apple::detail
