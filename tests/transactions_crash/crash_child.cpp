// The child of the crash test: follows purchases with the live transaction queue (over the
// standard user defaults in $VELQUIST_HOME) and reports long batches through the scripted
// store until it is killed. Every first purchase delivered to its listener is printed on a
// line of its own and flushed at once, so the parent knows what was delivered before the
// kill.
//
//     crash_child <tag>   ids are "<tag>-<batch>-<index>"

#include <cstdio>
#include <memory>
#include <string>

#include "common/scripted_store_backend.h"
#include "storekit/transaction_scenarios.h"
#include "velquist/logging/logger.h"
#include "velquist/storekit/transactions/transaction_queue.h"

namespace {

using velquist::storekit::Transaction;

class PrintingListener final : public velquist::storekit::TransactionQueueListener {
 public:
  void updated(const std::vector<Transaction>& transactions) override {
    for (const auto& record : transactions) {
      if (record.transaction->transactionState() != velquist::platform::SKPaymentTransactionState::purchased) continue;
      // Renewals never arrive here: a purchased record is a first purchase.
      const auto remembered = velquist::storekit::originalTransactionID(*record.transaction).value_or(*record.id());
      std::printf("%s\n", remembered.c_str());
      std::fflush(stdout);
    }
    delivered.put(transactions.size());
  }
  velquist::testing::Inbox<std::size_t> delivered;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: crash_child <tag>\n");
    return 2;
  }
  const std::string tag = argv[1];
  velquist::logging::setLogSink([](const velquist::logging::LogEntry&) {});
  const auto backend = std::make_shared<velquist::testing::ScriptedStoreBackend>();
  backend->setCatalogue(velquist::testing::catalogue());
  velquist::testing::StoreBackendScope scope(backend);
  const auto listener = std::make_shared<PrintingListener>();
  velquist::storekit::TransactionQueue::live()->add(listener);

  using State = velquist::platform::SKPaymentTransactionState;
  constexpr int batches = 200, perBatch = 24;
  for (int b = 0; b < batches; ++b) {
    velquist::platform::SKPaymentQueue::Transactions batch;
    for (int i = 0; i < perBatch; ++i) {
      const std::string id = tag + "-" + std::to_string(b) + "-" + std::to_string(i);
      velquist::testing::StoreTransaction row{.id = id};
      if (i % 4 == 1 && b > 0) row.original = tag + "-" + std::to_string(b - 1) + "-0";  // a renewal
      if (i % 4 == 3) row.state = State::failed;
      batch.push_back(velquist::testing::makeStoreTransaction(row));
    }
    velquist::platform::SKPaymentQueue::defaultQueue().reportUpdatedTransactions(batch);
    listener->delivered.waitFor(static_cast<std::size_t>(b) + 1);
  }
  velquist::storekit::TransactionQueue::live()->remove(listener);
  return 0;
}
