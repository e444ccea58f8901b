#include "velquist/storekit/transactions/transaction_queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "common/scripted_store_backend.h"
#include "storekit/transaction_scenarios.h"
#include "velquist/logging/log_capture.h"

namespace velquist::storekit {
namespace {

using platform::SKPaymentQueue;
using testing::RecordingListener;
using Strings = std::vector<std::string>;
using Batch = std::vector<Transaction>;

constexpr std::string_view subsystem = "velquist.store-kit.transaction-listener";

bool observesStore(const std::shared_ptr<TransactionQueue>& queue) {
  const auto observers = SKPaymentQueue::defaultQueue().transactionObservers();
  return std::ranges::find(observers, queue) != observers.end();
}

std::set<std::string> stored(const foundation::UserDefaults& defaults) {
  const auto set = splitOriginalTransactionIDs(defaults.stringForKey(originalTransactionIDsKey).value_or(""));
  return {set.begin(), set.end()};
}

std::shared_ptr<TransactionQueue> makeQueue(std::shared_ptr<foundation::UserDefaults> defaults = nullptr) {
  if (!defaults) defaults = std::make_shared<foundation::InMemoryUserDefaults>();
  return TransactionQueue::make(TransactionQueueListenerState(std::move(defaults)));
}

class TransactionQueueTest : public ::testing::Test {
 protected:
  TransactionQueueTest() { backend->setCatalogue(testing::catalogue()); }
  std::shared_ptr<testing::ScriptedStoreBackend> backend = std::make_shared<testing::ScriptedStoreBackend>();
  testing::StoreBackendScope scope{backend};
};

TEST_F(TransactionQueueTest, ClassifiesEachPurchaseAgainstTheStoredSet) {
  const std::string lines[] = {"", "handle transaction: first purchase", "handle transaction: skip, reason: renewal",
                               "handle transaction: start trial"};
  for (const auto& scenario : testing::scenarios()) {
    SCOPED_TRACE(scenario.name);
    const auto defaults = std::make_shared<foundation::InMemoryUserDefaults>();
    if (scenario.stored) defaults->setString(*scenario.stored, originalTransactionIDsKey);
    const auto queue = makeQueue(defaults);
    const auto listener = std::make_shared<RecordingListener>(), other = std::make_shared<RecordingListener>();
    queue->add(listener), queue->add(other);
    const auto batch = testing::storeBatch(scenario.batch);
    const auto count = std::to_string(batch.size());
    Batch expected;
    Strings expectedLog = {"transactions updated, count " + count,
                           "handle transactions count " + count + " and products count " +
                               std::to_string(scenario.productsFound)};
    for (std::size_t i = 0; i < batch.size(); ++i) {
      const Transaction record = testing::expectedRecord(scenario.batch[i], batch[i]);
      expectedLog.push_back("handle transaction " + record.description());
      if (scenario.outcomes[i] != testing::Outcome::passed) expectedLog.push_back(lines[int(scenario.outcomes[i])]);
      if (scenario.outcomes[i] != testing::Outcome::renewal) expected.push_back(record);
    }
    logging::LogCapture capture;
    SKPaymentQueue::defaultQueue().reportUpdatedTransactions(batch);
    const auto delivered = listener->batches.waitFor(1, "batch at the first listener");
    EXPECT_EQ(other->batches.waitFor(1, "batch at the second listener"), delivered);
    EXPECT_EQ(delivered, std::vector<Batch>{expected});
    EXPECT_EQ(stored(*defaults), scenario.storedAfter);
    EXPECT_EQ(capture.messages(subsystem, "StoreKit"), expectedLog);
    for (const auto& entry : capture.entries()) EXPECT_EQ(entry.level, logging::LogLevel::info);
    queue->remove(listener), queue->remove(other);
  }
}

TEST_F(TransactionQueueTest, AFailedProductsRequestDropsTheBatchSilently) {
  const auto defaults = std::make_shared<foundation::InMemoryUserDefaults>();
  const auto queue = makeQueue(defaults);
  const auto listener = std::make_shared<RecordingListener>();
  queue->add(listener);
  logging::LogCapture capture;
  backend->setFailure(platform::SKError(platform::SKError::Code::cloudServiceNetworkConnectionFailed, "offline"));
  SKPaymentQueue::defaultQueue().reportUpdatedTransactions(testing::storeBatch({{.id = "T1"}}));
  backend->waitForAnswers();  // the failure is on the queue's scheduler now, before the next batch
  backend->setFailure(std::nullopt);
  const auto next = testing::storeBatch({{.id = "T2"}});
  SKPaymentQueue::defaultQueue().reportUpdatedTransactions(next);
  const Transaction record = testing::expectedRecord({}, next[0]);
  EXPECT_EQ(listener->batches.waitFor(1, "batch after the failed request"), std::vector<Batch>{{record}});
  EXPECT_EQ(stored(*defaults), std::set<std::string>{"T2"});
  EXPECT_EQ(capture.messages(subsystem, "StoreKit"),
            (Strings{"transactions updated, count 1", "transactions updated, count 1",
                     "handle transactions count 1 and products count 1", "handle transaction " + record.description(),
                     "handle transaction: first purchase"}));
  queue->remove(listener);
}

// A store that runs a hook inside an observer's registration, as a store reporting a batch
// to its observers at once would.
struct ReentrantStore final : platform::StoreBackend {
  void startProductsRequest(std::uint64_t, const std::unordered_set<std::string>&, ProductsCompletion) override {}
  void cancelProductsRequest(std::uint64_t) override {}
  void addPayment(const platform::SKPayment&) override {}
  void finishTransaction(const std::shared_ptr<platform::SKPaymentTransaction>&) override {}
  void restoreCompletedTransactions(const std::optional<std::string>&) override {}
  std::optional<platform::SKStorefront> storefront() const override { return std::nullopt; }
  void transactionObserverAdded() override { std::exchange(hook, [] {})(); }
  std::function<void()> hook = [] {};
};

TEST(TransactionQueueRegistration, ObservesTheStoreOnlyWhileItHasListeners) {
  const auto store = std::make_shared<ReentrantStore>();
  testing::StoreBackendScope scope(store);
  const auto queue = makeQueue();
  const auto a = std::make_shared<RecordingListener>(), b = std::make_shared<RecordingListener>();
  const std::pair<std::function<void()>, bool> steps[] = {
      {[&] { queue->remove(a); }, false}, {[&] { queue->add(a); }, true},     {[&] { queue->add(a); }, true},
      {[&] { queue->remove(b); }, true},  {[&] { queue->add(b); }, true},     {[&] { queue->remove(a); }, true},
      {[&] { queue->remove(b); }, false}, {[&] { queue->add(nullptr); }, false},
      // A listener added from inside the store's registration of the queue is kept.
      {[&] { store->hook = [&] { queue->add(b); }; queue->add(a); }, true},
      {[&] { queue->remove(a); }, true},  {[&] { queue->remove(b); }, false},
  };
  for (std::size_t i = 0; i < std::size(steps); ++i) {
    steps[i].first();
    EXPECT_EQ(queue->isListeningTransactions(), steps[i].second) << "step " << i;
    EXPECT_EQ(observesStore(queue), steps[i].second) << "step " << i;
  }
  EXPECT_EQ(a.use_count(), 1);  // the queue let go of both
  EXPECT_EQ(b.use_count(), 1);
}

TEST_F(TransactionQueueTest, ListenersChangingDuringDeliverySeeWholeBatches) {
  using S = platform::SKPaymentTransactionState;
  const auto queue = makeQueue();
  const auto permanent = std::make_shared<RecordingListener>();
  queue->add(permanent);
  logging::LogCapture quiet;
  constexpr int batches = 150;
  std::atomic<bool> done = false;
  const auto churn = [&] {
    while (!done) {
      const auto visitor = std::make_shared<RecordingListener>();
      queue->add(visitor);
      std::this_thread::yield();
      queue->remove(visitor);
      for (const auto& batch : visitor->batches.waitFor(0)) EXPECT_EQ(batch.size(), 2u);
    }
  };
  std::thread first(churn), second(churn);
  for (int i = 0; i < batches; ++i) {
    SKPaymentQueue::defaultQueue().reportUpdatedTransactions(
        testing::storeBatch({{.state = S::restored, .id = std::to_string(i)}, {.state = S::deferred}}));
    backend->waitForAnswers();  // keeps the reported order on the scheduler
  }
  const auto seen = permanent->batches.waitFor(batches, "batches at the permanent listener");
  done = true;
  first.join(), second.join();
  EXPECT_TRUE(queue->isListeningTransactions());
  for (int i = 0; i < batches; ++i) {
    std::vector<std::optional<std::string>> ids;
    for (const auto& record : seen.at(i)) ids.push_back(record.id());
    EXPECT_EQ(ids, (std::vector<std::optional<std::string>>{std::to_string(i), std::nullopt}));
  }
  queue->remove(permanent);
  EXPECT_FALSE(observesStore(queue));
}

TEST(OriginalTransactionIDs, SplitDropsEmptyPiecesAndJoinRoundTrips) {
  const std::pair<std::string, std::set<std::string>> examples[] = {
      {"", {}}, {",", {}}, {"T1", {"T1"}}, {",,T1,,T2,", {"T1", "T2"}}, {"a,a", {"a"}}, {" a , b", {" a ", " b"}},
  };
  for (const auto& [text, identifiers] : examples) {
    const auto split = splitOriginalTransactionIDs(text);
    EXPECT_EQ(std::set<std::string>(split.begin(), split.end()), identifiers) << text;
    EXPECT_EQ(splitOriginalTransactionIDs(joinOriginalTransactionIDs(split)), split) << text;
  }
  EXPECT_EQ(joinOriginalTransactionIDs({}), "");
  const auto two = joinOriginalTransactionIDs({"T1", "T2"});
  EXPECT_TRUE(two == "T1,T2" || two == "T2,T1") << two;
}

// Defaults that count how often the stored text is read; with `counts` false they keep no
// change count, as a host's own store might not.
class CountingDefaults final : public foundation::UserDefaults {
 public:
  explicit CountingDefaults(bool counts) : counts_(counts) {}
  std::optional<std::string> stringForKey(std::string_view key) const override {
    ++reads;
    return inner_.stringForKey(key);
  }
  std::optional<Bytes> dataForKey(std::string_view key) const override { return inner_.dataForKey(key); }
  void setString(std::string value, std::string_view key) override { inner_.setString(std::move(value), key); }
  void setData(Bytes value, std::string_view key) override { inner_.setData(std::move(value), key); }
  void removeObject(std::string_view key) override { inner_.removeObject(key); }
  std::uint64_t changeCount() const override { return counts_ ? inner_.changeCount() : UserDefaults::changeCount(); }
  mutable int reads = 0;

 private:
  bool counts_;
  foundation::InMemoryUserDefaults inner_;
};

// Every question sees a change made straight through the defaults; the text is read and
// parsed again only after such a change.
TEST(TransactionQueueListenerState, SeesEveryChangeAndParsesOncePerChange) {
  for (const bool counts : {true, false}) {
    const auto defaults = std::make_shared<CountingDefaults>(counts);
    TransactionQueueListenerState state(defaults);
    const TransactionQueueListenerState copy = state;  // shares what was parsed
    state.insertOriginalTransactionID("a");
    const int readsBefore = defaults->reads;
    for (int i = 0; i < 10; ++i) EXPECT_TRUE(copy.containsOriginalTransactionID("a")) << counts;
    EXPECT_EQ(defaults->reads - readsBefore, counts ? 0 : 10);
    defaults->setString("b,,c", std::string(originalTransactionIDsKey));
    EXPECT_FALSE(state.containsOriginalTransactionID("a")) << counts;
    EXPECT_TRUE(copy.containsOriginalTransactionID("c")) << counts;
    state.eraseOriginalTransactionID("b");
    EXPECT_EQ(defaults->stringForKey(originalTransactionIDsKey), "c") << counts;
    defaults->removeObject(std::string(originalTransactionIDsKey));
    EXPECT_EQ(copy.originalTransactionIDs(), std::unordered_set<std::string>{}) << counts;
    state.setOriginalTransactionIDs({"x"});
    EXPECT_TRUE(copy.containsOriginalTransactionID("x")) << counts;
  }
}

}  // namespace
}  // namespace velquist::storekit
