#include "velquist/storekit/transactions/logging_transaction_listener.h"

#include <map>
#include <memory>
#include <string>

#include "velquist/logging/logger.h"

namespace velquist::storekit {

std::shared_ptr<LoggingTransactionListener> TransactionQueueListener::logging() {
  return std::make_shared<LoggingTransactionListener>();
}

void LoggingTransactionListener::updated(const std::vector<Transaction>& transactions) {
  static const logging::Logger& log = logging::Logger::named("velquist.SDK.transaction-listener", "Purchases");
  for (const auto& transaction : transactions) {
    const std::map<std::string, Transaction> entry{{"transaction", transaction}};
    const bool failed =
        transaction.transaction && transaction.transaction->transactionState() == platform::SKPaymentTransactionState::failed;
    // The "%{public}@" in the messages is part of the text: it is an argument, not the format.
    if (failed) {
      log.errorDump("transaction failure\n%{public}@", entry);
    } else {
      log.infoDump("transaction updated\n%{public}@", entry);
    }
  }
}

}  // namespace velquist::storekit
