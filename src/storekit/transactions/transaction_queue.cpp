#include "velquist/storekit/transactions/transaction_queue.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "velquist/logging/logger.h"
#include "velquist/storekit/store/product_request.h"

namespace velquist::storekit {
namespace {

using platform::SKPaymentTransactionState;
using Transactions = platform::SKPaymentQueue::Transactions;

const logging::Logger& log() {
  static const logging::Logger& logger = logging::Logger::named("velquist.store-kit.transaction-listener", "StoreKit");
  return logger;
}

// Where every queue handles its batches, one after the other.
const support::QueueScheduler& scheduler() {
  static const support::QueueScheduler queue("velquist.store-kit.transaction-listener");
  return queue;
}

}  // namespace

std::string joinOriginalTransactionIDs(const std::unordered_set<std::string>& identifiers) {
  std::string text;
  for (const auto& identifier : identifiers) {
    if (!text.empty()) text += originalTransactionIDsDelimiter;
    text += identifier;
  }
  return text;
}

std::unordered_set<std::string> splitOriginalTransactionIDs(std::string_view text) {
  std::unordered_set<std::string> identifiers;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(originalTransactionIDsDelimiter), text.size());
    if (end > 0) identifiers.emplace(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return identifiers;
}

// The set as last parsed, and the defaults' change count it was parsed at.
struct TransactionQueueListenerState::Parsed {
  std::mutex mutex;
  std::optional<std::uint64_t> changeCount;
  std::shared_ptr<const std::unordered_set<std::string>> identifiers;
};

TransactionQueueListenerState::TransactionQueueListenerState(std::shared_ptr<foundation::UserDefaults> userDefaults)
    : userDefaults_(std::move(userDefaults)), parsed_(std::make_shared<Parsed>()) {}

std::shared_ptr<const std::unordered_set<std::string>> TransactionQueueListenerState::current() const {
  const std::uint64_t changeCount = userDefaults_->changeCount();
  {
    std::lock_guard lock(parsed_->mutex);
    if (parsed_->changeCount == changeCount) return parsed_->identifiers;
  }
  const auto text = userDefaults_->stringForKey(originalTransactionIDsKey);
  auto identifiers = std::make_shared<const std::unordered_set<std::string>>(
      text ? splitOriginalTransactionIDs(*text) : std::unordered_set<std::string>{});
  std::lock_guard lock(parsed_->mutex);
  parsed_->changeCount = changeCount;
  parsed_->identifiers = identifiers;
  return identifiers;
}

void TransactionQueueListenerState::store(std::shared_ptr<std::unordered_set<std::string>> identifiers) {
  const std::uint64_t before = userDefaults_->changeCount();
  userDefaults_->setString(joinOriginalTransactionIDs(*identifiers), originalTransactionIDsKey);
  const std::uint64_t after = userDefaults_->changeCount();
  std::lock_guard lock(parsed_->mutex);
  // Kept only when no other change came between: the next question then needs no parse.
  if (after == before + 1) {
    parsed_->changeCount = after;
    parsed_->identifiers = std::move(identifiers);
  } else {
    parsed_->changeCount.reset();
  }
}

std::unordered_set<std::string> TransactionQueueListenerState::originalTransactionIDs() const { return *current(); }

void TransactionQueueListenerState::setOriginalTransactionIDs(const std::unordered_set<std::string>& identifiers) {
  store(std::make_shared<std::unordered_set<std::string>>(identifiers));
}

bool TransactionQueueListenerState::containsOriginalTransactionID(const std::string& identifier) const {
  return current()->contains(identifier);
}

void TransactionQueueListenerState::insertOriginalTransactionID(const std::string& identifier) {
  auto identifiers = std::make_shared<std::unordered_set<std::string>>(*current());
  identifiers->insert(identifier);
  store(std::move(identifiers));
}

void TransactionQueueListenerState::eraseOriginalTransactionID(const std::string& identifier) {
  auto identifiers = std::make_shared<std::unordered_set<std::string>>(*current());
  identifiers->erase(identifier);
  store(std::move(identifiers));
}

const std::shared_ptr<TransactionQueue>& TransactionQueue::live() {
  static const std::shared_ptr<TransactionQueue> queue =
      make(TransactionQueueListenerState(foundation::UserDefaults::standard()));
  return queue;
}

std::shared_ptr<TransactionQueue> TransactionQueue::make(TransactionQueueListenerState state) {
  return std::shared_ptr<TransactionQueue>(new TransactionQueue(std::move(state)));
}

TransactionQueue::TransactionQueue(TransactionQueueListenerState state) : state_(std::move(state)) {}

void TransactionQueue::add(const std::shared_ptr<TransactionQueueListener>& listener) {
  if (!listener) return;
  {
    support::LockGuard lock(mutex_);
    listeners_.insert_or_assign(listener.get(), listener);
  }
  updateRegistration();
}

void TransactionQueue::remove(const std::shared_ptr<TransactionQueueListener>& listener) {
  std::shared_ptr<TransactionQueueListener> released;  // let go of after the lock
  {
    support::LockGuard lock(mutex_);
    if (const auto found = listeners_.find(listener.get()); found != listeners_.end()) {
      released = std::move(found->second);
      listeners_.erase(found);
    }
  }
  updateRegistration();
}

// Observes the store exactly while the map has listeners. One thread at a time does the
// registering, with no lock held (the payment queue may report to observers from inside
// the call, and they may add or remove listeners): it goes on until the registration
// matches the map, so changes made meanwhile by other threads are not lost.
void TransactionQueue::updateRegistration() {
  {
    support::LockGuard lock(mutex_);
    if (isUpdatingRegistration_) return;
    isUpdatingRegistration_ = true;
  }
  for (;;) {
    bool observe = false;
    {
      support::LockGuard lock(mutex_);
      observe = !listeners_.empty();
      if (observe == isListeningTransactions_) {
        isUpdatingRegistration_ = false;
        return;
      }
    }
    auto& store = platform::SKPaymentQueue::defaultQueue();
    if (observe) {
      store.addTransactionObserver(shared_from_this());
    } else {
      store.removeTransactionObserver(shared_from_this());
    }
    support::LockGuard lock(mutex_);
    isListeningTransactions_ = observe;
  }
}

bool TransactionQueue::isListeningTransactions() const {
  support::LockGuard lock(mutex_);
  return isListeningTransactions_;
}

std::vector<std::shared_ptr<TransactionQueueListener>> TransactionQueue::currentListeners() const {
  std::vector<std::shared_ptr<TransactionQueueListener>> listeners;
  support::LockGuard lock(mutex_);
  listeners.reserve(listeners_.size());
  for (const auto& [identity, listener] : listeners_) listeners.push_back(listener);
  return listeners;
}

void TransactionQueue::updatedTransactions(platform::SKPaymentQueue&, const Transactions& reported) {
  Transactions batch;  // a missing transaction is no transaction at all
  std::ranges::copy_if(reported, std::back_inserter(batch), [](const auto& transaction) { return transaction != nullptr; });
  log().info("transactions updated, count %{public}@", batch.size());
  std::vector<std::string> productIdentifiers;
  productIdentifiers.reserve(batch.size());
  for (const auto& transaction : batch) productIdentifiers.push_back(transaction->payment().productIdentifier);
  // A failed request drops the batch on purpose: nothing is delivered and nothing logged.
  productsProducer(productIdentifiers)
      .observeOn(scheduler())
      .start({.value = [weakSelf = weak_from_this(), batch](std::vector<platform::SKProduct> products) {
        if (const auto self = weakSelf.lock()) self->handle(batch, products);
      }});
}

void TransactionQueue::handle(const Transactions& batch, const std::vector<platform::SKProduct>& products) {
  log().info("handle transactions count %{public}@ and products count %{public}@", batch.size(), products.size());
  std::vector<Transaction> kept;
  for (const auto& transaction : batch) {
    if (auto classified = handle(makeTransaction(products, transaction))) kept.push_back(std::move(*classified));
  }
  for (const auto& listener : currentListeners()) listener->updated(kept);
}

std::optional<Transaction> TransactionQueue::handle(Transaction record) {
  log().info("handle transaction %{public}@", record.description());
  const auto originalID = originalTransactionID(*record.transaction);
  if (record.transaction->transactionState() != SKPaymentTransactionState::purchased) return record;

  if (record.isStartTrial) {
    log().info("handle transaction: start trial");
    if (!originalID) return record;
    // The first paid renewal after the trial then counts as a first purchase.
    state_.eraseOriginalTransactionID(*originalID);
    return record;
  }

  std::optional<std::string> remembered;
  if (originalID) {
    if (state_.containsOriginalTransactionID(*originalID)) {
      log().info("handle transaction: skip, reason: renewal");
      return std::nullopt;
    }
    log().info("handle transaction: first purchase");
    remembered = originalID;
  } else {
    log().info("handle transaction: first purchase");
    remembered = record.transaction->transactionIdentifier();
    if (!remembered) return record;
  }
  state_.insertOriginalTransactionID(*remembered);
  return record;
}

}  // namespace velquist::storekit
