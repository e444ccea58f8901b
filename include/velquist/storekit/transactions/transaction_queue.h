#pragma once

#include "velquist/export.h"
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "velquist/foundation/user_defaults.h"
#include "velquist/platform/sk_payment_queue.h"
#include "velquist/platform/sk_product.h"
#include "velquist/storekit/transactions/transaction.h"
#include "velquist/support/mutex.h"
#include "velquist/support/queue_scheduler.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// The key under which both ways of following purchases keep the original transaction
/// identifiers already seen, joined with `originalTransactionIDsDelimiter`.
inline constexpr std::string_view originalTransactionIDsKey =
    "com.velquist-core.PaymentQueueObserver.originalTransactionIDs";
inline constexpr char originalTransactionIDsDelimiter = ',';

/// The identifiers joined with the delimiter, in the set's order (no escaping).
std::string joinOriginalTransactionIDs(const std::unordered_set<std::string>& identifiers);
/// The pieces between delimiters, empty pieces left out: ",a,,b," gives {a, b}; "" gives {}.
std::unordered_set<std::string> splitOriginalTransactionIDs(std::string_view text);

class LoggingTransactionListener;

/// Something that wants the purchases `TransactionQueue` lets through. Listeners are told
/// apart by identity (the object), so they are held by `std::shared_ptr`.
class TransactionQueueListener {
 public:
  virtual ~TransactionQueueListener() = default;

  /// One processed batch, in the store's order (it may be empty: renewals are dropped).
  /// Called on the queue's serial scheduler, one batch after the other.
  virtual void updated(const std::vector<Transaction>& transactions) = 0;

  /// A new listener that logs every record (logging_transaction_listener.h); a new object
  /// on every call.
  static std::shared_ptr<LoggingTransactionListener> logging();
};

/// The persisted set of original transaction identifiers already seen, kept as one text
/// value under `originalTransactionIDsKey` in the given user defaults. An empty set is
/// written as the empty text.
///
///     TransactionQueueListenerState state(std::make_shared<foundation::InMemoryUserDefaults>());
///     state.setOriginalTransactionIDs({"T1", "T2"});  // stores "T1,T2" or "T2,T1"
///     state.containsOriginalTransactionID("T1");      // true
///
/// Every question reads the stored value afresh, so a change made meanwhile through the
/// defaults is seen; the parsed set is kept between questions and made again only when the
/// defaults' `changeCount` has moved, so asking costs the same however large the set is.
///
/// Thread-safety: as safe as the defaults (the library's are), and copies may be used from
/// any thread; a read-change-write sequence is not atomic.
class TransactionQueueListenerState {
 public:
  explicit TransactionQueueListenerState(std::shared_ptr<foundation::UserDefaults> userDefaults);

  std::unordered_set<std::string> originalTransactionIDs() const;
  void setOriginalTransactionIDs(const std::unordered_set<std::string>& identifiers);

  /// Whether the stored set holds `identifier`.
  bool containsOriginalTransactionID(const std::string& identifier) const;
  /// Writes the stored set with `identifier` added, or removed.
  void insertOriginalTransactionID(const std::string& identifier);
  void eraseOriginalTransactionID(const std::string& identifier);

 private:
  struct Parsed;
  std::shared_ptr<const std::unordered_set<std::string>> current() const;
  void store(std::shared_ptr<std::unordered_set<std::string>> identifiers);

  std::shared_ptr<foundation::UserDefaults> userDefaults_;
  std::shared_ptr<Parsed> parsed_;
};

/// Follows purchases for listeners. While it has at least one listener it observes the
/// store's default payment queue; for every batch of updated store transactions it fetches
/// the products concerned (`productsProducer`), builds the records, and classifies every
/// purchased one against the persisted set:
///
/// - an original identifier already in the set: a renewal, dropped;
/// - otherwise a first purchase, whose original identifier (or its own, without an
///   original) joins the set;
/// - a trial start removes its original identifier, so the first paid renewal after the
///   trial counts as a first purchase again.
///
/// Records in other states pass unchanged. Every listener then gets the kept records, also
/// when none were kept. A batch whose products request fails is dropped without a word.
/// It never finishes store transactions: that stays with the host.
///
///     TransactionQueue::live()->add(TransactionQueueListener::logging());
///
/// Everything it logs goes to the log "velquist.store-kit.transaction-listener" /
/// "StoreKit" at info level: "transactions updated, count 2", "handle transactions count 2
/// and products count 1", "handle transaction <dump of the record>", "handle transaction:
/// first purchase", "handle transaction: skip, reason: renewal", "handle transaction: start
/// trial".
///
/// Thread-safety: `add` and `remove` may be called from any thread, also from a listener
/// while a batch is delivered; a batch goes to the listeners registered when its delivery
/// begins. When two threads change the listeners at once, the store registration may be
/// completed by the other thread just after `add` or `remove` returns. Batches are handled
/// one after the other on the serial scheduler "velquist.store-kit.transaction-listener",
/// which all queues share. Listeners and the payment queue are called with no lock held.
class TransactionQueue final : public platform::SKPaymentTransactionObserver,
                               public std::enable_shared_from_this<TransactionQueue> {
 public:
  /// The queue the library offers: made on first use over the standard user defaults, kept
  /// until the process ends.
  static const std::shared_ptr<TransactionQueue>& live();

  /// A queue of its own over the given state (for tests, benchmarks, and hosts that keep
  /// their own defaults). Like `live`, it observes the default payment queue while it has
  /// listeners.
  static std::shared_ptr<TransactionQueue> make(TransactionQueueListenerState state);

  /// A queue is always made over a state; use `live()` or `make`.
  TransactionQueue() = delete;
  TransactionQueue(const TransactionQueue&) = delete;
  TransactionQueue& operator=(const TransactionQueue&) = delete;

  /// Registers `listener` (again: still one entry) and starts observing the store if this
  /// is the first.
  void add(const std::shared_ptr<TransactionQueueListener>& listener);
  /// Unregisters `listener` if it was registered, and stops observing the store when no
  /// listener is left.
  void remove(const std::shared_ptr<TransactionQueueListener>& listener);
  /// Whether the queue observes the store's payment queue right now.
  bool isListeningTransactions() const;

  /// The store's report of a batch: logs it and starts the products request.
  void updatedTransactions(platform::SKPaymentQueue& queue, const platform::SKPaymentQueue::Transactions& transactions)
      override;

 private:
  explicit TransactionQueue(TransactionQueueListenerState state);

  void handle(const platform::SKPaymentQueue::Transactions& transactions,
              const std::vector<platform::SKProduct>& products);
  std::optional<Transaction> handle(Transaction transaction);
  std::vector<std::shared_ptr<TransactionQueueListener>> currentListeners() const;

  // Brings the store registration in line with the map (see the .cpp).
  void updateRegistration() VELQUIST_EXCLUDES(mutex_);

  mutable support::Mutex mutex_;
  bool isListeningTransactions_ VELQUIST_GUARDED_BY(mutex_) = false;
  bool isUpdatingRegistration_ VELQUIST_GUARDED_BY(mutex_) = false;
  std::unordered_map<const TransactionQueueListener*, std::shared_ptr<TransactionQueueListener>> listeners_
      VELQUIST_GUARDED_BY(mutex_);
  // Used only on the scheduler.
  TransactionQueueListenerState state_;
};

}  // namespace velquist::storekit
VELQUIST_API_END
