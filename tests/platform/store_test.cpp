#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/scripted_store_backend.h"
#include "velquist/platform/sk_payment_queue.h"
#include "velquist/platform/sk_products_request.h"
#include "velquist/platform/store_backend.h"
#include "velquist/support/mutex.h"

namespace velquist::platform {
namespace {

using testing::ScriptedStoreBackend;
using testing::StoreBackendScope;

// Writes down what a request told it, one line per call.
class RecordingDelegate final : public SKProductsRequestDelegate {
 public:
  void productsRequestDidReceive(SKProductsRequest&, const SKProductsResponse& response) override {
    std::string line = "received";
    for (const auto& product : response.products) line += " " + product.productIdentifier;
    record(line);
  }
  void requestDidFailWithError(SKProductsRequest&, const SKError& error) override {
    record(std::string("failed: ") + error.what());
  }
  void requestDidFinish(SKProductsRequest&) override { record("finished"); }

  std::vector<std::string> events() const {
    support::LockGuard lock(mutex_);
    return events_;
  }

 private:
  void record(std::string line) {
    support::LockGuard lock(mutex_);
    events_.push_back(std::move(line));
  }
  mutable support::Mutex mutex_;
  std::vector<std::string> events_ VELQUIST_GUARDED_BY(mutex_);
};

TEST(SKProductsRequest, LifeOfARequest) {
  using Step = std::function<void(SKProductsRequest&, ScriptedStoreBackend&)>;
  const Step nothing = [](auto&, auto&) {};
  struct Example {
    std::string name;
    Step beforeStart, afterStart;
    std::vector<std::string> events;
    std::size_t backendCancels;
  };
  const std::vector<Example> examples = {
      {"answered, then finished", nothing, nothing, {"received pro", "finished"}, 0},
      {"a second start asks nothing more", nothing, [](auto& r, auto&) { r.start(); }, {"received pro", "finished"}, 0},
      {"the store's error", [](auto&, auto& b) { b.setFailure(SKError(SKError::Code::unknown, "offline")); }, nothing,
       {"failed: offline"}, 0},
      {"cancel before the answer tells the backend and silences the delegate",
       [](auto&, auto& b) { b.holdAnswers(true); },
       [](auto& r, auto& b) {
         r.cancel();
         b.releaseHeld();
       },
       {}, 1},
      {"cancel after the answer does nothing", nothing,
       [](auto& r, auto& b) {
         b.waitForAnswers();
         r.cancel();
       },
       {"received pro", "finished"}, 0},
  };
  for (const auto& example : examples) {
    SCOPED_TRACE(example.name);
    auto backend = std::make_shared<ScriptedStoreBackend>();
    backend->setCatalogue({{.productIdentifier = "pro"}});
    StoreBackendScope scope(backend);
    auto delegate = std::make_shared<RecordingDelegate>();
    auto request = SKProductsRequest::create({"pro", "unknown"});
    request->setDelegate(delegate);
    example.beforeStart(*request, *backend);
    request->start();
    example.afterStart(*request, *backend);
    backend->waitForAnswers();
    EXPECT_EQ(delegate->events(), example.events);
    EXPECT_EQ(backend->requests().size(), 1u);
    EXPECT_EQ(backend->cancelled(), example.backendCancels);
  }
}

TEST(SKProductsRequest, WithoutABackendItFailsBeforeStartReturns) {
  auto delegate = std::make_shared<RecordingDelegate>();
  auto request = SKProductsRequest::create({"pro"});
  request->setDelegate(delegate);
  request->start();
  EXPECT_EQ(delegate->events(), std::vector<std::string>{"failed: no store backend is configured"});
}

TEST(SKProductsRequest, HoldsItsDelegateWeaklyAndAGoneRequestDropsItsAnswer) {
  auto backend = std::make_shared<ScriptedStoreBackend>();
  backend->holdAnswers(true);
  StoreBackendScope scope(backend);

  auto delegate = std::make_shared<RecordingDelegate>();
  std::weak_ptr<RecordingDelegate> watched = delegate;
  auto request = SKProductsRequest::create({"pro"});
  request->setDelegate(delegate);
  request->start();
  delegate.reset();
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(request->delegate(), nullptr);

  auto kept = std::make_shared<RecordingDelegate>();
  auto dropped = SKProductsRequest::create({"pro"});
  dropped->setDelegate(kept);
  dropped->start();
  dropped.reset();

  EXPECT_EQ(backend->heldCount(), 2u);
  backend->releaseHeld();
  backend->waitForAnswers();
  EXPECT_TRUE(kept->events().empty());
}

// Writes down the reports it hears as "<name>: <what>".
class RecordingObserver final : public SKPaymentTransactionObserver {
 public:
  RecordingObserver(std::string name, std::vector<std::string>& log) : name_(std::move(name)), log_(log) {}

  void updatedTransactions(SKPaymentQueue&, const SKPaymentQueue::Transactions& transactions) override {
    for (const auto& transaction : transactions) {
      const auto error = transaction->error();
      log_.push_back(name_ + ": " + transaction->payment().productIdentifier + " state " +
                     std::to_string(static_cast<int>(transaction->transactionState())) +
                     (error ? std::string(" ") + error->what() : ""));
    }
    if (onUpdate) onUpdate();
  }
  void restoreCompletedTransactionsFinished(SKPaymentQueue&) override { log_.push_back(name_ + ": restored"); }
  void restoreCompletedTransactionsFailed(SKPaymentQueue&, const SKError& error) override {
    log_.push_back(name_ + ": restore failed " + error.what());
  }

  std::function<void()> onUpdate;

 private:
  std::string name_;
  std::vector<std::string>& log_;  // the tests report from one thread
};

class PaymentQueue : public ::testing::Test {
 protected:
  void TearDown() override {
    for (const auto& observer : queue.transactionObservers()) queue.removeTransactionObserver(observer);
  }
  SKPaymentQueue& queue = SKPaymentQueue::defaultQueue();
  std::vector<std::string> log;
};

TEST_F(PaymentQueue, ObserversAreHeldWeaklyOnceEachInOrder) {
  auto first = std::make_shared<RecordingObserver>("first", log);
  auto second = std::make_shared<RecordingObserver>("second", log);
  auto gone = std::make_shared<RecordingObserver>("gone", log);
  queue.addTransactionObserver(first);
  queue.addTransactionObserver(gone);
  queue.addTransactionObserver(second);
  queue.addTransactionObserver(first);
  gone.reset();
  queue.removeTransactionObserver(std::make_shared<RecordingObserver>("never added", log));

  auto transaction = std::make_shared<SKPaymentTransaction>(SKPayment{.productIdentifier = "pro"});
  queue.reportUpdatedTransactions({transaction});
  transaction->update({.state = SKPaymentTransactionState::purchased, .transactionIdentifier = "1000"});
  queue.removeTransactionObserver(first);
  queue.reportUpdatedTransactions({transaction});
  EXPECT_EQ(log, (std::vector<std::string>{"first: pro state 0", "second: pro state 0", "second: pro state 1"}));
  EXPECT_EQ(transaction->transactionIdentifier(), "1000");
}

TEST_F(PaymentQueue, AnObserverMayChangeTheListFromInsideACall) {
  auto leaving = std::make_shared<RecordingObserver>("leaving", log);
  auto late = std::make_shared<RecordingObserver>("late", log);
  leaving->onUpdate = [&] {
    queue.removeTransactionObserver(leaving);
    queue.addTransactionObserver(late);
  };
  queue.addTransactionObserver(leaving);
  const SKPaymentQueue::Transactions batch{std::make_shared<SKPaymentTransaction>(SKPayment{.productIdentifier = "a"})};
  queue.reportUpdatedTransactions(batch);
  queue.reportUpdatedTransactions(batch);
  EXPECT_EQ(log, (std::vector<std::string>{"leaving: a state 0", "late: a state 0"}));
}

TEST_F(PaymentQueue, WithoutABackendPaymentsAndRestoresFailAndThereIsNoStorefront) {
  auto observer = std::make_shared<RecordingObserver>("o", log);
  queue.addTransactionObserver(observer);
  queue.add({.productIdentifier = "pro"});
  queue.restoreCompletedTransactions();
  queue.finishTransaction(nullptr);
  EXPECT_EQ(log, (std::vector<std::string>{"o: pro state 2 no store backend is configured",
                                           "o: restore failed no store backend is configured"}));
  EXPECT_EQ(queue.storefront(), std::nullopt);

  auto backend = std::make_shared<ScriptedStoreBackend>();
  backend->setStorefront(SKStorefront{"FRA", "143442"});
  StoreBackendScope scope(backend);
  queue.add({.productIdentifier = "pro", .quantity = 2});
  queue.restoreCompletedTransactions();
  EXPECT_EQ(backend->payments(), (std::vector<SKPayment>{{.productIdentifier = "pro", .quantity = 2}}));
  EXPECT_EQ(log.back(), "o: restored");
  EXPECT_EQ(queue.storefront(), (SKStorefront{"FRA", "143442"}));
}

TEST(StoreDescriptions, PeriodsAndPayments) {
  const std::vector<std::pair<std::string, std::string>> examples = {
      {SKProductSubscriptionPeriod{3, SKProductPeriodUnit::month}.description(),
       "<SKProductSubscriptionPeriod numberOfUnits: 3, unit: month>"},
      {SKProductSubscriptionPeriod{1, static_cast<SKProductPeriodUnit>(9)}.description(),
       "<SKProductSubscriptionPeriod numberOfUnits: 1, unit: 9>"},
      {SKPayment{.productIdentifier = "pro", .quantity = 2}.description(),
       "<SKPayment productIdentifier: pro, quantity: 2>"},
      {SKPayment{.productIdentifier = "pro", .paymentDiscount = SKPaymentDiscount{.identifier = "winback"}}.description(),
       "<SKPayment productIdentifier: pro, quantity: 1, paymentDiscount: winback>"},
  };
  for (const auto& [actual, expected] : examples) EXPECT_EQ(actual, expected);
}

}  // namespace
}  // namespace velquist::platform
