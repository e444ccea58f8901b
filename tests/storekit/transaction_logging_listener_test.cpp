#include "velquist/storekit/transactions/logging_transaction_listener.h"

#include <gtest/gtest.h>

#include <tuple>

#include "storekit/transaction_scenarios.h"
#include "velquist/logging/log_capture.h"

namespace velquist::storekit {
namespace {

TEST(LoggingTransactionListener, OneEntryPerRecordFailedOnesAsErrors) {
  using S = platform::SKPaymentTransactionState;
  const std::tuple<S, std::string, std::string> rows[] = {  // state, its name, the entry's level and first line
      {S::purchased, "purchased", "info transaction updated"}, {S::failed, "failed", "error transaction failure"},
      {S::restored, "restored", "info transaction updated"},   {S::purchasing, "purchasing", "info transaction updated"},
      {S::deferred, "deferred", "info transaction updated"},   {S{9}, "unknown", "info transaction updated"},
  };
  std::vector<Transaction> batch;
  std::vector<std::string> expected;
  for (const auto& [state, stateName, start] : rows) {
    const std::string id = "T" + std::to_string(batch.size());
    batch.push_back({.transaction = testing::makeStoreTransaction({.state = state, .id = id})});
    expected.push_back(start + "\n%{public}@\n[\n  \"transaction\": Transaction(\n    transaction: SKPaymentTransaction(\n"
                       "      transactionIdentifier: \"" + id + "\",\n      transactionState: SKPaymentTransactionState." +
                       stateName + ",\n      productIdentifier: \"pro.monthly\",\n      originalTransaction: nil\n    ),\n"
                       "    product: nil,\n    isStartTrial: false\n  )\n]");
  }
  logging::LogCapture capture;
  TransactionQueueListener::logging()->updated({});
  TransactionQueueListener::logging()->updated(batch);
  std::vector<std::string> lines;
  for (const auto& entry : capture.entries()) {
    EXPECT_EQ(entry.subsystem + ":" + entry.category, "velquist.SDK.transaction-listener:Purchases");
    lines.push_back(std::string(name(entry.level)) + " " + entry.message);
  }
  EXPECT_EQ(lines, expected);
  EXPECT_NE(TransactionQueueListener::logging(), TransactionQueueListener::logging());  // a new one each time
}

}  // namespace
}  // namespace velquist::storekit
