#include "velquist/storekit/transactions/transaction_queue.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "common/scripted_store_backend.h"
#include "storekit/transaction_scenarios.h"
#include "velquist/foundation/bundle.h"
#include "velquist/logging/log_capture.h"

namespace velquist::storekit {
namespace {

using platform::SKPaymentQueue;
using testing::Outcome;
using Strings = std::vector<std::string>;
using Batch = std::vector<Transaction>;

constexpr std::string_view subsystem = "velquist.store-kit.transaction-listener";
static_assert(!std::is_default_constructible_v<TransactionQueue>, "a queue is made over its state");

// Hands every batch it is given to the test.
class RecordingListener final : public TransactionQueueListener {
 public:
  void updated(const std::vector<Transaction>& transactions) override { batches.put(transactions); }
  testing::Inbox<Batch> batches;
};

bool observesStore(const std::shared_ptr<TransactionQueue>& queue) {
  const auto observers = SKPaymentQueue::defaultQueue().transactionObservers();
  return std::ranges::find(observers, queue) != observers.end();
}

std::set<std::string> stored(const foundation::UserDefaults& defaults) {
  const auto text = defaults.stringForKey(originalTransactionIDsKey);
  if (!text) return {};
  const auto set = splitOriginalTransactionIDs(*text);
  return {set.begin(), set.end()};
}

class TransactionQueueTest : public ::testing::Test {
 protected:
  TransactionQueueTest() { backend->setCatalogue(testing::catalogue()); }
  std::shared_ptr<testing::ScriptedStoreBackend> backend = std::make_shared<testing::ScriptedStoreBackend>();
  testing::StoreBackendScope scope{backend};
};

TEST_F(TransactionQueueTest, ClassifiesEachPurchaseAgainstTheStoredSet) {
  for (const auto& scenario : testing::scenarios()) {
    SCOPED_TRACE(scenario.name);
    const auto defaults = std::make_shared<foundation::InMemoryUserDefaults>();
    if (scenario.stored) defaults->setString(*scenario.stored, originalTransactionIDsKey);
    const auto queue = TransactionQueue::make(TransactionQueueListenerState(defaults));
    const auto listener = std::make_shared<RecordingListener>(), other = std::make_shared<RecordingListener>();
    queue->add(listener), queue->add(other);

    SKPaymentQueue::Transactions batch;
    for (const auto& row : scenario.batch) batch.push_back(testing::makeStoreTransaction(row));
    logging::LogCapture capture;
    SKPaymentQueue::defaultQueue().reportUpdatedTransactions(batch);
    const auto delivered = listener->batches.waitFor(1);
    EXPECT_EQ(other->batches.waitFor(1), delivered);

    // The records delivered: every transaction but the renewals, in order, with its product.
    Batch expected;
    Strings expectedLog = {"transactions updated, count " + std::to_string(batch.size()),
                           "handle transactions count " + std::to_string(batch.size()) + " and products count " +
                               std::to_string(scenario.productsFound)};
    for (std::size_t i = 0; i < batch.size(); ++i) {
      const auto product = testing::catalogueProduct(scenario.batch[i].product);
      const Transaction record = makeTransaction(product ? &*product : nullptr, batch[i]);
      expectedLog.push_back("handle transaction " + record.description());
      switch (scenario.outcomes[i]) {
        case Outcome::passed: break;
        case Outcome::first: expectedLog.push_back("handle transaction: first purchase"); break;
        case Outcome::renewal: expectedLog.push_back("handle transaction: skip, reason: renewal"); break;
        case Outcome::trial: expectedLog.push_back("handle transaction: start trial"); break;
      }
      if (scenario.outcomes[i] != Outcome::renewal) expected.push_back(record);
    }
    EXPECT_EQ(delivered, std::vector<Batch>{expected});
    EXPECT_EQ(stored(*defaults), scenario.storedAfter);
    EXPECT_EQ(capture.messages(subsystem, "StoreKit"), expectedLog);
    for (const auto& entry : capture.entries()) EXPECT_EQ(entry.level, logging::LogLevel::info);
    queue->remove(listener), queue->remove(other);
    EXPECT_FALSE(observesStore(queue));
  }
}

TEST_F(TransactionQueueTest, AFailedProductsRequestDropsTheBatchSilently) {
  const auto defaults = std::make_shared<foundation::InMemoryUserDefaults>();
  const auto queue = TransactionQueue::make(TransactionQueueListenerState(defaults));
  const auto listener = std::make_shared<RecordingListener>();
  queue->add(listener);
  logging::LogCapture capture;
  backend->setFailure(platform::SKError(platform::SKError::Code::cloudServiceNetworkConnectionFailed, "offline"));
  SKPaymentQueue::defaultQueue().reportUpdatedTransactions({testing::makeStoreTransaction({.id = "T1"})});
  backend->waitForAnswers();  // the failure is on the queue's scheduler now, before the next batch
  backend->setFailure(std::nullopt);
  const auto next = testing::makeStoreTransaction({.id = "T2"});
  SKPaymentQueue::defaultQueue().reportUpdatedTransactions({next});
  const auto delivered = listener->batches.waitFor(1);
  ASSERT_EQ(delivered.size(), 1u);  // only the second batch
  ASSERT_EQ(delivered[0].size(), 1u);
  EXPECT_EQ(delivered[0][0].transaction, next);
  EXPECT_EQ(stored(*defaults), std::set<std::string>{"T2"});
  const auto product = testing::catalogueProduct("pro.monthly");
  EXPECT_EQ(capture.messages(subsystem, "StoreKit"),
            (Strings{"transactions updated, count 1", "transactions updated, count 1",
                     "handle transactions count 1 and products count 1",
                     "handle transaction " + makeTransaction(&*product, next).description(),
                     "handle transaction: first purchase"}));
  queue->remove(listener);
}

TEST_F(TransactionQueueTest, ObservesTheStoreOnlyWhileItHasListeners) {
  const auto queue = TransactionQueue::make(TransactionQueueListenerState(std::make_shared<foundation::InMemoryUserDefaults>()));
  const auto a = std::make_shared<RecordingListener>(), b = std::make_shared<RecordingListener>();
  const struct {
    std::string step;
    std::function<void()> run;
    bool listening;
  } steps[] = {
      {"remove before any add", [&] { queue->remove(a); }, false},
      {"add a", [&] { queue->add(a); }, true},
      {"add a again", [&] { queue->add(a); }, true},
      {"remove b, never added", [&] { queue->remove(b); }, true},
      {"add b", [&] { queue->add(b); }, true},
      {"remove a once", [&] { queue->remove(a); }, true},
      {"remove b, the last", [&] { queue->remove(b); }, false},
      {"remove b again", [&] { queue->remove(b); }, false},
      {"add nothing", [&] { queue->add(nullptr); }, false},
      {"add b after all", [&] { queue->add(b); }, true},
      {"remove b", [&] { queue->remove(b); }, false},
  };
  for (const auto& step : steps) {
    step.run();
    EXPECT_EQ(queue->isListeningTransactions(), step.listening) << step.step;
    EXPECT_EQ(observesStore(queue), step.listening) << step.step;
  }
  EXPECT_EQ(a.use_count(), 1);  // the queue let go of both
  EXPECT_EQ(b.use_count(), 1);
}

// A store that reports a batch to every observer from inside the registration of one, and
// fails every products request.
class EagerStore final : public platform::StoreBackend {
 public:
  void startProductsRequest(std::uint64_t, const std::unordered_set<std::string>&, ProductsCompletion done) override {
    done(platform::SKError(platform::SKError::Code::unknown, "no products here"));
  }
  void cancelProductsRequest(std::uint64_t) override {}
  void addPayment(const platform::SKPayment&) override {}
  void finishTransaction(const std::shared_ptr<platform::SKPaymentTransaction>&) override {}
  void restoreCompletedTransactions(const std::optional<std::string>&) override {}
  std::optional<platform::SKStorefront> storefront() const override { return std::nullopt; }
  void transactionObserverAdded() override { SKPaymentQueue::defaultQueue().reportUpdatedTransactions({}); }
};

// A host's own observer that registers a listener when it hears a batch.
class AddingObserver final : public platform::SKPaymentTransactionObserver {
 public:
  AddingObserver(std::shared_ptr<TransactionQueue> q, std::shared_ptr<TransactionQueueListener> l)
      : queue(std::move(q)), listener(std::move(l)) {}
  void updatedTransactions(SKPaymentQueue&, const SKPaymentQueue::Transactions&) override { queue->add(listener); }
  std::shared_ptr<TransactionQueue> queue;
  std::shared_ptr<TransactionQueueListener> listener;
};

TEST(TransactionQueueRegistration, ListenersAddedFromInsideTheRegistrationAreKept) {
  testing::StoreBackendScope scope(std::make_shared<EagerStore>());
  const auto queue = TransactionQueue::make(TransactionQueueListenerState(std::make_shared<foundation::InMemoryUserDefaults>()));
  const auto first = std::make_shared<RecordingListener>(), second = std::make_shared<RecordingListener>();
  const auto observer = std::make_shared<AddingObserver>(queue, second);
  SKPaymentQueue::defaultQueue().addTransactionObserver(observer);
  logging::LogCapture quiet;
  queue->add(first);  // the store reports while the queue registers; the observer adds the second
  SKPaymentQueue::defaultQueue().removeTransactionObserver(observer);
  EXPECT_TRUE(observesStore(queue));
  queue->remove(first);
  EXPECT_TRUE(queue->isListeningTransactions());  // the second is still there
  queue->remove(second);
  EXPECT_FALSE(observesStore(queue));
}

TEST_F(TransactionQueueTest, ListenersChangingDuringDeliverySeeWholeBatches) {
  // Listeners come and go on two threads while batches are delivered; every listener sees
  // whole batches, in the order they were reported, and the queue stays registered with the
  // store while one permanent listener remains.
  const auto queue = TransactionQueue::make(TransactionQueueListenerState(std::make_shared<foundation::InMemoryUserDefaults>()));
  const auto permanent = std::make_shared<RecordingListener>();
  queue->add(permanent);
  logging::LogCapture quiet;
  constexpr int batches = 150;
  std::atomic<bool> done = false;
  std::vector<std::shared_ptr<RecordingListener>> visitors;
  std::mutex visitorsMutex;
  const auto churn = [&] {
    while (!done) {
      auto visitor = std::make_shared<RecordingListener>();
      queue->add(visitor);
      std::this_thread::yield();
      queue->remove(visitor);
      std::lock_guard lock(visitorsMutex);
      visitors.push_back(std::move(visitor));
    }
  };
  std::thread first(churn), second(churn);
  for (int i = 0; i < batches; ++i) {
    SKPaymentQueue::defaultQueue().reportUpdatedTransactions(
        {testing::makeStoreTransaction({.state = platform::SKPaymentTransactionState::restored, .id = std::to_string(i)}),
         testing::makeStoreTransaction({.state = platform::SKPaymentTransactionState::deferred})});
    backend->waitForAnswers();  // keeps the reported order on the scheduler
  }
  const auto seen = permanent->batches.waitFor(batches);
  done = true;
  first.join(), second.join();
  EXPECT_TRUE(queue->isListeningTransactions());
  ASSERT_EQ(seen.size(), static_cast<std::size_t>(batches));
  for (int i = 0; i < batches; ++i) {
    ASSERT_EQ(seen[i].size(), 2u);
    EXPECT_EQ(seen[i][0].id(), std::to_string(i));
  }
  for (const auto& visitor : visitors) {
    for (const auto& batch : visitor->batches.waitFor(0)) EXPECT_EQ(batch.size(), 2u);
  }
  queue->remove(permanent);
  EXPECT_FALSE(observesStore(queue));
}

TEST_F(TransactionQueueTest, LiveQueueKeepsTheSetInTheStandardDefaults) {
  // Only this test of the program touches the standard defaults; it keeps them in a folder
  // of its own.
  const auto folder = std::filesystem::temp_directory_path() / ("velquist_live_" + std::to_string(::getpid()));
  ::setenv("VELQUIST_HOME", folder.c_str(), 1);
  const auto& queue = TransactionQueue::live();
  EXPECT_EQ(&TransactionQueue::live(), &queue);
  const auto listener = std::make_shared<RecordingListener>();
  queue->add(listener);
  const std::string id = "live-" + std::to_string(::getpid());
  SKPaymentQueue::defaultQueue().reportUpdatedTransactions({testing::makeStoreTransaction({.id = id})});
  ASSERT_EQ(listener->batches.waitFor(1).at(0).size(), 1u);
  queue->remove(listener);
  EXPECT_TRUE(stored(*foundation::UserDefaults::standard()).contains(id));
  // And it is in the application's file.
  foundation::FileUserDefaults reread(
      foundation::standardUserDefaultsPath(folder, foundation::Bundle::main().bundleIdentifier()));
  EXPECT_TRUE(stored(reread).contains(id));
  std::filesystem::remove_all(folder);
}

TEST(OriginalTransactionIDs, SplitDropsEmptyPiecesAndJoinRoundTrips) {
  const struct {
    std::string text;
    std::set<std::string> identifiers;
  } examples[] = {
      {"", {}},
      {",", {}},
      {"T1", {"T1"}},
      {",,T1,,T2,", {"T1", "T2"}},
      {",a,,b,", {"a", "b"}},
      {"a,a", {"a"}},
      {" a , b", {" a ", " b"}},
  };
  for (const auto& example : examples) {
    const auto split = splitOriginalTransactionIDs(example.text);
    EXPECT_EQ(std::set<std::string>(split.begin(), split.end()), example.identifiers) << example.text;
    EXPECT_EQ(splitOriginalTransactionIDs(joinOriginalTransactionIDs(split)), split) << example.text;
  }
  EXPECT_EQ(joinOriginalTransactionIDs({}), "");
  EXPECT_EQ(joinOriginalTransactionIDs({"T1"}), "T1");
  const auto two = joinOriginalTransactionIDs({"T1", "T2"});
  EXPECT_TRUE(two == "T1,T2" || two == "T2,T1") << two;
}

}  // namespace
}  // namespace velquist::storekit
