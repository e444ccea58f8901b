#include "velquist/platform/sk_payment_queue.h"

#include <algorithm>

#include "velquist/platform/store_backend.h"

namespace velquist::platform {

void SKPaymentTransactionObserver::removedTransactions(SKPaymentQueue&, const SKPaymentQueue::Transactions&) {}
void SKPaymentTransactionObserver::restoreCompletedTransactionsFinished(SKPaymentQueue&) {}
void SKPaymentTransactionObserver::restoreCompletedTransactionsFailed(SKPaymentQueue&, const SKError&) {}
void SKPaymentTransactionObserver::didRevokeEntitlementsForProductIdentifiers(SKPaymentQueue&,
                                                                              const std::vector<std::string>&) {}
void SKPaymentTransactionObserver::storefrontDidChange(SKPaymentQueue&) {}

bool SKPaymentQueueDelegate::shouldShowPriceConsent(SKPaymentQueue&) { return true; }

SKPaymentQueue& SKPaymentQueue::defaultQueue() {
  // Never destroyed: a store may still report from a background worker while the process
  // exits, after static objects are gone.
  static SKPaymentQueue* const queue = new SKPaymentQueue;
  return *queue;
}

void SKPaymentQueue::addTransactionObserver(const std::shared_ptr<SKPaymentTransactionObserver>& observer) {
  if (!observer) return;
  {
    support::LockGuard lock(mutex_);
    // Dropping the dead entries first means a new observer at a dead one's address is new.
    std::erase_if(observers_, [](const auto& entry) { return entry.expired(); });
    const bool known = std::ranges::any_of(observers_, [&](const auto& entry) { return entry.lock() == observer; });
    if (known) return;
    observers_.push_back(observer);
  }
  if (auto backend = defaultStoreBackend()) backend->transactionObserverAdded();
}

void SKPaymentQueue::removeTransactionObserver(const std::shared_ptr<SKPaymentTransactionObserver>& observer) {
  support::LockGuard lock(mutex_);
  std::erase_if(observers_, [&](const auto& entry) {
    const auto alive = entry.lock();
    return !alive || alive == observer;
  });
}

std::vector<std::shared_ptr<SKPaymentTransactionObserver>> SKPaymentQueue::transactionObservers() const {
  std::vector<std::shared_ptr<SKPaymentTransactionObserver>> alive;
  support::LockGuard lock(mutex_);
  for (const auto& entry : observers_) {
    if (auto observer = entry.lock()) alive.push_back(std::move(observer));
  }
  return alive;
}

void SKPaymentQueue::add(const SKPayment& payment) {
  if (auto backend = defaultStoreBackend()) {
    backend->addPayment(payment);
    return;
  }
  auto transaction = std::make_shared<SKPaymentTransaction>(
      payment, SKPaymentTransaction::Progress{.state = SKPaymentTransactionState::failed,
                                              .error = SKError::noStoreBackend()});
  reportUpdatedTransactions({transaction});
}

void SKPaymentQueue::finishTransaction(const std::shared_ptr<SKPaymentTransaction>& transaction) {
  if (!transaction) return;
  if (auto backend = defaultStoreBackend()) backend->finishTransaction(transaction);
}

void SKPaymentQueue::restoreCompletedTransactions(const std::optional<std::string>& applicationUsername) {
  if (auto backend = defaultStoreBackend()) {
    backend->restoreCompletedTransactions(applicationUsername);
    return;
  }
  reportRestoreCompletedTransactionsFailed(SKError::noStoreBackend());
}

std::optional<SKStorefront> SKPaymentQueue::storefront() const {
  const auto backend = defaultStoreBackend();
  return backend ? backend->storefront() : std::nullopt;
}

void SKPaymentQueue::setDelegate(const std::shared_ptr<SKPaymentQueueDelegate>& delegate) {
  support::LockGuard lock(mutex_);
  delegate_ = delegate;
}

std::shared_ptr<SKPaymentQueueDelegate> SKPaymentQueue::delegate() const {
  support::LockGuard lock(mutex_);
  return delegate_.lock();
}

void SKPaymentQueue::showPriceConsentIfNeeded() {
  if (auto backend = defaultStoreBackend()) backend->showPriceConsentIfNeeded();
}

bool SKPaymentQueue::shouldShowPriceConsent() {
  const auto current = delegate();
  return !current || current->shouldShowPriceConsent(*this);
}

void SKPaymentQueue::reportUpdatedTransactions(const Transactions& transactions) {
  for (const auto& observer : transactionObservers()) observer->updatedTransactions(*this, transactions);
}

void SKPaymentQueue::reportRemovedTransactions(const Transactions& transactions) {
  for (const auto& observer : transactionObservers()) observer->removedTransactions(*this, transactions);
}

void SKPaymentQueue::reportRestoreCompletedTransactionsFinished() {
  for (const auto& observer : transactionObservers()) observer->restoreCompletedTransactionsFinished(*this);
}

void SKPaymentQueue::reportRestoreCompletedTransactionsFailed(const SKError& error) {
  for (const auto& observer : transactionObservers()) observer->restoreCompletedTransactionsFailed(*this, error);
}

void SKPaymentQueue::reportDidRevokeEntitlements(const std::vector<std::string>& productIdentifiers) {
  for (const auto& observer : transactionObservers()) {
    observer->didRevokeEntitlementsForProductIdentifiers(*this, productIdentifiers);
  }
}

void SKPaymentQueue::reportStorefrontDidChange() {
  for (const auto& observer : transactionObservers()) observer->storefrontDidChange(*this);
}

}  // namespace velquist::platform
