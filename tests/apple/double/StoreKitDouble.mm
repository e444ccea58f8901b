// The store framework double: plain records, a products request answered from a scripted
// catalogue, and a payment queue that reports what the test tells it to.

#import "StoreKitDouble.h"

#include <atomic>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

NSString* const SKErrorDomain = @"SKErrorDomain";

namespace {

// One lock for all of the double's state, records included: the adapter reads records on
// the threads the framework reports on while tests move them along.
std::recursive_mutex& doubleMutex() {
  static std::recursive_mutex mutex;
  return mutex;
}
using Lock = std::lock_guard<std::recursive_mutex>;

struct DoubleState {
  NSMutableArray* catalogue = [[NSMutableArray alloc] init];
  NSError* productsFailure = nil;
  bool holding = false;
  NSMutableArray* held = [[NSMutableArray alloc] init];  // SKProductsRequest
  std::vector<std::thread> answering;
  std::atomic<NSUInteger> cancelledCount = 0, reviewRequests = 0;

  NSMutableArray* transactions = [[NSMutableArray alloc] init];  // on the queue, unfinished
  NSMutableArray* finished = [[NSMutableArray alloc] init];
  NSMutableArray* restores = [[NSMutableArray alloc] init];
  SKStorefront* storefront = nil;
  NSMutableArray* observers = [[NSMutableArray alloc] init];  // retained, unlike the framework
  id queueDelegate = nil;                                      // not retained, like the framework
  NSUInteger heldSheets = 0, shownSheets = 0, showPriceConsentCalls = 0;
  NSURL* receiptURL = nil;
};

DoubleState& state() {
  static DoubleState* shared = new DoubleState;
  return *shared;
}

// Stores `value` retained in `slot`, releasing what was there.
template <class T>
void replace(T*& slot, id value) {
  Lock lock(doubleMutex());
  [value retain];
  [slot release];
  slot = value;
}

NSArray* snapshot(NSArray* list) {
  Lock lock(doubleMutex());
  return [[list copy] autorelease];
}

// Calls `tell` with every observer that implements `selector`, outside the lock.
template <class Tell>
void tellObservers(SEL selector, Tell tell) {
  for (id observer in snapshot(state().observers)) {
    if ([observer respondsToSelector:selector]) tell(observer);
  }
}

// Tells the request's delegate (or the one given) the answer.
void answer(SKProductsRequest* request, id<SKProductsRequestDelegate> given = nil) {
  NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
  id<SKProductsRequestDelegate> delegate = nil;
  NSError* failure = nil;
  SKProductsResponse* response = nil;
  {
    Lock lock(doubleMutex());
    delegate = [(given ? given : (id)[request delegate]) retain];  // kept for the call, as the framework does
    failure = [[state().productsFailure retain] autorelease];
    NSMutableArray* products = [NSMutableArray array];
    NSMutableSet* unknown = [[request->_productIdentifiers mutableCopy] autorelease];
    for (SKProduct* product in state().catalogue) {
      if ([unknown containsObject:product.productIdentifier]) {
        [products addObject:product];
        [unknown removeObject:product.productIdentifier];
      }
    }
    response = [SKProductsResponse recordWithValues:@{@"products": products,
                                                      @"invalidProductIdentifiers": [unknown allObjects]}];
  }
  if (failure) {
    if ([delegate respondsToSelector:@selector(request:didFailWithError:)]) [delegate request:request didFailWithError:failure];
  } else {
    [delegate productsRequest:request didReceiveResponse:response];
    if ([delegate respondsToSelector:@selector(requestDidFinish:)]) [delegate requestDidFinish:request];
  }
  [delegate release];
  [pool drain];
}

}  // namespace

@implementation SKDoubleRecord
+ (instancetype)recordWithValues:(NSDictionary*)values {
  SKDoubleRecord* record = [[[self alloc] init] autorelease];
  [record->_values addEntriesFromDictionary:values];
  return record;
}
- (instancetype)init {
  if ((self = [super init])) _values = [[NSMutableDictionary alloc] init];
  return self;
}
- (void)dealloc {
  [_values release];
  [super dealloc];
}
- (id)recordValue:(NSString*)key {
  Lock lock(doubleMutex());
  return [[[_values objectForKey:key] retain] autorelease];
}
- (void)setRecordValue:(id)value forKey:(NSString*)key {
  Lock lock(doubleMutex());
  if (value) [_values setObject:value forKey:key]; else [_values removeObjectForKey:key];
}
@end

#define OBJECT_PROPERTY(type, name) \
  -(type)name { return [self recordValue:@ #name]; }
#define NUMBER_PROPERTY(type, name, getter) \
  -(type)name { return (type)[[self recordValue:@ #name] getter]; }

@implementation SKProductSubscriptionPeriod
NUMBER_PROPERTY(NSUInteger, numberOfUnits, unsignedIntegerValue)
NUMBER_PROPERTY(SKProductPeriodUnit, unit, unsignedIntegerValue)
@end

@implementation SKProductDiscount
OBJECT_PROPERTY(NSDecimalNumber*, price)
OBJECT_PROPERTY(NSLocale*, priceLocale)
OBJECT_PROPERTY(NSString*, identifier)
OBJECT_PROPERTY(SKProductSubscriptionPeriod*, subscriptionPeriod)
NUMBER_PROPERTY(NSUInteger, numberOfPeriods, unsignedIntegerValue)
NUMBER_PROPERTY(SKProductDiscountPaymentMode, paymentMode, unsignedIntegerValue)
NUMBER_PROPERTY(SKProductDiscountType, type, unsignedIntegerValue)
@end

@implementation SKProduct
OBJECT_PROPERTY(NSString*, localizedDescription)
OBJECT_PROPERTY(NSString*, localizedTitle)
OBJECT_PROPERTY(NSDecimalNumber*, price)
OBJECT_PROPERTY(NSLocale*, priceLocale)
OBJECT_PROPERTY(NSString*, productIdentifier)
OBJECT_PROPERTY(SKProductSubscriptionPeriod*, subscriptionPeriod)
OBJECT_PROPERTY(SKProductDiscount*, introductoryPrice)
OBJECT_PROPERTY(NSString*, subscriptionGroupIdentifier)
OBJECT_PROPERTY(NSArray*, discounts)
@end

@implementation SKProductsResponse
OBJECT_PROPERTY(NSArray*, products)
OBJECT_PROPERTY(NSArray*, invalidProductIdentifiers)
@end

@implementation SKRequest
- (id)delegate {
  Lock lock(doubleMutex());
  return [[_delegate retain] autorelease];
}
- (void)setDelegate:(id)delegate {
  Lock lock(doubleMutex());
  _delegate = delegate;
}
- (void)start {}
- (void)cancel {
  Lock lock(doubleMutex());
  if (_started && !_cancelled) ++state().cancelledCount;
  _cancelled = YES;
}
@end

@implementation SKProductsRequest
- (instancetype)initWithProductIdentifiers:(NSSet*)productIdentifiers {
  if ((self = [super init])) _productIdentifiers = [productIdentifiers copy];
  return self;
}
- (void)dealloc {
  [_productIdentifiers release];
  [super dealloc];
}
- (void)start {
  Lock lock(doubleMutex());
  if (_started) return;
  _started = YES;
  if (state().holding) {
    [state().held addObject:self];
    _answeringDelegate = [_delegate retain];
    return;
  }
  [self retain];
  state().answering.emplace_back([self] {
    answer(self);
    [self release];
  });
}
@end

@implementation SKPaymentDiscount
- (instancetype)initWithIdentifier:(NSString*)identifier
                     keyIdentifier:(NSString*)keyIdentifier
                             nonce:(NSUUID*)nonce
                         signature:(NSString*)signature
                         timestamp:(NSNumber*)timestamp {
  if ((self = [super init])) {
    [_values addEntriesFromDictionary:@{@"identifier": identifier, @"keyIdentifier": keyIdentifier, @"nonce": nonce,
                                        @"signature": signature, @"timestamp": timestamp}];
  }
  return self;
}
OBJECT_PROPERTY(NSString*, identifier)
OBJECT_PROPERTY(NSString*, keyIdentifier)
OBJECT_PROPERTY(NSUUID*, nonce)
OBJECT_PROPERTY(NSString*, signature)
OBJECT_PROPERTY(NSNumber*, timestamp)
@end

@implementation SKPayment
- (id)copyWithZone:(NSZone*)zone {
  SKPayment* copy = [[SKPayment allocWithZone:zone] init];
  Lock lock(doubleMutex());
  [copy->_values setDictionary:_values];
  return copy;
}
OBJECT_PROPERTY(NSString*, productIdentifier)
NUMBER_PROPERTY(NSInteger, quantity, integerValue)
OBJECT_PROPERTY(NSString*, applicationUsername)
OBJECT_PROPERTY(SKPaymentDiscount*, paymentDiscount)
NUMBER_PROPERTY(BOOL, simulatesAskToBuyInSandbox, boolValue)
@end

@implementation SKMutablePayment
@dynamic productIdentifier, quantity, applicationUsername, paymentDiscount, simulatesAskToBuyInSandbox;
- (void)setProductIdentifier:(NSString*)value { [self setRecordValue:[[value copy] autorelease] forKey:@"productIdentifier"]; }
- (void)setQuantity:(NSInteger)value { [self setRecordValue:@(value) forKey:@"quantity"]; }
- (void)setApplicationUsername:(NSString*)value { [self setRecordValue:[[value copy] autorelease] forKey:@"applicationUsername"]; }
- (void)setPaymentDiscount:(SKPaymentDiscount*)value { [self setRecordValue:value forKey:@"paymentDiscount"]; }
- (void)setSimulatesAskToBuyInSandbox:(BOOL)value { [self setRecordValue:@(value) forKey:@"simulatesAskToBuyInSandbox"]; }
@end

@implementation SKPaymentTransaction
OBJECT_PROPERTY(NSError*, error)
OBJECT_PROPERTY(SKPaymentTransaction*, originalTransaction)
OBJECT_PROPERTY(SKPayment*, payment)
OBJECT_PROPERTY(NSDate*, transactionDate)
OBJECT_PROPERTY(NSString*, transactionIdentifier)
NUMBER_PROPERTY(SKPaymentTransactionState, transactionState, integerValue)
@end

@implementation SKStorefront
OBJECT_PROPERTY(NSString*, countryCode)
OBJECT_PROPERTY(NSString*, identifier)
@end

@implementation SKPaymentQueue
+ (instancetype)defaultQueue {
  static SKPaymentQueue* queue = [[SKPaymentQueue alloc] init];
  return queue;
}
- (SKStorefront*)storefront {
  Lock lock(doubleMutex());
  return [[state().storefront retain] autorelease];
}
- (void)addPayment:(SKPayment*)payment {
  Lock lock(doubleMutex());
  [state().transactions addObject:[SKStoreDouble transactionWithPayment:payment original:nil]];
}
- (id<SKPaymentQueueDelegate>)delegate {
  Lock lock(doubleMutex());
  return [[state().queueDelegate retain] autorelease];
}
- (void)setDelegate:(id<SKPaymentQueueDelegate>)delegate {
  Lock lock(doubleMutex());
  state().queueDelegate = delegate;
}
- (void)showPriceConsentIfNeeded {
  Lock lock(doubleMutex());
  ++state().showPriceConsentCalls;
  state().shownSheets += std::exchange(state().heldSheets, 0);
}
- (void)restoreCompletedTransactions { [self restoreCompletedTransactionsWithApplicationUsername:nil]; }
- (void)restoreCompletedTransactionsWithApplicationUsername:(NSString*)username {
  Lock lock(doubleMutex());
  [state().restores addObject:username ? (id)username : (id)[NSNull null]];
}
- (void)finishTransaction:(SKPaymentTransaction*)transaction {
  {
    Lock lock(doubleMutex());
    [state().finished addObject:transaction];
    if (![state().transactions containsObject:transaction]) return;
    [state().transactions removeObject:transaction];
  }
  tellObservers(@selector(paymentQueue:removedTransactions:),
                [&](id observer) { [observer paymentQueue:self removedTransactions:@[transaction]]; });
}
- (void)addTransactionObserver:(id<SKPaymentTransactionObserver>)observer {
  NSArray* unfinished = nil;
  {
    Lock lock(doubleMutex());
    if ([state().observers containsObject:observer]) return;
    [state().observers addObject:observer];
    unfinished = [[state().transactions copy] autorelease];
  }
  // Like the framework, a new observer hears of the transactions still on the queue.
  if ([unfinished count] > 0) [observer paymentQueue:self updatedTransactions:unfinished];
}
- (void)removeTransactionObserver:(id<SKPaymentTransactionObserver>)observer {
  Lock lock(doubleMutex());
  [state().observers removeObject:observer];
}
@end

@implementation SKStoreReviewController
+ (void)requestReview { ++state().reviewRequests; }
@end

@implementation NSBundle (SKReceipt)
- (NSURL*)appStoreReceiptURL {
  Lock lock(doubleMutex());
  return [[state().receiptURL retain] autorelease];
}
@end

@implementation SKStoreDouble

+ (void)reset {
  [self waitForAnswers];
  Lock lock(doubleMutex());
  DoubleState& s = state();
  for (SKProductsRequest* request in s.held) replace(request->_answeringDelegate, nil);
  for (NSMutableArray* list : {s.catalogue, s.held, s.transactions, s.finished, s.restores, s.observers}) {
    [list removeAllObjects];
  }
  replace(s.productsFailure, nil);
  replace(s.storefront, nil);
  replace(s.receiptURL, nil);
  s.queueDelegate = nil;
  s.heldSheets = s.shownSheets = s.showPriceConsentCalls = 0;
  s.holding = false;
  s.cancelledCount = 0;
  s.reviewRequests = 0;
}

+ (void)setCatalogue:(NSArray*)products {
  Lock lock(doubleMutex());
  [state().catalogue setArray:products];
}
+ (void)setProductsFailure:(NSError*)error { replace(state().productsFailure, error); }
+ (void)setHoldsAnswers:(BOOL)hold {
  Lock lock(doubleMutex());
  state().holding = hold;
}
+ (void)answerHeld {
  NSArray* held = nil;
  {
    Lock lock(doubleMutex());
    held = [[state().held copy] autorelease];
    [state().held removeAllObjects];
  }
  for (SKProductsRequest* request in held) {
    id delegate = nil;
    {
      Lock lock(doubleMutex());
      delegate = request->_answeringDelegate;  // released below
      request->_answeringDelegate = nil;
    }
    answer(request, delegate);
    [delegate release];
  }
}
+ (void)waitForAnswers {
  std::vector<std::thread> threads;
  {
    Lock lock(doubleMutex());
    threads.swap(state().answering);
  }
  for (auto& thread : threads) thread.join();
}
+ (NSUInteger)cancelledRequestCount { return state().cancelledCount; }

+ (NSArray*)transactions { return snapshot(state().transactions); }
+ (SKPaymentTransaction*)transactionWithPayment:(SKPayment*)payment original:(SKPaymentTransaction*)original {
  SKPaymentTransaction* transaction = [SKPaymentTransaction recordWithValues:@{
    @"payment": [[payment copy] autorelease], @"transactionState": @(SKPaymentTransactionStatePurchasing)}];
  [transaction setRecordValue:original forKey:@"originalTransaction"];
  return transaction;
}
+ (void)move:(SKPaymentTransaction*)transaction
          to:(SKPaymentTransactionState)newState
  identifier:(NSString*)identifier
        date:(NSDate*)date
       error:(NSError*)error {
  Lock lock(doubleMutex());
  [transaction setRecordValue:@(newState) forKey:@"transactionState"];
  [transaction setRecordValue:identifier forKey:@"transactionIdentifier"];
  [transaction setRecordValue:date forKey:@"transactionDate"];
  [transaction setRecordValue:error forKey:@"error"];
}
+ (void)report:(NSArray*)transactions {
  {
    Lock lock(doubleMutex());
    for (SKPaymentTransaction* transaction in transactions) {
      if (![state().transactions containsObject:transaction]) [state().transactions addObject:transaction];
    }
  }
  tellObservers(@selector(paymentQueue:updatedTransactions:), [&](id observer) {
    [observer paymentQueue:[SKPaymentQueue defaultQueue] updatedTransactions:transactions];
  });
}
+ (NSArray*)finished { return snapshot(state().finished); }
+ (NSArray*)restoreRequests { return snapshot(state().restores); }
+ (void)finishRestore {
  tellObservers(@selector(paymentQueueRestoreCompletedTransactionsFinished:), [](id observer) {
    [observer paymentQueueRestoreCompletedTransactionsFinished:[SKPaymentQueue defaultQueue]];
  });
}
+ (void)failRestore:(NSError*)error {
  tellObservers(@selector(paymentQueue:restoreCompletedTransactionsFailedWithError:), [&](id observer) {
    [observer paymentQueue:[SKPaymentQueue defaultQueue] restoreCompletedTransactionsFailedWithError:error];
  });
}
+ (void)revoke:(NSArray*)productIdentifiers {
  tellObservers(@selector(paymentQueue:didRevokeEntitlementsForProductIdentifiers:), [&](id observer) {
    [observer paymentQueue:[SKPaymentQueue defaultQueue] didRevokeEntitlementsForProductIdentifiers:productIdentifiers];
  });
}
+ (void)changeStorefront:(SKStorefront*)storefront {
  replace(state().storefront, storefront);
  tellObservers(@selector(paymentQueueDidChangeStorefront:), [](id observer) {
    [observer paymentQueueDidChangeStorefront:[SKPaymentQueue defaultQueue]];
  });
}
+ (NSUInteger)observerCount { return [snapshot(state().observers) count]; }
+ (BOOL)askToShowPriceConsent {
  id delegate = nil;
  {
    Lock lock(doubleMutex());
    delegate = [state().queueDelegate retain];  // kept for the call, as the framework does
  }
  const BOOL show = ![delegate respondsToSelector:@selector(paymentQueueShouldShowPriceConsent:)] ||
                    [delegate paymentQueueShouldShowPriceConsent:[SKPaymentQueue defaultQueue]];
  [delegate release];
  Lock lock(doubleMutex());
  ++(show ? state().shownSheets : state().heldSheets);
  return show;
}
+ (NSUInteger)priceConsentSheets {
  Lock lock(doubleMutex());
  return state().shownSheets;
}
+ (NSUInteger)showPriceConsentCalls {
  Lock lock(doubleMutex());
  return state().showPriceConsentCalls;
}
+ (NSUInteger)reviewRequests { return state().reviewRequests; }
+ (void)setReceiptURL:(NSURL*)url { replace(state().receiptURL, url); }

@end
