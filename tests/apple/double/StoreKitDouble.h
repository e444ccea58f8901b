// How the tests script the store framework double (StoreKit/StoreKit.h): the catalogue and
// how products requests are answered, and the reports the payment queue sends its
// observers. Reports are delivered on the thread that asks for them, the way the framework
// delivers them on the main thread; products answers come on a thread of the double's own
// unless they are held.
//
// Thread-safety: every method may be called from any thread.
#pragma once

#import <StoreKit/StoreKit.h>

NS_ASSUME_NONNULL_BEGIN

@interface SKStoreDouble : NSObject

/// Waits for the answers under way, then forgets everything: catalogue, failure, held
/// answers, transactions, storefront, observers, delegate, consent sheets, counts.
+ (void)reset;

// Products requests.
+ (void)setCatalogue:(NSArray<SKProduct*>*)products;
/// Every products request fails with this error while it is set.
+ (void)setProductsFailure:(nullable NSError*)error;
/// While held, answers wait for `answerHeld`.
+ (void)setHoldsAnswers:(BOOL)hold;
/// Answers the held requests on the calling thread, cancelled ones included: their answers
/// were on the way when they were cancelled, so each reaches the delegate its request had
/// when it was started.
+ (void)answerHeld;
+ (void)waitForAnswers;
/// Requests cancelled after they were started.
+ (NSUInteger)cancelledRequestCount;

// The payment queue.
/// The transactions on the queue, unfinished, oldest first. Each payment added puts one
/// there, purchasing a copy of the payment (not reported until `report:`).
+ (NSArray<SKPaymentTransaction*>*)transactions;
/// A transaction for `payment` in state purchasing, restoring or renewing `original`.
+ (SKPaymentTransaction*)transactionWithPayment:(SKPayment*)payment original:(nullable SKPaymentTransaction*)original;
/// Moves a transaction on, as the store does.
+ (void)move:(SKPaymentTransaction*)transaction
          to:(SKPaymentTransactionState)state
  identifier:(nullable NSString*)identifier
        date:(nullable NSDate*)date
       error:(nullable NSError*)error;
/// Puts the transactions on the queue (if not yet there) and tells every observer.
+ (void)report:(NSArray<SKPaymentTransaction*>*)transactions;
/// Every `finishTransaction:` call, in any state (the framework refuses one still
/// purchasing, so a test expects none of those).
+ (NSArray<SKPaymentTransaction*>*)finished;
/// The usernames of restore requests, NSNull for none.
+ (NSArray*)restoreRequests;
+ (void)finishRestore;
+ (void)failRestore:(NSError*)error;
+ (void)revoke:(NSArray<NSString*>*)productIdentifiers;
/// Sets the storefront and tells every observer it changed.
+ (void)changeStorefront:(SKStorefront*)storefront;
+ (NSUInteger)observerCount;
/// Asks the queue's delegate, as the store does before showing a price increase's consent
/// sheet, on the calling thread; returns whether the sheet showed (it does without a
/// delegate). A sheet held back shows on the next `showPriceConsentIfNeeded`.
+ (BOOL)askToShowPriceConsent;
/// Consent sheets shown so far, and `showPriceConsentIfNeeded` calls.
+ (NSUInteger)priceConsentSheets;
+ (NSUInteger)showPriceConsentCalls;
+ (NSUInteger)reviewRequests;
+ (void)setReceiptURL:(nullable NSURL*)url;

@end

NS_ASSUME_NONNULL_END
