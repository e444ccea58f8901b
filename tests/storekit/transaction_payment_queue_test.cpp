#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "common/deadline.h"
#include "common/scripted_store_backend.h"
#include "storekit/transaction_scenarios.h"
#include "velquist/logging/log_capture.h"
#include "velquist/storekit/transactions/payment_queue.h"

namespace velquist::storekit {
namespace {

using platform::SKPaymentQueue;
using testing::storeBatch;
using usersettings::UserSettingsClient;
using Bytes = UserSettingsClient::Bytes;
using Strings = std::vector<std::string>;
using Batch = std::vector<Transaction>;
using IDs = std::set<std::string>;

constexpr std::string_view subsystem = "VelquistSDK.PaymentQueue";
const std::string key(originalTransactionIDsKey);
const std::string renewalLine = "filter transaction\n[\n  \"reason\": \"renewal\",\n  \"result\": \"filtered\"\n]";

Bytes bytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

IDs stored(const UserSettingsClient& settings) {
  const auto set = originalTransactionIDs(settings);
  return {set.begin(), set.end()};
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
  const std::string lines[] = {"", "filter transaction: 1st purchase", renewalLine, "filter transaction: start trial"};
  for (const auto& scenario : testing::scenarios()) {
    SCOPED_TRACE(scenario.name);
    const auto settings = UserSettingsClient::inMemory();
    if (scenario.stored) settings.setData(bytes(*scenario.stored), key);
    auto updates = PaymentQueue(settings).updates();
    const auto batch = storeBatch(scenario.batch);
    Batch expected;
    Strings expectedLog = {"fetch products success"};
    for (std::size_t i = 0; i < batch.size(); ++i) {
      if (scenario.outcomes[i] != testing::Outcome::passed) expectedLog.push_back(lines[int(scenario.outcomes[i])]);
      if (scenario.outcomes[i] != testing::Outcome::renewal) {
        expected.push_back(testing::expectedRecord(scenario.batch[i], batch[i]));
      }
    }
    logging::LogCapture capture;
    SKPaymentQueue::defaultQueue().reportUpdatedTransactions(batch);
    EXPECT_EQ(testing::nextWithin(updates, "the classified batch"), expected);
    EXPECT_EQ(stored(settings), scenario.storedAfter);
    EXPECT_EQ(capture.messages(subsystem, "StoreKit"), expectedLog);
    for (const auto& entry : capture.entries()) EXPECT_EQ(entry.level, logging::LogLevel::info);
    detail::endPaymentQueueObservations();
    EXPECT_EQ(testing::nextWithin(updates, "the end of the stream"), std::nullopt);
  }
}

// The stored set is read before every decision: a change made between batches counts, even
// though an unchanged set is not parsed again.
TEST_F(PaymentQueueTest, AChangeOfTheStoredSetBetweenBatchesIsSeen) {
  const auto settings = UserSettingsClient::inMemory();
  auto updates = PaymentQueue(settings).updates();
  const auto deliver = [&](std::vector<testing::StoreTransaction> rows) {
    SKPaymentQueue::defaultQueue().reportUpdatedTransactions(storeBatch(rows));
    return updates.next().value_or(Batch{}).size();
  };
  EXPECT_EQ(deliver({{.id = "T1"}}), 1u);
  EXPECT_EQ(deliver({{.id = "T2", .original = "T1"}}), 0u);  // a renewal
  settings.setData(bytes("X"), key);
  EXPECT_EQ(deliver({{.id = "T3", .original = "T1"}}), 1u);  // T1 is no longer stored
  EXPECT_EQ(stored(settings), (IDs{"X", "T1"}));
}

TEST_F(PaymentQueueTest, AFailedProductsRequestIsLoggedAndTheBatchHandledWithoutProducts) {
  const auto settings = UserSettingsClient::inMemory();
  settings.setData(bytes("T0"), key);
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
  EXPECT_EQ(capture.messages(subsystem, "StoreKit"),
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
    settings.setData(examples[i].first, key);
    EXPECT_EQ(stored(settings), examples[i].second) << "example " << i;
  }
  // Written as the joined text's bytes; the empty set as empty bytes, not as nothing.
  const auto settings = UserSettingsClient::inMemory();
  setOriginalTransactionIDs(settings, {"é"});
  EXPECT_EQ(settings.data(key), bytes("é"));
  setOriginalTransactionIDs(settings, {});
  EXPECT_EQ(settings.data(key), Bytes{});
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
