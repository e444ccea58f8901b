#include "velquist/storekit/transactions/transaction_queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>

#include "common/scripted_store_backend.h"
#include "storekit/transaction_scenarios.h"
#include "velquist/logging/log_capture.h"
#include "velquist/storekit/transactions/payment_queue.h"

namespace velquist::storekit {
namespace {

using platform::SKPaymentQueue;
using testing::RecordingListener;
using testing::storeBatch;
using usersettings::UserSettingsClient;
using Bytes = UserSettingsClient::Bytes;
using Strings = std::vector<std::string>;
using Batch = std::vector<Transaction>;
using IDs = std::set<std::string>;

constexpr std::string_view subsystem = "velquist.store-kit.transaction-listener";
constexpr std::string_view paymentQueueSubsystem = "VelquistSDK.PaymentQueue";
const std::string idsKey(originalTransactionIDsKey);
const std::string renewalLine = "filter transaction\n[\n  \"reason\": \"renewal\",\n  \"result\": \"filtered\"\n]";

bool observesStore(const std::shared_ptr<TransactionQueue>& queue) {
  const auto observers = SKPaymentQueue::defaultQueue().transactionObservers();
  return std::ranges::find(observers, queue) != observers.end();
}

IDs stored(const foundation::UserDefaults& defaults) {
  const auto set = splitOriginalTransactionIDs(defaults.stringForKey(originalTransactionIDsKey).value_or(""));
  return {set.begin(), set.end()};
}

IDs stored(const UserSettingsClient& settings) {
  const auto set = originalTransactionIDs(settings);
  return {set.begin(), set.end()};
}

Bytes bytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

std::size_t observerCount() { return SKPaymentQueue::defaultQueue().transactionObservers().size(); }

std::shared_ptr<TransactionQueue> makeQueue(std::shared_ptr<foundation::UserDefaults> defaults = nullptr) {
  if (!defaults) defaults = std::make_shared<foundation::InMemoryUserDefaults>();
  return TransactionQueue::make(TransactionQueueListenerState(std::move(defaults)));
}

// Both ways of following purchases, against a store that sells the test catalogue.
class TransactionQueueTest : public ::testing::Test {
 protected:
  TransactionQueueTest() { backend->setCatalogue(testing::catalogue()); }
  ~TransactionQueueTest() override { detail::endPaymentQueueObservations(); }
  std::shared_ptr<testing::ScriptedStoreBackend> backend = std::make_shared<testing::ScriptedStoreBackend>();
  testing::StoreBackendScope scope{backend};
};
using PaymentQueueTest = TransactionQueueTest;

// One report reaches both ways of following purchases, each with its own stored set.
TEST_F(TransactionQueueTest, BothWaysClassifyEachPurchaseAgainstTheStoredSet) {
  const std::string queueLines[] = {"", "handle transaction: first purchase",
                                    "handle transaction: skip, reason: renewal", "handle transaction: start trial"};
  const std::string paymentQueueLines[] = {"", "filter transaction: 1st purchase", renewalLine,
                                           "filter transaction: start trial"};
  for (const auto& scenario : testing::scenarios()) {
    SCOPED_TRACE(scenario.name);
    const auto defaults = std::make_shared<foundation::InMemoryUserDefaults>();
    const auto settings = UserSettingsClient::inMemory();
    if (scenario.stored) defaults->setString(*scenario.stored, originalTransactionIDsKey);
    if (scenario.stored) settings.setData(bytes(*scenario.stored), idsKey);
    const auto queue = makeQueue(defaults);
    const auto listener = std::make_shared<RecordingListener>(), other = std::make_shared<RecordingListener>();
    queue->add(listener), queue->add(other);
    auto updates = PaymentQueue(settings).updates();
    const auto batch = storeBatch(scenario.batch);
    const auto count = std::to_string(batch.size());
    Batch expected;
    const auto found = std::to_string(scenario.productsFound);
    Strings queueLog = {"transactions updated, count " + count,
                        "handle transactions count " + count + " and products count " + found};
    Strings paymentQueueLog = {"fetch products success"};
    for (std::size_t i = 0; i < batch.size(); ++i) {
      const Transaction record = testing::expectedRecord(scenario.batch[i], batch[i]);
      const auto outcome = scenario.outcomes[i];
      queueLog.push_back("handle transaction " + record.description());
      if (outcome != testing::Outcome::passed) {
        queueLog.push_back(queueLines[int(outcome)]), paymentQueueLog.push_back(paymentQueueLines[int(outcome)]);
      }
      if (outcome != testing::Outcome::renewal) expected.push_back(record);
    }
    logging::LogCapture capture;
    SKPaymentQueue::defaultQueue().reportUpdatedTransactions(batch);
    const auto delivered = listener->batches.waitFor(1, "batch at the first listener");
    EXPECT_EQ(other->batches.waitFor(1, "batch at the second listener"), delivered);
    EXPECT_EQ(delivered, std::vector<Batch>{expected});
    EXPECT_EQ(testing::nextWithin(updates, "the classified batch"), expected);
    EXPECT_EQ(stored(*defaults), scenario.storedAfter);
    EXPECT_EQ(stored(settings), scenario.storedAfter);
    EXPECT_EQ(capture.messages(subsystem, "StoreKit"), queueLog);
    EXPECT_EQ(capture.messages(paymentQueueSubsystem, "StoreKit"), paymentQueueLog);
    for (const auto& entry : capture.entries()) EXPECT_EQ(entry.level, logging::LogLevel::info);
    queue->remove(listener), queue->remove(other);
    detail::endPaymentQueueObservations();
    EXPECT_EQ(testing::nextWithin(updates, "the end of the stream"), std::nullopt);
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

// The stored set is read before every decision: a change made between batches counts, even
// though an unchanged set is not parsed again.
TEST_F(PaymentQueueTest, AChangeOfTheStoredSetBetweenBatchesIsSeen) {
  const auto settings = UserSettingsClient::inMemory();
  auto updates = PaymentQueue(settings).updates();
  const auto deliver = [&](std::vector<testing::StoreTransaction> rows) {
    SKPaymentQueue::defaultQueue().reportUpdatedTransactions(storeBatch(rows));
    return testing::nextWithin(updates, "the classified batch").value_or(Batch{}).size();
  };
  EXPECT_EQ(deliver({{.id = "T1"}}), 1u);
  EXPECT_EQ(deliver({{.id = "T2", .original = "T1"}}), 0u);  // a renewal
  settings.setData(bytes("X"), idsKey);
  EXPECT_EQ(deliver({{.id = "T3", .original = "T1"}}), 1u);  // T1 is no longer stored
  EXPECT_EQ(stored(settings), (IDs{"X", "T1"}));
}

TEST_F(PaymentQueueTest, AFailedProductsRequestIsLoggedAndTheBatchHandledWithoutProducts) {
  const auto settings = UserSettingsClient::inMemory();
  settings.setData(bytes("T0"), idsKey);
  auto updates = PaymentQueue(settings).updates();
  backend->setFailure(platform::SKError(platform::SKError::Code::cloudServiceNetworkConnectionFailed, "offline"));
  logging::LogCapture capture;
  // Without products no trial is recognised: the trial product's purchase is a first one.
  const auto batch = storeBatch({{.id = "T1"}, {.product = "pro.trial", .id = "T2"}, {.id = "T3", .original = "T0"}});
  SKPaymentQueue::defaultQueue().reportUpdatedTransactions(batch);
  EXPECT_EQ(testing::nextWithin(updates, "the batch handled without products"),
            (Batch{{.transaction = batch[0]}, {.transaction = batch[1]}}));
  EXPECT_EQ(stored(settings), (IDs{"T0", "T1", "T2"}));
  const std::string failure =
      "fetch products failure\n[\n  \"error\": NSError(\n    domain: \"SKErrorDomain\",\n    code: 7,\n"
      "    userInfo: [\n      \"NSLocalizedDescription\": \"offline\"\n    ]\n  )\n]";
  EXPECT_EQ(capture.messages(paymentQueueSubsystem, "StoreKit"),
            (Strings{failure, "filter transaction: 1st purchase", "filter transaction: 1st purchase", renewalLine}));
  EXPECT_EQ(capture.entries().at(0).level, logging::LogLevel::error);
}

TEST(StoredOriginalTransactionIDs, BytesReadAsTheSetOfTheirPiecesOnlyWhenUtf8) {
  const std::pair<std::optional<Bytes>, IDs> examples[] = {
      {std::nullopt, {}}, {Bytes{}, {}}, {bytes(",,T1,,T2,"), {"T1", "T2"}}, {bytes("é,✓,😀"), {"é", "✓", "😀"}},
      {Bytes{'a', 0, 'b'}, {std::string("a\0b", 3)}},
      // Not UTF-8: a stray byte, an overlong form, a surrogate, cut short, above the last code point.
      {Bytes{'T', '1', ',', 0xff}, {}}, {Bytes{0xc0, 0xaf}, {}}, {Bytes{0xed, 0xa0, 0x80}, {}}, {Bytes{'a', 0xe2, 0x82}, {}},
      {Bytes{0xf4, 0x90, 0x80, 0x80}, {}},
  };
  for (std::size_t i = 0; i < std::size(examples); ++i) {
    const auto settings = UserSettingsClient::inMemory();
    settings.setData(examples[i].first, idsKey);
    EXPECT_EQ(stored(settings), examples[i].second) << "example " << i;
  }
  // Written as the joined text's bytes; the empty set as empty bytes, not as nothing.
  const auto settings = UserSettingsClient::inMemory();
  setOriginalTransactionIDs(settings, {"é"});
  EXPECT_EQ(settings.data(idsKey), bytes("é"));
  setOriginalTransactionIDs(settings, {});
  EXPECT_EQ(settings.data(idsKey), Bytes{});
}

TEST_F(PaymentQueueTest, ObservationGoesOnAfterTheConsumerHasGone) {
  const auto inner = UserSettingsClient::inMemory();
  const auto writes = std::make_shared<testing::Inbox<Bytes>>();
  const UserSettingsClient settings{.data = inner.data, .setData = [inner, writes](auto value, const std::string& k) {
                                      inner.setData(value, k), writes->put(value.value_or(Bytes{}));
                                    }};
  const auto before = observerCount();
  PaymentQueue(settings).updates();
  EXPECT_EQ(observerCount(), before + 1);  // still observing
  logging::LogCapture quiet;
  SKPaymentQueue::defaultQueue().reportUpdatedTransactions(storeBatch({{.id = "T1"}}));
  EXPECT_EQ(writes->waitFor(1, "write of the stored set"), std::vector<Bytes>{bytes("T1")});
  detail::endPaymentQueueObservations();
  EXPECT_EQ(observerCount(), before);
}

TEST_F(PaymentQueueTest, TwoStreamsBothHandleEveryBatchInOrder) {
  const PaymentQueue queue(UserSettingsClient::inMemory());
  logging::LogCapture quiet;
  constexpr int batches = 60;
  Strings reported, seen[2];
  std::vector<std::thread> consumers;
  for (auto& ids : seen) {
    consumers.emplace_back([&ids, stream = queue.updates()]() mutable {
      for (int i = 0; i < batches; ++i) {
        const auto batch = testing::nextWithin(stream, "batch " + std::to_string(i)).value_or(Batch{});
        for (const auto& record : batch) ids.push_back(record.id().value_or("?"));
      }
    });
  }
  for (int i = 0; i < batches; ++i) {
    const std::string id = "T" + std::to_string(i);
    SKPaymentQueue::defaultQueue().reportUpdatedTransactions(
        storeBatch({{.id = id}, {.state = platform::SKPaymentTransactionState::failed, .id = id + "f"}}));
    reported.insert(reported.end(), {id, id + "f"});
  }
  for (auto& consumer : consumers) consumer.join();
  EXPECT_EQ(seen[0], reported);
  EXPECT_EQ(seen[1], reported);
}

TEST_F(PaymentQueueTest, NoThreadWaitsForIdleStreamsOrPendingRequests) {
  std::thread([] {}).join();
  const auto threads = [] {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                                                  std::filesystem::directory_iterator{}));
  };
  backend->holdAnswers(true);
  logging::LogCapture quiet;
  constexpr std::size_t streams = 24;
  const PaymentQueue queue(UserSettingsClient::inMemory());
  std::vector<support::AsyncStream<Batch>> updates;
  updates.push_back(queue.updates());  // its first batch starts the shared pool's workers
  SKPaymentQueue::defaultQueue().reportUpdatedTransactions(storeBatch({{.id = "warm-up"}}));
  testing::pollUntil([&] { return backend->heldCount() >= 1; }, "the first products request");
  const auto before = threads();
  for (std::size_t i = 1; i < streams; ++i) updates.push_back(queue.updates());
  SKPaymentQueue::defaultQueue().reportUpdatedTransactions(storeBatch({{.id = "T1"}}));
  testing::pollUntil([&] { return backend->heldCount() >= streams; }, "a products request of every stream");
  EXPECT_LT(threads(), before + streams / 2);
  backend->releaseHeld();
  backend->waitForAnswers();
  for (auto& stream : updates) EXPECT_TRUE(testing::nextWithin(stream, "a stream's batch").has_value());
  EXPECT_TRUE(testing::nextWithin(updates.front(), "the first stream's second batch").has_value());
}

TEST_F(PaymentQueueTest, StoreTransactionUpdatesPassBatchesAsReceivedUntilTheStreamEnds) {
  const auto before = observerCount();
  {
    auto updates = storeTransactionUpdates();
    const auto batch = storeBatch({{.id = "T1"}, {.state = platform::SKPaymentTransactionState::failed}});
    SKPaymentQueue::defaultQueue().reportUpdatedTransactions(batch);
    SKPaymentQueue::defaultQueue().reportUpdatedTransactions({});
    EXPECT_EQ(testing::nextWithin(updates, "the reported batch"), batch);
    EXPECT_EQ(testing::nextWithin(updates, "the empty batch"), SKPaymentQueue::Transactions{});
  }
  EXPECT_EQ(observerCount(), before);  // unregistered with the stream's end
}

}  // namespace
}  // namespace velquist::storekit
