#pragma once

#include "velquist/export.h"
#include <vector>

#include "velquist/storekit/transactions/transaction_queue.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// A listener that writes every record of every batch to the log
/// "velquist.SDK.transaction-listener" / "Purchases": failed transactions at error level,
/// all others at info level, one entry per record, nothing for an empty batch. Each entry
/// has the format "%{public}@\n%{public}@" with the message and the dump of a one-entry
/// dictionary; the message itself carries a literal, never substituted "%{public}@":
///
///     transaction updated
///     %{public}@
///     [
///       "transaction": Transaction(
///         transaction: SKPaymentTransaction(
///           ...
///         ),
///         product: nil,
///         isStartTrial: false
///       )
///     ]
///
/// (at error level the first line reads "transaction failure").
///
/// Stateless; `updated` may be called from any thread.
class LoggingTransactionListener final : public TransactionQueueListener {
 public:
  LoggingTransactionListener() = default;

  void updated(const std::vector<Transaction>& transactions) override;
};

}  // namespace velquist::storekit
VELQUIST_API_END
