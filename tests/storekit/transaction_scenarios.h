#pragma once

// Store batches, what is stored beforehand and how each transaction is classified: what both
// ways of following purchases must do. Each test turns the outcomes into its own log lines.

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "common/deadline.h"
#include "velquist/platform/sk_payment_queue.h"
#include "velquist/platform/sk_product.h"
#include "velquist/storekit/transactions/transaction_queue.h"

namespace velquist::testing {

using platform::SKPaymentTransactionState;
using Mode = platform::SKProductDiscountPaymentMode;

/// A store transaction as a row writes it.
struct StoreTransaction {
  std::string product = "pro.monthly";
  SKPaymentTransactionState state = SKPaymentTransactionState::purchased;
  std::optional<std::string> id, original;  ///< original: the original transaction's identifier
  bool originalWithoutID = false;           ///< an original transaction that has no identifier
  std::optional<std::string> offer;         ///< the promotional offer applied to the payment
};

inline std::shared_ptr<platform::SKPaymentTransaction> makeStoreTransaction(const StoreTransaction& row) {
  using platform::SKPaymentTransaction;
  platform::SKPayment payment{.productIdentifier = row.product};
  const auto original = row.original || row.originalWithoutID
                            ? std::make_shared<SKPaymentTransaction>(
                                  payment, SKPaymentTransaction::Progress{.state = SKPaymentTransactionState::purchased,
                                                                          .transactionIdentifier = row.original})
                            : nullptr;
  if (row.offer) payment.paymentDiscount = platform::SKPaymentDiscount{.identifier = *row.offer};
  return std::make_shared<SKPaymentTransaction>(
      payment, SKPaymentTransaction::Progress{.state = row.state, .transactionIdentifier = row.id}, original);
}

inline platform::SKPaymentQueue::Transactions storeBatch(const std::vector<StoreTransaction>& rows) {
  platform::SKPaymentQueue::Transactions batch;
  for (const auto& row : rows) batch.push_back(makeStoreTransaction(row));
  return batch;
}

inline platform::SKProductDiscount storeDiscount(std::optional<std::string> identifier, Mode mode) {
  return {.price = *foundation::Decimal::fromString("0"), .priceLocale = foundation::Locale("en_US"),
          .identifier = std::move(identifier), .subscriptionPeriod = {1, platform::SKProductPeriodUnit::week},
          .paymentMode = mode, .type = platform::SKProductDiscountType::subscription};
}

/// A plain monthly plan, and one with an introductory free trial and two promotional offers
/// (pay up front "winback", free trial "trial.offer").
inline std::vector<platform::SKProduct> catalogue() {
  platform::SKProduct monthly{.productIdentifier = "pro.monthly", .localizedTitle = "Pro",
                              .price = *foundation::Decimal::fromString("4.99"),
                              .priceLocale = foundation::Locale("en_US"),
                              .subscriptionPeriod = platform::SKProductSubscriptionPeriod{1, platform::SKProductPeriodUnit::month},
                              .subscriptionGroupIdentifier = "pro"};
  platform::SKProduct trial = monthly;
  trial.productIdentifier = "pro.trial";
  trial.introductoryPrice = storeDiscount(std::nullopt, Mode::freeTrial);
  trial.introductoryPrice->type = platform::SKProductDiscountType::introductory;
  trial.discounts = {storeDiscount("winback", Mode::payUpFront), storeDiscount("trial.offer", Mode::freeTrial)};
  return {monthly, trial};
}

inline std::optional<platform::SKProduct> catalogueProduct(const std::string& identifier) {
  for (const auto& product : catalogue()) {
    if (product.productIdentifier == identifier) return product;
  }
  return std::nullopt;
}

/// The record expected for a row's store transaction: with its catalogue product, if any.
inline storekit::Transaction expectedRecord(const StoreTransaction& row,
                                            std::shared_ptr<platform::SKPaymentTransaction> transaction) {
  const auto product = catalogueProduct(row.product);
  return storekit::makeTransaction(product ? &*product : nullptr, std::move(transaction));
}

/// Left alone (not purchased), a first purchase, a renewal (dropped), a trial start.
enum class Outcome { passed, first, renewal, trial };

struct Scenario {
  std::string name;
  std::optional<std::string> stored;  ///< the joined identifiers stored beforehand
  std::vector<StoreTransaction> batch;
  std::vector<Outcome> outcomes;  ///< one per transaction
  std::set<std::string> storedAfter;
  std::size_t productsFound = 0;
};

inline std::vector<Scenario> scenarios() {
  using enum Outcome;
  using S = SKPaymentTransactionState;
  return {
      {"first purchase", {}, {{.id = "T1"}}, {first}, {"T1"}, 1},
      {"renewal of a stored subscription", "T1", {{.id = "T2", .original = "T1"}}, {renewal}, {"T1"}, 1},
      {"renewal of an unknown subscription", "T0", {{.id = "T2", .original = "T1"}}, {first}, {"T0", "T1"}, 1},
      {"first purchase, then its renewal", {}, {{.id = "T1"}, {.id = "T2", .original = "T1"}}, {first, renewal}, {"T1"}, 1},
      {"trial start by offer removes its original", ",,T1,,T2,",
       {{.product = "pro.trial", .id = "T3", .original = "T1", .offer = "trial.offer"}}, {trial}, {"T2"}, 1},
      {"introductory trial without original", "T5", {{.product = "pro.trial", .id = "T3"}}, {trial}, {"T5"}, 1},
      {"original without identifier still starts a trial", {},
       {{.product = "pro.trial", .id = "T3", .originalWithoutID = true}}, {trial}, {}, 1},
      {"a paid offer falls back to the introductory trial", {},
       {{.product = "pro.trial", .id = "T3", .offer = "winback"}}, {trial}, {}, 1},
      {"first paid renewal after a trial is kept, the next dropped", "T1",
       {{.product = "pro.trial", .id = "T3", .original = "T1", .offer = "trial.offer"},
        {.product = "pro.trial", .id = "T4", .original = "T1"},
        {.product = "pro.trial", .id = "T5", .original = "T1"}},
       {trial, first, renewal}, {"T1"}, 1},
      {"other states pass unchanged", "T1",
       {{.state = S::failed, .id = "T2", .original = "T1"}, {.state = S::restored, .id = "T3", .original = "T1"},
        {.state = S::deferred}, {.state = S::purchasing, .original = "T9"},
        {.state = SKPaymentTransactionState{7}, .id = "T4"},
        {.product = "pro.trial", .state = S::restored, .id = "T5", .original = "T1", .offer = "trial.offer"}},
       {passed, passed, passed, passed, passed, passed}, {"T1"}, 2},
      {"no identifier at all", "T1", {{}}, {first}, {"T1"}, 1},
      {"product not sold", {}, {{.product = "gone", .id = "T7"}}, {first}, {"T7"}, 0},
      {"empty batch", "T1", {}, {}, {"T1"}, 0},
  };
}

/// Waits for what arrives from another thread.
template <class T>
struct Inbox {
  void put(T value) {
    std::lock_guard lock(mutex);  // notified under the lock: the waiter may destroy the inbox at once
    values.push_back(std::move(value));
    arrived.notify_all();
  }
  /// Waits until `count` values have arrived, then returns all that have (fewer, after a
  /// failure of the test naming `what`, if they do not arrive in time).
  std::vector<T> waitFor(std::size_t count, const std::string& what = "values") const {
    std::unique_lock lock(mutex);
    waitUntil(arrived, lock, [&] { return values.size() >= count; }, std::to_string(count) + " " + what + " to arrive");
    return values;
  }
  mutable std::mutex mutex;
  mutable std::condition_variable arrived;
  std::vector<T> values;
};

/// Hands every batch it is given to the test.
struct RecordingListener final : storekit::TransactionQueueListener {
  void updated(const std::vector<storekit::Transaction>& transactions) override { batches.put(transactions); }
  Inbox<std::vector<storekit::Transaction>> batches;
};

}  // namespace velquist::testing

namespace velquist::storekit {
inline void PrintTo(const Transaction& transaction, std::ostream* out) { *out << transaction.description(); }
}  // namespace velquist::storekit
