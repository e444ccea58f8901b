// The store framework's classes as the adapter uses them: the same names, selectors and
// property types, for building and testing the adapter where the framework does not
// exist. What the tests use to script the store is in StoreKitDouble.h.
#pragma once

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

extern NSString* const SKErrorDomain;

// The records below keep their values in a dictionary (this double's own base class; the
// framework's classes derive from NSObject). Tests make and change records with these.
@interface SKDoubleRecord : NSObject {
 @public
  NSMutableDictionary* _values;
}
/// A record with these values by property name (numbers as NSNumber).
+ (instancetype)recordWithValues:(NSDictionary*)values;
- (void)setRecordValue:(nullable id)value forKey:(NSString*)key;
@end

// The adapter passes these through as numbers, so their named values are left out.
typedef NSUInteger SKProductPeriodUnit;
typedef NSUInteger SKProductDiscountPaymentMode;
typedef NSUInteger SKProductDiscountType;

typedef NS_ENUM(NSInteger, SKPaymentTransactionState) {
  SKPaymentTransactionStatePurchasing, SKPaymentTransactionStatePurchased, SKPaymentTransactionStateFailed,
  SKPaymentTransactionStateRestored, SKPaymentTransactionStateDeferred,
};

@interface SKProductSubscriptionPeriod : SKDoubleRecord
@property(nonatomic, readonly) NSUInteger numberOfUnits;
@property(nonatomic, readonly) SKProductPeriodUnit unit;
@end

@interface SKProductDiscount : SKDoubleRecord
@property(nonatomic, readonly) NSDecimalNumber* price;
@property(nonatomic, readonly) NSLocale* priceLocale;
@property(nonatomic, readonly, nullable) NSString* identifier;
@property(nonatomic, readonly) SKProductSubscriptionPeriod* subscriptionPeriod;
@property(nonatomic, readonly) NSUInteger numberOfPeriods;
@property(nonatomic, readonly) SKProductDiscountPaymentMode paymentMode;
@property(nonatomic, readonly) SKProductDiscountType type;
@end

@interface SKProduct : SKDoubleRecord
@property(nonatomic, readonly) NSString* localizedDescription;
@property(nonatomic, readonly) NSString* localizedTitle;
@property(nonatomic, readonly) NSDecimalNumber* price;
@property(nonatomic, readonly) NSLocale* priceLocale;
@property(nonatomic, readonly) NSString* productIdentifier;
@property(nonatomic, readonly, nullable) SKProductSubscriptionPeriod* subscriptionPeriod;
@property(nonatomic, readonly, nullable) SKProductDiscount* introductoryPrice;
@property(nonatomic, readonly, nullable) NSString* subscriptionGroupIdentifier;
@property(nonatomic, readonly) NSArray<SKProductDiscount*>* discounts;
@end

@class SKRequest;

@protocol SKRequestDelegate <NSObject>
@optional
- (void)requestDidFinish:(SKRequest*)request;
- (void)request:(SKRequest*)request didFailWithError:(NSError*)error;
@end

@interface SKRequest : NSObject {
 @public
  id _delegate;
  id _answeringDelegate;  // the double's: the delegate an answer on its way will reach
  BOOL _started, _cancelled;
}
@property(nonatomic, assign, nullable) id<SKRequestDelegate> delegate;
- (void)start;
- (void)cancel;
@end

@interface SKProductsResponse : SKDoubleRecord
@property(nonatomic, readonly) NSArray<SKProduct*>* products;
@property(nonatomic, readonly) NSArray<NSString*>* invalidProductIdentifiers;
@end

@class SKProductsRequest;

@protocol SKProductsRequestDelegate <SKRequestDelegate>
@required
- (void)productsRequest:(SKProductsRequest*)request didReceiveResponse:(SKProductsResponse*)response;
@end

@interface SKProductsRequest : SKRequest {
 @public
  NSSet* _productIdentifiers;
}
- (instancetype)initWithProductIdentifiers:(NSSet<NSString*>*)productIdentifiers;
@end

@interface SKPaymentDiscount : SKDoubleRecord
- (instancetype)initWithIdentifier:(NSString*)identifier
                     keyIdentifier:(NSString*)keyIdentifier
                             nonce:(NSUUID*)nonce
                         signature:(NSString*)signature
                         timestamp:(NSNumber*)timestamp;
@property(nonatomic, readonly) NSString* identifier;
@property(nonatomic, readonly) NSString* keyIdentifier;
@property(nonatomic, readonly) NSUUID* nonce;
@property(nonatomic, readonly) NSString* signature;
@property(nonatomic, readonly) NSNumber* timestamp;
@end

@interface SKPayment : SKDoubleRecord <NSCopying>
@property(nonatomic, readonly, copy) NSString* productIdentifier;
@property(nonatomic, readonly) NSInteger quantity;
@property(nonatomic, readonly, copy, nullable) NSString* applicationUsername;
@property(nonatomic, readonly, nullable) SKPaymentDiscount* paymentDiscount;
@property(nonatomic, readonly) BOOL simulatesAskToBuyInSandbox;
@end

@interface SKMutablePayment : SKPayment
@property(nonatomic, readwrite, copy) NSString* productIdentifier;
@property(nonatomic, readwrite) NSInteger quantity;
@property(nonatomic, readwrite, copy, nullable) NSString* applicationUsername;
@property(nonatomic, readwrite, retain, nullable) SKPaymentDiscount* paymentDiscount;
@property(nonatomic, readwrite) BOOL simulatesAskToBuyInSandbox;
@end

@interface SKPaymentTransaction : SKDoubleRecord
@property(nonatomic, readonly, nullable) NSError* error;
@property(nonatomic, readonly, nullable) SKPaymentTransaction* originalTransaction;
@property(nonatomic, readonly) SKPayment* payment;
@property(nonatomic, readonly, nullable) NSDate* transactionDate;
@property(nonatomic, readonly, nullable) NSString* transactionIdentifier;
@property(nonatomic, readonly) SKPaymentTransactionState transactionState;
@end

@interface SKStorefront : SKDoubleRecord
@property(nonatomic, readonly) NSString* countryCode;
@property(nonatomic, readonly) NSString* identifier;
@end

@class SKPaymentQueue;

@protocol SKPaymentTransactionObserver <NSObject>
@required
- (void)paymentQueue:(SKPaymentQueue*)queue updatedTransactions:(NSArray<SKPaymentTransaction*>*)transactions;
@optional
- (void)paymentQueue:(SKPaymentQueue*)queue removedTransactions:(NSArray<SKPaymentTransaction*>*)transactions;
- (void)paymentQueue:(SKPaymentQueue*)queue restoreCompletedTransactionsFailedWithError:(NSError*)error;
- (void)paymentQueueRestoreCompletedTransactionsFinished:(SKPaymentQueue*)queue;
- (void)paymentQueue:(SKPaymentQueue*)queue didRevokeEntitlementsForProductIdentifiers:(NSArray<NSString*>*)productIdentifiers;
- (void)paymentQueueDidChangeStorefront:(SKPaymentQueue*)queue;
@end

@protocol SKPaymentQueueDelegate <NSObject>
@optional
- (BOOL)paymentQueueShouldShowPriceConsent:(SKPaymentQueue*)paymentQueue;
@end

@interface SKPaymentQueue : NSObject
+ (instancetype)defaultQueue;
@property(nonatomic, readonly, nullable) SKStorefront* storefront;
/// Not retained (a weak reference in the framework).
@property(nonatomic, assign, nullable) id<SKPaymentQueueDelegate> delegate;
- (void)showPriceConsentIfNeeded;
- (void)addPayment:(SKPayment*)payment;
- (void)restoreCompletedTransactions;
- (void)restoreCompletedTransactionsWithApplicationUsername:(nullable NSString*)username;
- (void)finishTransaction:(SKPaymentTransaction*)transaction;
- (void)addTransactionObserver:(id<SKPaymentTransactionObserver>)observer;
- (void)removeTransactionObserver:(id<SKPaymentTransactionObserver>)observer;
@end

@interface SKStoreReviewController : NSObject
+ (void)requestReview;
@end

@interface NSBundle (SKReceipt)
@property(nonatomic, readonly, nullable) NSURL* appStoreReceiptURL;
@end

NS_ASSUME_NONNULL_END
