#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "common/scripted_store_backend.h"
#include "storekit/transaction_scenarios.h"
#include "velquist/logging/log_capture.h"
#include "velquist/storekit/transactions/payment_queue.h"
#include "velquist/storekit/transactions/transaction_queue.h"

namespace velquist::storekit {
namespace {

using platform::SKPaymentQueue;
using testing::Outcome;
using usersettings::UserSettingsClient;
using Bytes = UserSettingsClient::Bytes;
using Strings = std::vector<std::string>;
using Batch = std::vector<Transaction>;
using IDs = std::set<std::string>;

constexpr std::string_view subsystem = "VelquistSDK.PaymentQueue";
static_assert(!std::is_default_constructible_v<PaymentQueue>, "a payment queue needs its user settings");
const std::string renewalLine = "filter transaction\n[\n  \"reason\": \"renewal\",\n  \"result\": \"filtered\"\n]";

Bytes bytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

IDs stored(const UserSettingsClient& settings) {
  const auto set = originalTransactionIDs(settings);
  return {set.begin(), set.end()};
}

SKPaymentQueue::Transactions storeBatch(const std::vector<testing::StoreTransaction>& rows) {
  SKPaymentQueue::Transactions batch;
  for (const auto& row : rows) batch.push_back(testing::makeStoreTransaction(row));
  return batch;
}

std::size_t observerCount() { return SKPaymentQueue::defaultQueue().transactionObservers().size(); }

class PaymentQueueTest : public ::testing::Test {
 protected:
  PaymentQueueTest() { backend->setCatalogue(testing::catalogue()); }
  ~PaymentQueueTest() override { detail::endPaymentQueueObservations(); }
  std::shared_ptr<testing::ScriptedStoreBackend> backend = std::make_shared<testing::ScriptedStoreBackend>();
  testing::StoreBackendScope scope{backend};
};

TEST_F(PaymentQueueTest, ClassifiesEachPurchaseAgainstTheStoredSet) {
  for (const auto& scenario : testing::scenarios()) {
    SCOPED_TRACE(scenario.name);
    const auto settings = UserSettingsClient::inMemory();
    if (scenario.stored) settings.setData(bytes(*scenario.stored), std::string(originalTransactionIDsKey));
    const PaymentQueue queue(settings);
    auto updates = queue.updates();
    const auto batch = storeBatch(scenario.batch);
    logging::LogCapture capture;
    SKPaymentQueue::defaultQueue().reportUpdatedTransactions(batch);
    const auto delivered = updates.next();

    Batch expected;
    Strings expectedLog = {"fetch products success"};
    for (std::size_t i = 0; i < batch.size(); ++i) {
      const auto product = testing::catalogueProduct(scenario.batch[i].product);
      switch (scenario.outcomes[i]) {
        case Outcome::passed: break;
        case Outcome::first: expectedLog.push_back("filter transaction: 1st purchase"); break;
        case Outcome::renewal: expectedLog.push_back(renewalLine); break;
        case Outcome::trial: expectedLog.push_back("filter transaction: start trial"); break;
      }
      if (scenario.outcomes[i] != Outcome::renewal) expected.push_back(makeTransaction(product ? &*product : nullptr, batch[i]));
    }
    EXPECT_EQ(delivered, expected);
    EXPECT_EQ(stored(settings), scenario.storedAfter);
    EXPECT_EQ(capture.messages(subsystem, "StoreKit"), expectedLog);
    for (const auto& entry : capture.entries()) EXPECT_EQ(entry.level, logging::LogLevel::info);
    detail::endPaymentQueueObservations();
    EXPECT_EQ(updates.next(), std::nullopt);  // ended
  }
}

TEST_F(PaymentQueueTest, AFailedProductsRequestIsLoggedAndTheBatchHandledWithoutProducts) {
  const auto settings = UserSettingsClient::inMemory();
  settings.setData(bytes("T0"), std::string(originalTransactionIDsKey));
  auto updates = PaymentQueue(settings).updates();
  backend->setFailure(platform::SKError(platform::SKError::Code::cloudServiceNetworkConnectionFailed, "offline"));
  logging::LogCapture capture;
  // Without products no trial is recognised: the trial product's purchase is a first one.
  const auto batch = storeBatch({{.id = "T1"}, {.product = "pro.trial", .id = "T2"}, {.id = "T3", .original = "T0"}});
  SKPaymentQueue::defaultQueue().reportUpdatedTransactions(batch);
  const auto delivered = updates.next();
  EXPECT_EQ(delivered, (Batch{{.transaction = batch[0]}, {.transaction = batch[1]}}));
  EXPECT_EQ(stored(settings), (IDs{"T0", "T1", "T2"}));
  const auto entries = capture.entries();
  ASSERT_EQ(entries.size(), 4u);
  EXPECT_EQ(entries[0].level, logging::LogLevel::error);
  EXPECT_EQ(entries[0].message,
            "fetch products failure\n"
            "[\n"
            "  \"error\": NSError(\n"
            "    domain: \"SKErrorDomain\",\n"
            "    code: 7,\n"
            "    userInfo: [\n"
            "      \"NSLocalizedDescription\": \"offline\"\n"
            "    ]\n"
            "  )\n"
            "]");
  EXPECT_EQ(capture.messages(subsystem, "StoreKit"),
            (Strings{entries[0].message, "filter transaction: 1st purchase", "filter transaction: 1st purchase",
                     renewalLine}));
}

TEST_F(PaymentQueueTest, StoredBytesReadAsTheSetOfTheirPieces) {
  const struct {
    std::string name;
    std::optional<Bytes> stored;
    IDs expected;
  } examples[] = {
      {"nothing", std::nullopt, {}},
      {"empty", Bytes{}, {}},
      {"pieces", bytes(",,T1,,T2,"), {"T1", "T2"}},
      {"non-ASCII", bytes("é,✓,😀"), {"é", "✓", "😀"}},
      {"invalid byte", Bytes{'T', '1', ',', 0xff}, {}},
      {"overlong slash", Bytes{0xc0, 0xaf}, {}},
      {"surrogate", Bytes{0xed, 0xa0, 0x80}, {}},
      {"cut short", Bytes{'a', 0xe2, 0x82}, {}},
      {"above the last code point", Bytes{0xf4, 0x90, 0x80, 0x80}, {}},
      {"NUL is text", Bytes{'a', 0, 'b'}, {std::string("a\0b", 3)}},
  };
  for (const auto& example : examples) {
    const auto settings = UserSettingsClient::inMemory();
    settings.setData(example.stored, std::string(originalTransactionIDsKey));
    EXPECT_EQ(stored(settings), example.expected) << example.name;
  }
  // Writing: the joined text as bytes; the empty set as empty bytes, not as nothing.
  const auto settings = UserSettingsClient::inMemory();
  setOriginalTransactionIDs(settings, {"é"});
  EXPECT_EQ(settings.data(std::string(originalTransactionIDsKey)), bytes("é"));
  setOriginalTransactionIDs(settings, {});
  EXPECT_EQ(settings.data(std::string(originalTransactionIDsKey)), Bytes{});
}

TEST_F(PaymentQueueTest, UnreadableStoredBytesAreReplacedByTheNextFirstPurchase) {
  const auto settings = UserSettingsClient::inMemory();
  settings.setData(Bytes{'T', '1', 0xff}, std::string(originalTransactionIDsKey));
  auto updates = PaymentQueue(settings).updates();
  logging::LogCapture quiet;
  SKPaymentQueue::defaultQueue().reportUpdatedTransactions(storeBatch({{.id = "T2", .original = "T1"}}));
  EXPECT_EQ(updates.next().value().size(), 1u);  // T1 cannot be read back, so not a renewal
  EXPECT_EQ(settings.data(std::string(originalTransactionIDsKey)), bytes("T1"));
}

TEST_F(PaymentQueueTest, ObservationGoesOnAfterTheConsumerHasGone) {
  // A client that tells the test about every write.
  const auto inner = UserSettingsClient::inMemory();
  const auto writes = std::make_shared<testing::Inbox<Bytes>>();
  const UserSettingsClient settings{
      .data = inner.data,
      .setData = [inner, writes](std::optional<Bytes> value, const std::string& key) {
        inner.setData(value, key);
        writes->put(value.value_or(Bytes{}));
      }};
  const auto before = observerCount();
  {
    auto updates = PaymentQueue(settings).updates();
    EXPECT_EQ(observerCount(), before + 1);
  }
  EXPECT_EQ(observerCount(), before + 1);  // still observing
  logging::LogCapture quiet;
  SKPaymentQueue::defaultQueue().reportUpdatedTransactions(storeBatch({{.id = "T1"}}));
  EXPECT_EQ(writes->waitFor(1), std::vector<Bytes>{bytes("T1")});
  detail::endPaymentQueueObservations();
  EXPECT_EQ(observerCount(), before);
}

TEST_F(PaymentQueueTest, TwoStreamsBothHandleEveryBatchInOrder) {
  const auto settings = UserSettingsClient::inMemory();
  const PaymentQueue queue(settings);
  auto first = queue.updates(), second = queue.updates();
  logging::LogCapture quiet;
  constexpr int batches = 60;
  const auto consume = [](support::AsyncStream<Batch>& stream, Strings& seen) {
    for (int i = 0; i < batches; ++i) {
      const auto batch = stream.next();
      if (!batch) return;
      for (const auto& record : *batch) seen.push_back(record.id().value_or("?"));
    }
  };
  Strings seenFirst, seenSecond;
  std::thread firstConsumer([&] { consume(first, seenFirst); });
  std::thread secondConsumer([&] { consume(second, seenSecond); });
  Strings reported;
  for (int i = 0; i < batches; ++i) {
    const std::string id = "T" + std::to_string(i);
    SKPaymentQueue::defaultQueue().reportUpdatedTransactions(
        storeBatch({{.id = id}, {.state = platform::SKPaymentTransactionState::failed, .id = id + "f"}}));
    reported.insert(reported.end(), {id, id + "f"});
  }
  firstConsumer.join(), secondConsumer.join();
  EXPECT_EQ(seenFirst, reported);
  EXPECT_EQ(seenSecond, reported);
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
  // The shared pool's workers are started by a first batch.
  updates.push_back(queue.updates());
  SKPaymentQueue::defaultQueue().reportUpdatedTransactions(storeBatch({{.id = "warm-up"}}));
  while (backend->heldCount() < 1) std::this_thread::yield();
  const auto before = threads();
  for (std::size_t i = 1; i < streams; ++i) updates.push_back(queue.updates());
  SKPaymentQueue::defaultQueue().reportUpdatedTransactions(storeBatch({{.id = "T1"}}));
  // Every stream's request is now pending in the store, and each earlier batch waits too.
  while (backend->heldCount() < streams) std::this_thread::yield();
  EXPECT_LT(threads(), before + streams / 2);
  backend->releaseHeld();
  backend->waitForAnswers();
  for (auto& stream : updates) EXPECT_TRUE(stream.next().has_value());
  EXPECT_TRUE(updates.front().next().has_value());  // the first stream had a second batch waiting
}

TEST_F(PaymentQueueTest, StoreTransactionUpdatesPassBatchesAsReceivedUntilTheStreamEnds) {
  const auto before = observerCount();
  {
    auto updates = storeTransactionUpdates();
    EXPECT_EQ(observerCount(), before + 1);
    const std::vector<SKPaymentQueue::Transactions> reported = {
        storeBatch({{.id = "T1"}, {.state = platform::SKPaymentTransactionState::failed}}), {}, storeBatch({{.id = "T2"}})};
    for (const auto& batch : reported) SKPaymentQueue::defaultQueue().reportUpdatedTransactions(batch);
    for (const auto& batch : reported) EXPECT_EQ(updates.next(), batch);
  }
  EXPECT_EQ(observerCount(), before);  // unregistered with the stream's end
  std::stop_source stop;
  auto updates = storeTransactionUpdates();
  stop.request_stop();
  EXPECT_EQ(updates.next(stop.get_token()), std::nullopt);
  EXPECT_EQ(observerCount(), before);
}

}  // namespace
}  // namespace velquist::storekit
