#pragma once

#include "velquist/export.h"
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "velquist/platform/sk_payment_queue.h"
#include "velquist/storekit/transactions/transaction.h"
#include "velquist/support/async_stream.h"
#include "velquist/usersettings/user_settings_client.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// The store's own stream of transaction batches: every read registers a new observer with
/// the default payment queue, which passes each batch it hears, as received, into the
/// stream. When the stream ends (its consumer destroys it, or its stop token fires) the
/// observer is unregistered.
///
///     auto updates = storeTransactionUpdates();
///     while (auto batch = updates.next(stop)) inspect(*batch);
///
/// Thread-safety: may be called from any thread; the stream has one consumer. No thread
/// waits on the stream's behalf.
support::AsyncStream<platform::SKPaymentQueue::Transactions> storeTransactionUpdates();

/// The set of original transaction identifiers kept through a user settings client, as the
/// UTF-8 bytes of the identifiers joined with "," under `originalTransactionIDsKey`.
/// Nothing stored, or bytes that are not UTF-8, read as the empty set.
std::unordered_set<std::string> originalTransactionIDs(const usersettings::UserSettingsClient& userSettings);
/// Stores the whole set (the empty set as empty bytes); returns once the client has it.
void setOriginalTransactionIDs(const usersettings::UserSettingsClient& userSettings,
                               const std::unordered_set<std::string>& identifiers);

/// Follows purchases as a stream of batches. Each read of `updates` starts an observation
/// of its own: for every batch of store transactions the store reports, it fetches the
/// products concerned, builds the records, drops renewals of subscriptions already seen
/// (kept through the user settings client), and yields the rest as one batch, empty
/// batches included. A first purchase remembers its original identifier (its own without
/// an original); a trial start forgets it, so the first paid renewal after a trial counts
/// as a first purchase. Records in other states pass unchanged. A failed products request
/// is logged and the batch is handled without products (no trial is recognised then).
///
///     PaymentQueue queue(usersettings::UserSettingsClient::live());
///     auto updates = queue.updates();
///     while (auto batch = updates.next()) show(*batch);
///
/// Each observation keeps going after its consumer has gone (the batches are handled and
/// dropped), for the rest of the process; it costs no thread while idle or while a
/// products request is pending: the store's callback starts the work on a serial scheduler
/// of the observation's own. Within one observation batches are handled one after the
/// other in arrival order; two observations handle every batch independently. It never
/// finishes store transactions.
///
/// Log "VelquistSDK.PaymentQueue" / "StoreKit": "fetch products success" (info), "fetch
/// products failure" with the dump of ["error": <the error>] (error), "filter transaction"
/// with the dump of ["reason": "renewal", "result": "filtered"], "filter transaction: 1st
/// purchase" and "filter transaction: start trial" (info).
///
/// Thread-safety: `updates` may be called from any thread; each stream has one consumer.
class PaymentQueue {
 public:
  /// A queue needs its user settings client.
  PaymentQueue() = delete;
  explicit PaymentQueue(usersettings::UserSettingsClient userSettings);

  const usersettings::UserSettingsClient& userSettings() const { return userSettings_; }

  /// A new stream of processed batches over a new observation (see above).
  support::AsyncStream<std::vector<Transaction>> updates() const;

 private:
  usersettings::UserSettingsClient userSettings_;
};

namespace detail {
/// Ends every observation started by `PaymentQueue::updates` so far: unregisters its
/// observer and finishes its stream; a batch being handled is still handled, but no new
/// one. For test programs, which make many observations in one process.
void endPaymentQueueObservations();
}  // namespace detail

}  // namespace velquist::storekit
VELQUIST_API_END
