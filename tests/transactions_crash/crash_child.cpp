// The crash test's child: `crash_child <tag>` follows purchases with the live transaction
// queue (over the standard user defaults in $VELQUIST_HOME) and reports long batches through
// the scripted store until it is killed. The identifier remembered for every first purchase
// delivered is printed on a line of its own and flushed at once.

#include <cstdio>
#include <memory>
#include <string>

#include "common/scripted_store_backend.h"
#include "storekit/transaction_scenarios.h"
#include "velquist/logging/logger.h"

namespace {

using namespace velquist;

struct PrintingListener final : storekit::TransactionQueueListener {
  void updated(const std::vector<storekit::Transaction>& transactions) override {
    for (const auto& record : transactions) {
      // Renewals never arrive here: a purchased record is a first purchase.
      if (record.transaction->transactionState() != platform::SKPaymentTransactionState::purchased) continue;
      std::printf("%s\n", storekit::originalTransactionID(*record.transaction).value_or(*record.id()).c_str());
      std::fflush(stdout);
    }
    delivered.put(transactions.size());
  }
  testing::Inbox<std::size_t> delivered;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return std::fprintf(stderr, "usage: crash_child <tag>\n"), 2;
  const std::string tag = argv[1];
  logging::setLogSink([](const logging::LogEntry&) {});
  const auto backend = std::make_shared<testing::ScriptedStoreBackend>();
  backend->setCatalogue(testing::catalogue());
  testing::StoreBackendScope scope(backend);
  const auto listener = std::make_shared<PrintingListener>();
  storekit::TransactionQueue::live()->add(listener);
  for (int b = 0; b < 200; ++b) {
    std::vector<testing::StoreTransaction> rows;
    for (int i = 0; i < 24; ++i) {
      testing::StoreTransaction& row = rows.emplace_back();
      row.id = tag + "-" + std::to_string(b) + "-" + std::to_string(i);
      if (i % 4 == 1 && b > 0) row.original = tag + "-" + std::to_string(b - 1) + "-0";  // a renewal
      if (i % 4 == 3) row.state = platform::SKPaymentTransactionState::failed;
    }
    platform::SKPaymentQueue::defaultQueue().reportUpdatedTransactions(testing::storeBatch(rows));
    listener->delivered.waitFor(static_cast<std::size_t>(b) + 1, "deliveries");
  }
  storekit::TransactionQueue::live()->remove(listener);
}
