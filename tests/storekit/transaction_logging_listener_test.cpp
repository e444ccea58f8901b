#include "velquist/storekit/transactions/logging_transaction_listener.h"

#include <gtest/gtest.h>

#include "common/scripted_store_backend.h"
#include "storekit/transaction_scenarios.h"
#include "velquist/logging/log_capture.h"

namespace velquist::storekit {
namespace {

using platform::SKPaymentTransactionState;
using logging::LogLevel;

constexpr std::string_view subsystem = "velquist.SDK.transaction-listener";

struct Line {
  LogLevel level;
  std::string message;
  friend bool operator==(const Line&, const Line&) = default;
};

std::ostream& operator<<(std::ostream& out, const Line& line) { return out << name(line.level) << ": " << line.message; }

std::vector<Line> linesOf(const logging::LogCapture& capture) {
  std::vector<Line> lines;
  for (const auto& entry : capture.entries()) {
    EXPECT_EQ(entry.subsystem, subsystem);
    EXPECT_EQ(entry.category, "Purchases");
    lines.push_back({entry.level, entry.message});
  }
  return lines;
}

// The message of one record: the literal placeholder stays, then the dictionary's dump.
std::string expectedMessage(const char* words, const Transaction& record) {
  return std::string(words) + "\n%{public}@\n[\n  \"transaction\": " +
         [&] {
           std::string dump = record.description(), indented;
           for (char c : dump) indented += c == '\n' ? std::string("\n  ") : std::string(1, c);
           return indented;
         }() +
         "\n]";
}

TEST(LoggingTransactionListener, OneLinePerRecordFailedOnesAtErrorLevel) {
  using S = SKPaymentTransactionState;
  const struct {
    std::string name;
    std::vector<S> states;
    std::vector<LogLevel> levels;
  } examples[] = {
      {"empty batch", {}, {}},
      {"second failed", {S::purchased, S::failed, S::restored}, {LogLevel::info, LogLevel::error, LogLevel::info}},
      {"every other state", {S::purchasing, S::deferred, S{9}, S{-2}},
       {LogLevel::info, LogLevel::info, LogLevel::info, LogLevel::info}},
  };
  for (const auto& example : examples) {
    std::vector<Transaction> batch;
    std::vector<Line> expected;
    for (std::size_t i = 0; i < example.states.size(); ++i) {
      batch.push_back({.transaction = testing::makeStoreTransaction({.state = example.states[i], .id = "T" + std::to_string(i)})});
      expected.push_back({example.levels[i], expectedMessage(example.levels[i] == LogLevel::error ? "transaction failure"
                                                                                                   : "transaction updated",
                                                             batch.back())});
    }
    logging::LogCapture capture;
    LoggingTransactionListener().updated(batch);
    EXPECT_EQ(linesOf(capture), expected) << example.name;
  }
}

TEST(LoggingTransactionListener, ExactTextOfOneRecord) {
  logging::LogCapture capture;
  TransactionQueueListener::logging()->updated({{.transaction = testing::makeStoreTransaction({.id = "T1"})}});
  EXPECT_EQ(linesOf(capture), (std::vector<Line>{{LogLevel::info,
                                                  "transaction updated\n"
                                                  "%{public}@\n"
                                                  "[\n"
                                                  "  \"transaction\": Transaction(\n"
                                                  "    transaction: SKPaymentTransaction(\n"
                                                  "      transactionIdentifier: \"T1\",\n"
                                                  "      transactionState: SKPaymentTransactionState.purchased,\n"
                                                  "      productIdentifier: \"pro.monthly\",\n"
                                                  "      originalTransaction: nil\n"
                                                  "    ),\n"
                                                  "    product: nil,\n"
                                                  "    isStartTrial: false\n"
                                                  "  )\n"
                                                  "]"}}));
  EXPECT_NE(TransactionQueueListener::logging(), TransactionQueueListener::logging());  // a new one each time
}

// Tells the test about every batch.
class RecordingListener final : public TransactionQueueListener {
 public:
  void updated(const std::vector<Transaction>& transactions) override { batches.put(transactions); }
  testing::Inbox<std::vector<Transaction>> batches;
};

TEST(LoggingTransactionListener, LogsWhatTheQueueDelivers) {
  const auto backend = std::make_shared<testing::ScriptedStoreBackend>();
  testing::StoreBackendScope scope(backend);
  backend->setCatalogue(testing::catalogue());
  const auto queue = TransactionQueue::make(TransactionQueueListenerState(std::make_shared<foundation::InMemoryUserDefaults>()));
  const auto logger = TransactionQueueListener::logging();
  const auto recorder = std::make_shared<RecordingListener>();
  queue->add(logger), queue->add(recorder);
  logging::LogCapture capture;
  auto& store = platform::SKPaymentQueue::defaultQueue();
  store.reportUpdatedTransactions({testing::makeStoreTransaction({.state = SKPaymentTransactionState::failed, .id = "F1"})});
  backend->waitForAnswers();
  store.reportUpdatedTransactions({});
  // Batches are delivered one after the other, so the first one's lines are all written.
  const auto delivered = recorder->batches.waitFor(2);
  queue->remove(logger), queue->remove(recorder);
  ASSERT_EQ(delivered.at(0).size(), 1u);
  const auto messages = capture.messages(subsystem, "Purchases");
  EXPECT_EQ(messages, std::vector<std::string>{expectedMessage("transaction failure", delivered[0][0])});
}

}  // namespace
}  // namespace velquist::storekit
