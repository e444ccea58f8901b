#pragma once

#include "velquist/export.h"
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "velquist/platform/sk_error.h"
#include "velquist/support/mutex.h"

VELQUIST_API_BEGIN
namespace velquist::platform {

/// A signed promotional offer attached to a payment: which offer, and the signature the
/// developer's server made for it.
///
/// A plain value; safe to share between threads for reading.
struct SKPaymentDiscount {
  std::string identifier;  ///< the offer's identifier, as in `SKProductDiscount::identifier`
  std::string keyIdentifier;
  std::string nonce;
  std::string signature;
  std::int64_t timestamp = 0;

  friend bool operator==(const SKPaymentDiscount&, const SKPaymentDiscount&) = default;
};

/// A request to buy `quantity` of a product, as handed to `SKPaymentQueue::add`.
///
/// A plain value; safe to share between threads for reading.
struct SKPayment {
  std::string productIdentifier;
  std::int64_t quantity = 1;
  std::optional<std::string> applicationUsername;
  std::optional<SKPaymentDiscount> paymentDiscount;  ///< present when a promotional offer is applied
  bool simulatesAskToBuyInSandbox = false;

  /// The store's own text of the payment: product and quantity, and the offer when one is
  /// applied.
  ///
  ///     <SKPayment productIdentifier: com.example.pro, quantity: 1>
  ///     <SKPayment productIdentifier: com.example.pro, quantity: 1, paymentDiscount: winback>
  std::string description() const;

  friend bool operator==(const SKPayment&, const SKPayment&) = default;
};

/// Where a payment transaction stands; the store's values 0...4. Values outside that range
/// are representable (`static_cast<SKPaymentTransactionState>(7)`).
enum class SKPaymentTransactionState : std::int64_t {
  purchasing = 0,
  purchased = 1,
  failed = 2,
  restored = 3,
  deferred = 4,
};

/// What changes as the store works on a transaction (`SKPaymentTransaction::Progress`).
struct SKPaymentTransactionProgress {
  using Date = std::chrono::system_clock::time_point;

  SKPaymentTransactionState state = SKPaymentTransactionState::purchasing;
  std::optional<std::string> transactionIdentifier;  ///< assigned once the store has one
  std::optional<Date> transactionDate;
  std::optional<SKError> error;  ///< why it failed, for state `failed`
};

/// One purchase event as the store reports it to the payment queue's observers. The store
/// (a `StoreBackend`) moves a transaction along with `update`; the same object then reports
/// its new state, so transactions are held by `std::shared_ptr` and compared by address.
///
///     auto transaction = std::make_shared<SKPaymentTransaction>(SKPayment{.productIdentifier = "pro"});
///     transaction->update({.state = SKPaymentTransactionState::purchased, .transactionIdentifier = "1000"});
///
/// Thread-safety: all members may be used from any thread; each accessor reads one
/// consistent snapshot of the progress.
class SKPaymentTransaction {
 public:
  using Date = SKPaymentTransactionProgress::Date;
  using Progress = SKPaymentTransactionProgress;

  explicit SKPaymentTransaction(SKPayment payment, Progress progress = {},
                                std::shared_ptr<SKPaymentTransaction> originalTransaction = nullptr)
      : payment_(std::move(payment)),
        originalTransaction_(std::move(originalTransaction)),
        progress_(std::move(progress)) {}
  SKPaymentTransaction(const SKPaymentTransaction&) = delete;
  SKPaymentTransaction& operator=(const SKPaymentTransaction&) = delete;

  const SKPayment& payment() const { return payment_; }
  /// The transaction this one restores or renews; empty for a first purchase.
  const std::shared_ptr<SKPaymentTransaction>& originalTransaction() const { return originalTransaction_; }

  SKPaymentTransactionState transactionState() const VELQUIST_EXCLUDES(mutex_);
  std::optional<std::string> transactionIdentifier() const VELQUIST_EXCLUDES(mutex_);
  std::optional<Date> transactionDate() const VELQUIST_EXCLUDES(mutex_);
  std::optional<SKError> error() const VELQUIST_EXCLUDES(mutex_);
  /// All of the above at once.
  Progress progress() const VELQUIST_EXCLUDES(mutex_);

  /// For store backends: the transaction's new state and what came with it.
  void update(Progress progress) VELQUIST_EXCLUDES(mutex_);

 private:
  const SKPayment payment_;
  const std::shared_ptr<SKPaymentTransaction> originalTransaction_;
  mutable support::Mutex mutex_;
  Progress progress_ VELQUIST_GUARDED_BY(mutex_);
};

}  // namespace velquist::platform
VELQUIST_API_END
