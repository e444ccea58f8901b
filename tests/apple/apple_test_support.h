// What the adapter's tests share: a fixture that installs the adapter over a fresh store
// framework double, builders of framework records, and an observer of the library's
// payment queue that records every report.
#pragma once

// Library headers first: Objective-C defines `nil` as a macro, which the library uses as a name.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "common/deadline.h"
#include "storekit/transaction_scenarios.h"
#include "velquist/apple/apple_store.h"
#include "velquist/platform/sk_payment_queue.h"
#include "velquist/platform/sk_product.h"

#import "StoreKitDouble.h"

// GNUstep's count of live objects by class; its header declares these only in debug builds.
extern "C" BOOL GSDebugAllocationActive(BOOL active);
extern "C" int GSDebugAllocationCount(Class cls);

/// Objective-C objects compared with `isEqual:`.
#define EXPECT_NSEQ(actual, expected) \
  EXPECT_TRUE([(actual) isEqual:(expected)]) << [[(actual) description] UTF8String]

namespace velquist::testing {

inline NSString* ns(const std::string& text) { return [NSString stringWithUTF8String:text.c_str()]; }

inline NSDecimalNumber* nsDecimal(const std::string& text) {
  return [NSDecimalNumber decimalNumberWithString:ns(text) locale:nil];
}

inline NSError* nsError(NSString* domain, NSInteger code, NSString* message) {
  return [NSError errorWithDomain:domain code:code userInfo:@{NSLocalizedDescriptionKey: message}];
}

/// Live objects of a class, as GNUstep counts them (counting starts with the program).
inline int liveObjects(const char* className) {
  Class cls = objc_lookUpClass(className);
  return cls ? GSDebugAllocationCount(cls) : 0;
}

inline SKProductSubscriptionPeriod* objcPeriod(const platform::SKProductSubscriptionPeriod& period) {
  return [SKProductSubscriptionPeriod recordWithValues:@{@"numberOfUnits": @(period.numberOfUnits),
                                                         @"unit": @(static_cast<NSUInteger>(period.unit))}];
}

inline SKProductDiscount* objcDiscount(const platform::SKProductDiscount& discount) {
  NSMutableDictionary* values = [NSMutableDictionary dictionaryWithDictionary:@{
    @"price": nsDecimal(discount.price.description()),
    @"priceLocale": [NSLocale localeWithLocaleIdentifier:ns(discount.priceLocale.identifier())],
    @"subscriptionPeriod": objcPeriod(discount.subscriptionPeriod),
    @"numberOfPeriods": @(discount.numberOfPeriods),
    @"paymentMode": @(static_cast<NSUInteger>(discount.paymentMode)),
    @"type": @(static_cast<NSUInteger>(discount.type))}];
  if (discount.identifier) [values setObject:ns(*discount.identifier) forKey:@"identifier"];
  return [SKProductDiscount recordWithValues:values];
}

/// The framework's record of a library product (its price through the decimal's text).
inline SKProduct* objcProduct(const platform::SKProduct& product) {
  NSMutableDictionary* values = [NSMutableDictionary dictionaryWithDictionary:@{
    @"productIdentifier": ns(product.productIdentifier), @"localizedTitle": ns(product.localizedTitle),
    @"localizedDescription": ns(product.localizedDescription), @"price": nsDecimal(product.price.description()),
    @"priceLocale": [NSLocale localeWithLocaleIdentifier:ns(product.priceLocale.identifier())]}];
  if (product.subscriptionPeriod) [values setObject:objcPeriod(*product.subscriptionPeriod) forKey:@"subscriptionPeriod"];
  if (product.subscriptionGroupIdentifier) [values setObject:ns(*product.subscriptionGroupIdentifier) forKey:@"subscriptionGroupIdentifier"];
  if (product.introductoryPrice) [values setObject:objcDiscount(*product.introductoryPrice) forKey:@"introductoryPrice"];
  NSMutableArray* discounts = [NSMutableArray array];
  for (const auto& discount : product.discounts) [discounts addObject:objcDiscount(discount)];
  [values setObject:discounts forKey:@"discounts"];
  return [SKProduct recordWithValues:values];
}

inline SKMutablePayment* objcPayment(const std::string& productIdentifier) {
  SKMutablePayment* payment = [[[SKMutablePayment alloc] init] autorelease];
  payment.productIdentifier = ns(productIdentifier);
  return payment;
}

/// A framework transaction moved to `state`.
inline SKPaymentTransaction* objcTransaction(SKPayment* payment, ::SKPaymentTransactionState state, NSString* identifier,
                                             SKPaymentTransaction* original = nil) {
  SKPaymentTransaction* transaction = [SKStoreDouble transactionWithPayment:payment original:original];
  [SKStoreDouble move:transaction to:state identifier:identifier date:nil error:nil];
  return transaction;
}

/// Everything the library's payment queue reports, kept for the test.
struct RecordingQueueObserver final : platform::SKPaymentTransactionObserver {
  using Transactions = platform::SKPaymentQueue::Transactions;
  void updatedTransactions(platform::SKPaymentQueue&, const Transactions& transactions) override {
    updated.put(transactions);
  }
  void removedTransactions(platform::SKPaymentQueue&, const Transactions& transactions) override {
    removed.put(transactions);
  }
  void restoreCompletedTransactionsFinished(platform::SKPaymentQueue&) override { restores.put("finished"); }
  void restoreCompletedTransactionsFailed(platform::SKPaymentQueue&, const platform::SKError& error) override {
    restores.put(std::to_string(static_cast<int>(error.code())) + " " + error.what());
  }
  void didRevokeEntitlementsForProductIdentifiers(platform::SKPaymentQueue&,
                                                  const std::vector<std::string>& identifiers) override {
    revoked.put(identifiers);
  }
  void storefrontDidChange(platform::SKPaymentQueue& queue) override { storefronts.put(queue.storefront()); }

  Inbox<Transactions> updated, removed;
  Inbox<std::string> restores;
  Inbox<std::vector<std::string>> revoked;
  Inbox<std::optional<platform::SKStorefront>> storefronts;
};

/// Every test starts with a fresh double and the adapter installed, the library's queue
/// observed by `observer`; at its end no object of the adapter is left alive.
class AppleStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    [SKStoreDouble reset];
    NSMutableArray* products = [NSMutableArray array];
    for (const auto& product : catalogue()) [products addObject:objcProduct(product)];
    [SKStoreDouble setCatalogue:products];
    apple::installAppleStore();
    platform::SKPaymentQueue::defaultQueue().addTransactionObserver(observer);
  }

  void TearDown() override {
    platform::SKPaymentQueue::defaultQueue().removeTransactionObserver(observer);
    apple::uninstallAppleStore();
    [SKStoreDouble reset];
    [pool_ drain];
    waitUntilNoAdapterObjects();
  }

  /// The adapter's delegates and observer are released once nothing needs them; the
  /// report queues may still hold the last references for a moment.
  static void waitUntilNoAdapterObjects() {
    pollUntil([] {
      return liveObjects("VSKProductsRequestDelegate") + liveObjects("VSKPaymentQueueObserver") +
                 liveObjects("VSKPaymentQueueDelegate") == 0;
    }, "the adapter's Objective-C objects to be released");
  }

  std::shared_ptr<RecordingQueueObserver> observer = std::make_shared<RecordingQueueObserver>();

 private:
  NSAutoreleasePool* pool_ = nil;
};

}  // namespace velquist::testing
