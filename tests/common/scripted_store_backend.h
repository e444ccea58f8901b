#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <unordered_set>
#include <utility>
#include <variant>
#include <vector>

#include "velquist/platform/sk_payment_queue.h"
#include "velquist/platform/store_backend.h"
#include "velquist/support/mutex.h"

namespace velquist::testing {

/// A store backend for tests, scripted by the test: a catalogue of products, an optional
/// error to answer every request with, a storefront. It records what it was asked.
///
/// Answers are posted, never waited for: each one is delivered by a thread of its own
/// that is started when the answer is due and joined when the backend is destroyed. An
/// answer is due at once, or, while answers are held, when the test calls `releaseHeld`.
///
/// Thread-safety: every member may be called from any thread.
class ScriptedStoreBackend final : public platform::StoreBackend {
 public:
  ~ScriptedStoreBackend() override { waitForAnswers(); }

  /// Returns once every answer posted so far has been delivered.
  void waitForAnswers() VELQUIST_EXCLUDES(mutex_) {
    std::vector<std::thread> threads;
    {
      support::LockGuard lock(mutex_);
      threads = std::exchange(answering_, {});
    }
    for (auto& thread : threads) {
      // A completion may drop the last reference to this backend on its own thread.
      if (thread.get_id() == std::this_thread::get_id()) {
        thread.detach();
      } else {
        thread.join();
      }
    }
  }

  /// The products on sale; a request is answered with those asked for, in this order.
  void setCatalogue(std::vector<platform::SKProduct> products) VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    catalogue_ = std::move(products);
  }
  /// Answer every request with this error instead (none: answer from the catalogue).
  void setFailure(std::optional<platform::SKError> error) VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    failure_ = std::move(error);
  }
  void setStorefront(std::optional<platform::SKStorefront> storefront) VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    storefront_ = std::move(storefront);
  }
  /// While held, answers wait for `releaseHeld`.
  void holdAnswers(bool hold) VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    holding_ = hold;
  }
  /// Posts every held answer, cancelled requests' included (a late answer the store sends
  /// anyway), and stops holding.
  void releaseHeld() VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    holding_ = false;
    for (auto& [id, call] : held_) post(std::move(call));
    held_.clear();
  }

  /// The identifiers of every request started so far, oldest first.
  std::vector<std::unordered_set<std::string>> requests() const VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    return requests_;
  }
  /// How many requests were cancelled.
  std::size_t cancelled() const VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    return cancelled_;
  }
  /// How many answers are waiting for `releaseHeld`.
  std::size_t heldCount() const VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    return held_.size();
  }
  std::vector<platform::SKPayment> payments() const VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    return payments_;
  }

  void startProductsRequest(std::uint64_t requestID, const std::unordered_set<std::string>& identifiers,
                            ProductsCompletion completion) override VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    requests_.push_back(identifiers);
    Call call{std::move(completion), answerFor(identifiers)};
    if (holding_) {
      held_.emplace(requestID, std::move(call));
    } else {
      post(std::move(call));
    }
  }

  void cancelProductsRequest(std::uint64_t) override VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    ++cancelled_;
  }

  void addPayment(const platform::SKPayment& payment) override VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    payments_.push_back(payment);
  }
  void finishTransaction(const std::shared_ptr<platform::SKPaymentTransaction>&) override {}
  void restoreCompletedTransactions(const std::optional<std::string>&) override {
    platform::SKPaymentQueue::defaultQueue().reportRestoreCompletedTransactionsFinished();
  }
  std::optional<platform::SKStorefront> storefront() const override VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    return storefront_;
  }

 private:
  using Answer = std::variant<platform::SKProductsResponse, platform::SKError>;
  struct Call {
    ProductsCompletion completion;
    Answer answer;
  };

  Answer answerFor(const std::unordered_set<std::string>& identifiers) const VELQUIST_REQUIRES(mutex_) {
    if (failure_) return *failure_;
    platform::SKProductsResponse response;
    std::unordered_set<std::string> unknown = identifiers;
    for (const auto& product : catalogue_) {
      if (unknown.erase(product.productIdentifier) > 0) response.products.push_back(product);
    }
    response.invalidProductIdentifiers.assign(unknown.begin(), unknown.end());
    return response;
  }

  void post(Call call) VELQUIST_REQUIRES(mutex_) {
    answering_.emplace_back([call = std::move(call)] { call.completion(call.answer); });
  }

  mutable support::Mutex mutex_;
  std::vector<platform::SKProduct> catalogue_ VELQUIST_GUARDED_BY(mutex_);
  std::optional<platform::SKError> failure_ VELQUIST_GUARDED_BY(mutex_);
  std::optional<platform::SKStorefront> storefront_ VELQUIST_GUARDED_BY(mutex_);
  bool holding_ VELQUIST_GUARDED_BY(mutex_) = false;
  std::map<std::uint64_t, Call> held_ VELQUIST_GUARDED_BY(mutex_);
  std::vector<std::unordered_set<std::string>> requests_ VELQUIST_GUARDED_BY(mutex_);
  std::size_t cancelled_ VELQUIST_GUARDED_BY(mutex_) = 0;
  std::vector<platform::SKPayment> payments_ VELQUIST_GUARDED_BY(mutex_);
  std::vector<std::thread> answering_ VELQUIST_GUARDED_BY(mutex_);
};

/// Installs `backend` as the process-wide store backend for a scope, then removes it.
class StoreBackendScope {
 public:
  explicit StoreBackendScope(std::shared_ptr<platform::StoreBackend> backend) {
    platform::setDefaultStoreBackend(std::move(backend));
  }
  ~StoreBackendScope() { platform::setDefaultStoreBackend(nullptr); }
  StoreBackendScope(const StoreBackendScope&) = delete;
  StoreBackendScope& operator=(const StoreBackendScope&) = delete;
};

}  // namespace velquist::testing
