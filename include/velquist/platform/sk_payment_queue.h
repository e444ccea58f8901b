#pragma once

#include "velquist/export.h"
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "velquist/platform/sk_error.h"
#include "velquist/platform/sk_payment.h"
#include "velquist/platform/sk_storefront.h"
#include "velquist/support/mutex.h"

VELQUIST_API_BEGIN
namespace velquist::platform {

class SKPaymentQueue;

/// What the payment queue tells its observers. Only `updatedTransactions` must be
/// implemented; the others do nothing unless overridden.
///
/// Observers are called on the thread the store reports on, never while the queue holds a
/// lock, so they may add or remove observers (themselves included) from inside a call. A
/// report goes to the observers registered when it started.
class SKPaymentTransactionObserver {
 public:
  virtual ~SKPaymentTransactionObserver() = default;

  /// New transactions, or transactions whose state changed, in the store's order.
  virtual void updatedTransactions(SKPaymentQueue& queue,
                                   const std::vector<std::shared_ptr<SKPaymentTransaction>>& transactions) = 0;
  /// Transactions that were finished and left the queue.
  virtual void removedTransactions(SKPaymentQueue& queue,
                                   const std::vector<std::shared_ptr<SKPaymentTransaction>>& transactions);
  /// Every restorable transaction has been reported.
  virtual void restoreCompletedTransactionsFinished(SKPaymentQueue& queue);
  virtual void restoreCompletedTransactionsFailed(SKPaymentQueue& queue, const SKError& error);
  /// The customer lost access to these products (a refund, or a family member's purchase
  /// no longer shared): the app should take back what they unlocked.
  virtual void didRevokeEntitlementsForProductIdentifiers(SKPaymentQueue& queue,
                                                          const std::vector<std::string>& productIdentifiers);
  /// The storefront of the signed-in account changed; `queue.storefront()` gives the new one.
  virtual void storefrontDidChange(SKPaymentQueue& queue);
};

/// What the app tells the payment queue when the store asks. Every operation has a default.
///
/// Called on the thread the store asks from, never while the queue holds a lock.
class SKPaymentQueueDelegate {
 public:
  virtual ~SKPaymentQueueDelegate() = default;

  /// Whether the store may show the price consent sheet for a subscription whose price went
  /// up now (the default). Answering false defers it until `showPriceConsentIfNeeded()`.
  virtual bool shouldShowPriceConsent(SKPaymentQueue& queue);
};

/// The store's payment queue: payments go in, and observers hear how the resulting
/// transactions progress. There is one, `defaultQueue()`, and the process-wide store
/// backend (store_backend.h) does the work behind it.
///
/// Observers are held weakly, as the store does: whoever adds one keeps it alive, and an
/// observer that is destroyed simply stops being called. Adding the same observer twice
/// keeps one entry; observers are told in the order they were first added.
///
/// While no backend is set, `add` reports the transaction as failed with
/// `SKError::noStoreBackend()`, a restore reports that error, `finishTransaction` does
/// nothing and `storefront()` is absent.
///
///     auto observer = std::make_shared<MyObserver>();
///     SKPaymentQueue::defaultQueue().addTransactionObserver(observer);
///     SKPaymentQueue::defaultQueue().add(SKPayment{.productIdentifier = "com.example.pro"});
///
/// Thread-safety: every member may be called from any thread.
class SKPaymentQueue {
 public:
  using Transactions = std::vector<std::shared_ptr<SKPaymentTransaction>>;

  static SKPaymentQueue& defaultQueue();

  SKPaymentQueue(const SKPaymentQueue&) = delete;
  SKPaymentQueue& operator=(const SKPaymentQueue&) = delete;

  void addTransactionObserver(const std::shared_ptr<SKPaymentTransactionObserver>& observer)
      VELQUIST_EXCLUDES(mutex_);
  /// Removing an observer that was never added changes nothing.
  void removeTransactionObserver(const std::shared_ptr<SKPaymentTransactionObserver>& observer)
      VELQUIST_EXCLUDES(mutex_);
  /// The observers still alive, in the order they were added.
  std::vector<std::shared_ptr<SKPaymentTransactionObserver>> transactionObservers() const VELQUIST_EXCLUDES(mutex_);

  void add(const SKPayment& payment);
  void finishTransaction(const std::shared_ptr<SKPaymentTransaction>& transaction);
  void restoreCompletedTransactions(const std::optional<std::string>& applicationUsername = std::nullopt);
  /// The storefront of the signed-in account, read afresh from the backend on every call.
  std::optional<SKStorefront> storefront() const;

  /// The delegate is held weakly, like the observers: whoever sets it keeps it alive.
  /// Setting an empty pointer removes it.
  void setDelegate(const std::shared_ptr<SKPaymentQueueDelegate>& delegate) VELQUIST_EXCLUDES(mutex_);
  /// The delegate, while it is alive.
  std::shared_ptr<SKPaymentQueueDelegate> delegate() const VELQUIST_EXCLUDES(mutex_);
  /// Shows the price consent sheets the delegate deferred (nothing without a backend).
  void showPriceConsentIfNeeded();

  // For store backends: tell every observer, on the calling thread.
  void reportUpdatedTransactions(const Transactions& transactions);
  void reportRemovedTransactions(const Transactions& transactions);
  void reportRestoreCompletedTransactionsFinished();
  void reportRestoreCompletedTransactionsFailed(const SKError& error);
  void reportDidRevokeEntitlements(const std::vector<std::string>& productIdentifiers);
  void reportStorefrontDidChange();
  /// Whether a price consent sheet may be shown now: the delegate's answer, true without one.
  /// Called outside the queue's lock.
  bool shouldShowPriceConsent() VELQUIST_EXCLUDES(mutex_);

 private:
  SKPaymentQueue() = default;

  mutable support::Mutex mutex_;
  std::vector<std::weak_ptr<SKPaymentTransactionObserver>> observers_ VELQUIST_GUARDED_BY(mutex_);
  std::weak_ptr<SKPaymentQueueDelegate> delegate_ VELQUIST_GUARDED_BY(mutex_);
};

}  // namespace velquist::platform
VELQUIST_API_END
