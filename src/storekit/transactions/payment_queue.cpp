#include "velquist/storekit/transactions/payment_queue.h"

#include <algorithm>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <utility>

#include "velquist/logging/logger.h"
#include "velquist/storekit/store/product_request.h"
#include "velquist/storekit/transactions/transaction_queue.h"
#include "velquist/support/cancellation_error.h"
#include "velquist/support/mutex.h"
#include "velquist/support/queue_scheduler.h"

namespace velquist::storekit {
namespace {

using platform::SKPaymentQueue;
using Transactions = SKPaymentQueue::Transactions;
using Bytes = usersettings::UserSettingsClient::Bytes;
using BatchStream = support::AsyncStream<std::vector<Transaction>>;

const logging::Logger& log() {
  static const logging::Logger& logger = logging::Logger::named("VelquistSDK.PaymentQueue", "StoreKit");
  return logger;
}

// Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(const Bytes& bytes) {
  std::size_t i = 0;
  while (i < bytes.size()) {
    const std::uint8_t lead = bytes[i];
    std::size_t length = 0;
    std::uint32_t low = 0;  // the smallest code point of that length
    std::uint32_t point = 0;
    if (lead < 0x80) {
      ++i;
      continue;
    } else if ((lead & 0xe0) == 0xc0) {
      length = 2, low = 0x80, point = lead & 0x1fu;
    } else if ((lead & 0xf0) == 0xe0) {
      length = 3, low = 0x800, point = lead & 0x0fu;
    } else if ((lead & 0xf8) == 0xf0) {
      length = 4, low = 0x10000, point = lead & 0x07u;
    } else {
      return false;
    }
    if (bytes.size() - i < length) return false;
    for (std::size_t k = 1; k < length; ++k) {
      if ((bytes[i + k] & 0xc0) != 0x80) return false;
      point = (point << 6) | (bytes[i + k] & 0x3fu);
    }
    if (point < low || point > 0x10ffff || (point >= 0xd800 && point <= 0xdfff)) return false;
    i += length;
  }
  return true;
}

// Hears the default payment queue's batches and passes each one on, as received.
class PaymentTransactionObserver final : public platform::SKPaymentTransactionObserver {
 public:
  using Receive = std::function<void(const Transactions&)>;

  explicit PaymentTransactionObserver(Receive receive) : receive_(std::move(receive)) {}

  void updatedTransactions(SKPaymentQueue&, const Transactions& transactions) override { receive_(transactions); }

 private:
  const Receive receive_;
};

std::unordered_set<std::string> identifiersIn(const std::optional<Bytes>& bytes) {
  if (!bytes || !isValidUtf8(*bytes)) return {};
  return splitOriginalTransactionIDs(std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size()));
}

// The stored set, read afresh every time but parsed again only when its bytes differ from
// those of the last read or write. Used on one observation's serial scheduler only.
class StoredIdentifiers {
 public:
  explicit StoredIdentifiers(usersettings::UserSettingsClient userSettings) : userSettings_(std::move(userSettings)) {}

  const std::unordered_set<std::string>& read() {
    auto bytes = userSettings_.data(std::string(originalTransactionIDsKey));
    if (!known_ || bytes != bytes_) {
      identifiers_ = identifiersIn(bytes);
      bytes_ = std::move(bytes);
      known_ = true;
    }
    return identifiers_;
  }

  void write(std::unordered_set<std::string> identifiers) {
    const std::string text = joinOriginalTransactionIDs(identifiers);
    bytes_ = Bytes(text.begin(), text.end());
    userSettings_.setData(bytes_, std::string(originalTransactionIDsKey));
    identifiers_ = std::move(identifiers);
    known_ = true;
  }

 private:
  const usersettings::UserSettingsClient userSettings_;
  bool known_ = false;
  std::optional<Bytes> bytes_;
  std::unordered_set<std::string> identifiers_;
};

// Whether to keep one record, changing the stored set as the record requires.
bool filter(const Transaction& record, StoredIdentifiers& stored) {
  if (!record.transaction) return true;
  const auto originalID = originalTransactionID(*record.transaction);
  if (record.transaction->transactionState() != platform::SKPaymentTransactionState::purchased) return true;

  if (record.isStartTrial) {
    log().info("filter transaction: start trial");
    if (!originalID) return true;
    // The first paid renewal after the trial then counts as a first purchase.
    auto identifiers = stored.read();
    identifiers.erase(*originalID);
    stored.write(std::move(identifiers));
    return true;
  }

  if (originalID && stored.read().contains(*originalID)) {
    log().infoDump("filter transaction", std::map<std::string, std::string>{{"result", "filtered"}, {"reason", "renewal"}});
    return false;
  }
  log().info("filter transaction: 1st purchase");
  const auto remembered = originalID ? originalID : record.transaction->transactionIdentifier();
  if (!remembered) return true;
  auto identifiers = stored.read();
  identifiers.insert(*remembered);
  stored.write(std::move(identifiers));
  return true;
}

// The dump of a failed request's error: the store's error as the platform's error object,
// a cancellation as `CancellationError()`, anything else by its text.
support::DumpValue errorDump(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const platform::SKError& storeError) {
    return platform::customDumpValue(storeError);
  } catch (const support::CancellationError&) {
    return support::DumpValue::structure("CancellationError", {});
  } catch (const std::exception& other) {
    return support::DumpValue::structure("Error", {{"description", support::dumpValue(std::string(other.what()))}});
  } catch (...) {
    return support::DumpValue::structure("Error", {});
  }
}

// One observation started by `updates`: the store's batches queue up here and are handled
// one at a time on the observation's serial scheduler. The work is driven by callbacks (the
// store's report, the products request's answer), so nothing waits while idle.
class Observation final : public std::enable_shared_from_this<Observation> {
 public:
  Observation(usersettings::UserSettingsClient userSettings, BatchStream::Continuation output)
      : userSettings_(std::move(userSettings)), stored_(userSettings_), output_(std::move(output)) {}

  // Registers with the store; from then on every reported batch is handled.
  void begin() {
    observer_ = std::make_shared<PaymentTransactionObserver>(
        [weakSelf = weak_from_this()](const Transactions& transactions) {
          if (const auto self = weakSelf.lock()) self->receive(transactions);
        });
    SKPaymentQueue::defaultQueue().addTransactionObserver(observer_);
  }

  void end() {
    SKPaymentQueue::defaultQueue().removeTransactionObserver(observer_);
    {
      support::LockGuard lock(mutex_);
      ended_ = true;
      pending_.clear();
    }
    output_.finish();
  }

 private:
  void receive(const Transactions& transactions) VELQUIST_EXCLUDES(mutex_) {
    {
      support::LockGuard lock(mutex_);
      if (ended_) return;
      pending_.push_back(transactions);
      if (busy_) return;
      busy_ = true;
    }
    scheduler_.schedule([self = shared_from_this()] { self->handleNext(); });
  }

  // On the scheduler: starts on the oldest waiting batch, or goes idle.
  void handleNext() VELQUIST_EXCLUDES(mutex_) {
    Transactions batch;
    {
      support::LockGuard lock(mutex_);
      if (pending_.empty()) {
        busy_ = false;
        return;
      }
      batch = std::move(pending_.front());
      pending_.pop_front();
    }
    std::erase(batch, nullptr);  // a missing transaction is no transaction at all
    std::vector<std::string> productIdentifiers;
    productIdentifiers.reserve(batch.size());
    for (const auto& transaction : batch) productIdentifiers.push_back(transaction->payment().productIdentifier);
    // Exactly one of the handlers below acts, once, on the scheduler.
    auto answered = std::make_shared<bool>(false);
    const auto fail = [self = shared_from_this(), batch, answered](std::exception_ptr error) {
      if (std::exchange(*answered, true)) return;
      log().errorDump("fetch products failure", std::map<std::string, support::DumpValue>{{"error", errorDump(error)}});
      self->transform(batch, {});
    };
    productsProducer(productIdentifiers)
        .observeOn(scheduler_)
        .start({
            .value =
                [self = shared_from_this(), batch, answered](std::vector<platform::SKProduct> products) {
                  if (std::exchange(*answered, true)) return;
                  log().info("fetch products success");
                  self->transform(batch, products);
                },
            .failed = fail,
            .completed = [fail] { fail(std::make_exception_ptr(support::CancellationError())); },
            .interrupted = [fail] { fail(std::make_exception_ptr(support::CancellationError())); },
        });
  }

  // On the scheduler: the batch's records, filtered one after the other, as one element.
  void transform(const Transactions& batch, const std::vector<platform::SKProduct>& products) {
    std::vector<Transaction> kept;
    for (const auto& transaction : batch) {
      auto record = makeTransaction(products, transaction);
      if (filter(record, stored_)) kept.push_back(std::move(record));
    }
    output_.yield(std::move(kept));  // dropped when the consumer has gone
    handleNext();
  }

  const usersettings::UserSettingsClient userSettings_;
  StoredIdentifiers stored_;  // only on the scheduler
  const BatchStream::Continuation output_;
  const support::QueueScheduler scheduler_{"velquist.store-kit.payment-queue"};
  std::shared_ptr<PaymentTransactionObserver> observer_;  // set once by begin
  support::Mutex mutex_;
  std::deque<Transactions> pending_ VELQUIST_GUARDED_BY(mutex_);
  bool busy_ VELQUIST_GUARDED_BY(mutex_) = false;  // a batch is being handled
  bool ended_ VELQUIST_GUARDED_BY(mutex_) = false;
};

// Every observation lives until the process ends (or `endPaymentQueueObservations`).
class Observations {
 public:
  static Observations& shared() {
    static Observations& observations = *new Observations;  // never destroyed, like the observations
    return observations;
  }
  void keep(std::shared_ptr<Observation> observation) VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    observations_.push_back(std::move(observation));
  }
  std::vector<std::shared_ptr<Observation>> takeAll() VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    return std::exchange(observations_, {});
  }

 private:
  support::Mutex mutex_;
  std::vector<std::shared_ptr<Observation>> observations_ VELQUIST_GUARDED_BY(mutex_);
};

}  // namespace

support::AsyncStream<Transactions> storeTransactionUpdates() {
  return support::AsyncStream<Transactions>([](support::AsyncStream<Transactions>::Continuation continuation) {
    auto observer = std::make_shared<PaymentTransactionObserver>(
        [continuation](const Transactions& transactions) { continuation.yield(transactions); });
    SKPaymentQueue::defaultQueue().addTransactionObserver(observer);
    // The payment queue holds its observers weakly: this handler keeps the observer until
    // the stream ends, and then unregisters it.
    continuation.onTermination([observer] { SKPaymentQueue::defaultQueue().removeTransactionObserver(observer); });
  });
}

std::unordered_set<std::string> originalTransactionIDs(const usersettings::UserSettingsClient& userSettings) {
  return identifiersIn(userSettings.data(std::string(originalTransactionIDsKey)));
}

void setOriginalTransactionIDs(const usersettings::UserSettingsClient& userSettings,
                               const std::unordered_set<std::string>& identifiers) {
  const std::string text = joinOriginalTransactionIDs(identifiers);
  userSettings.setData(Bytes(text.begin(), text.end()), std::string(originalTransactionIDsKey));
}

PaymentQueue::PaymentQueue(usersettings::UserSettingsClient userSettings) : userSettings_(std::move(userSettings)) {}

BatchStream PaymentQueue::updates() const {
  return BatchStream([this](BatchStream::Continuation continuation) {
    auto observation = std::make_shared<Observation>(userSettings_, std::move(continuation));
    observation->begin();
    Observations::shared().keep(std::move(observation));
  });
}

void detail::endPaymentQueueObservations() {
  for (const auto& observation : Observations::shared().takeAll()) observation->end();
}

}  // namespace velquist::storekit
