#pragma once

#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "velquist/platform/sk_payment_queue.h"
#include "velquist/platform/store_backend.h"
#include "velquist/support/mutex.h"

namespace velquist::testing {

/// A store backend scripted by the test (catalogue, error for every request, storefront) that
/// records what it was asked. Each answer is delivered on a thread of its own, at once or,
/// while answers are held, on `releaseHeld` (cancelled requests' too: a late answer the store
/// sends anyway); `waitForAnswers` and the destructor join those threads.
/// Thread-safety: every member may be called from any thread.
class ScriptedStoreBackend final : public platform::StoreBackend {
 public:
  ~ScriptedStoreBackend() override { waitForAnswers(); }

  /// Returns once every answer posted so far has been delivered.
  void waitForAnswers() {
    std::vector<std::thread> threads;
    {
      Lock lock(mutex_);
      threads = std::exchange(answering_, {});
    }
    // A completion may drop the last reference to this backend on its own thread.
    for (auto& thread : threads) thread.get_id() == std::this_thread::get_id() ? thread.detach() : thread.join();
  }

  /// A request is answered with the products asked for, in the catalogue's order.
  void setCatalogue(std::vector<platform::SKProduct> products) { Lock lock(mutex_); catalogue_ = std::move(products); }
  void setFailure(std::optional<platform::SKError> error) { Lock lock(mutex_); failure_ = std::move(error); }
  void setStorefront(std::optional<platform::SKStorefront> front) { Lock lock(mutex_); storefront_ = std::move(front); }
  void holdAnswers(bool hold) { Lock lock(mutex_); holding_ = hold; }
  void releaseHeld() {
    Lock lock(mutex_);
    holding_ = false;
    for (auto& answer : std::exchange(held_, {})) answering_.emplace_back(std::move(answer));
  }

  /// The identifiers of every request started so far, oldest first.
  std::vector<std::unordered_set<std::string>> requests() const { Lock lock(mutex_); return requests_; }
  std::size_t cancelled() const { Lock lock(mutex_); return cancelled_; }
  std::size_t heldCount() const { Lock lock(mutex_); return held_.size(); }
  std::vector<platform::SKPayment> payments() const { Lock lock(mutex_); return payments_; }

  void startProductsRequest(std::uint64_t, const std::unordered_set<std::string>& identifiers,
                            ProductsCompletion completion) override {
    Lock lock(mutex_);
    requests_.push_back(identifiers);
    std::function<void()> answer = [completion = std::move(completion), result = answerFor(identifiers)] {
      completion(result);
    };
    if (holding_) held_.push_back(std::move(answer)); else answering_.emplace_back(std::move(answer));
  }
  void cancelProductsRequest(std::uint64_t) override { Lock lock(mutex_); ++cancelled_; }
  void addPayment(const platform::SKPayment& payment) override { Lock lock(mutex_); payments_.push_back(payment); }
  void finishTransaction(const std::shared_ptr<platform::SKPaymentTransaction>&) override {}
  void restoreCompletedTransactions(const std::optional<std::string>&) override {
    platform::SKPaymentQueue::defaultQueue().reportRestoreCompletedTransactionsFinished();
  }
  std::optional<platform::SKStorefront> storefront() const override { Lock lock(mutex_); return storefront_; }

 private:
  using Lock = support::LockGuard<support::Mutex>;

  std::variant<platform::SKProductsResponse, platform::SKError> answerFor(
      const std::unordered_set<std::string>& identifiers) const VELQUIST_REQUIRES(mutex_) {
    if (failure_) return *failure_;
    platform::SKProductsResponse response;
    std::unordered_set<std::string> unknown = identifiers;
    for (const auto& product : catalogue_) {
      if (unknown.erase(product.productIdentifier) > 0) response.products.push_back(product);
    }
    response.invalidProductIdentifiers.assign(unknown.begin(), unknown.end());
    return response;
  }

  mutable support::Mutex mutex_;
  std::vector<platform::SKProduct> catalogue_ VELQUIST_GUARDED_BY(mutex_);
  std::optional<platform::SKError> failure_ VELQUIST_GUARDED_BY(mutex_);
  std::optional<platform::SKStorefront> storefront_ VELQUIST_GUARDED_BY(mutex_);
  bool holding_ VELQUIST_GUARDED_BY(mutex_) = false;
  std::vector<std::function<void()>> held_ VELQUIST_GUARDED_BY(mutex_);
  std::vector<std::unordered_set<std::string>> requests_ VELQUIST_GUARDED_BY(mutex_);
  std::size_t cancelled_ VELQUIST_GUARDED_BY(mutex_) = 0;
  std::vector<platform::SKPayment> payments_ VELQUIST_GUARDED_BY(mutex_);
  std::vector<std::thread> answering_ VELQUIST_GUARDED_BY(mutex_);
};

/// Installs `backend` as the process-wide store backend for a scope, then removes it.
class StoreBackendScope {
 public:
  explicit StoreBackendScope(std::shared_ptr<platform::StoreBackend> b) { platform::setDefaultStoreBackend(std::move(b)); }
  ~StoreBackendScope() { platform::setDefaultStoreBackend(nullptr); }
  StoreBackendScope(const StoreBackendScope&) = delete;
  StoreBackendScope& operator=(const StoreBackendScope&) = delete;
};

}  // namespace velquist::testing
