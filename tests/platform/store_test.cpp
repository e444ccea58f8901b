#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/scripted_store_backend.h"
#include "velquist/platform/sk_payment_queue.h"
#include "velquist/platform/sk_products_request.h"
#include "velquist/platform/store_backend.h"

namespace velquist::platform {
namespace {

using testing::ScriptedStoreBackend;
using testing::StoreBackendScope;

// Writes what it is told into the test's log as "<name>: <what>" (just "<what>" when nameless).
// Answer threads write one at a time, and the test reads only after joining them.
class Recorder final : public SKProductsRequestDelegate, public SKPaymentTransactionObserver {
 public:
  explicit Recorder(std::vector<std::string>& log, std::string name = "") : log_(log), name_(std::move(name)) {}
  void productsRequestDidReceive(SKProductsRequest&, const SKProductsResponse& response) override {
    std::string line = "received";
    for (const auto& product : response.products) line += " " + product.productIdentifier;
    write(line);
  }
  void requestDidFailWithError(SKProductsRequest&, const SKError& error) override { write(error.what()); }
  void requestDidFinish(SKProductsRequest&) override { write("finished"); }
  void updatedTransactions(SKPaymentQueue&, const SKPaymentQueue::Transactions& transactions) override {
    for (const auto& t : transactions) {
      const auto error = t->error();
      write(t->payment().productIdentifier + " state " + std::to_string(static_cast<int>(t->transactionState())) +
            (error ? std::string(" ") + error->what() : ""));
    }
    if (onUpdate) onUpdate();
  }
  void restoreCompletedTransactionsFinished(SKPaymentQueue&) override { write("restored"); }
  void restoreCompletedTransactionsFailed(SKPaymentQueue&, const SKError& e) override { write(e.what()); }
  std::function<void()> onUpdate;

 private:
  void write(const std::string& what) { log_.push_back(name_.empty() ? what : name_ + ": " + what); }
  std::vector<std::string>& log_;
  std::string name_;
};

TEST(SKProductsRequest, LifeOfARequest) {
  using Step = std::function<void(std::shared_ptr<SKProductsRequest>&, ScriptedStoreBackend&)>;
  const Step nothing = [](auto&, auto&) {};
  const std::vector<std::string> answered = {"received pro", "finished"};
  std::vector<std::string> log;
  struct Example {
    std::string name;
    Step beforeStart, afterStart;
    std::vector<std::string> log;
    std::size_t requests, cancels;
  };
  const std::vector<Example> examples = {
      {"answered, then finished", nothing, nothing, answered, 1, 0},
      {"a second start asks nothing more", nothing, [](auto& r, auto&) { r->start(); }, answered, 1, 0},
      {"the store's error", [](auto&, auto& b) { b.setFailure(SKError(SKError::Code::unknown, "offline")); }, nothing,
       {"offline"}, 1, 0},
      {"no backend", [](auto&, auto&) { setDefaultStoreBackend(nullptr); }, nothing,
       {"no store backend is configured"}, 0, 0},
      {"cancel before the answer tells the backend and silences the delegate",
       [](auto&, auto& b) { b.holdAnswers(true); }, [](auto& r, auto& b) { r->cancel(), b.releaseHeld(); }, {}, 1, 1},
      {"cancel after the answer does nothing", nothing, [](auto& r, auto& b) { b.waitForAnswers(), r->cancel(); },
       answered, 1, 0},
      {"the delegate is held weakly", [&](auto& r, auto&) { r->setDelegate(std::make_shared<Recorder>(log)); },
       nothing, {}, 1, 0},
      {"a request gone before its answer drops it", [](auto&, auto& b) { b.holdAnswers(true); },
       [](auto& r, auto& b) { r.reset(), b.releaseHeld(); }, {}, 1, 0},
  };
  for (const auto& example : examples) {
    SCOPED_TRACE(example.name);
    log.clear();
    auto backend = std::make_shared<ScriptedStoreBackend>();
    backend->setCatalogue({{.productIdentifier = "pro"}});
    StoreBackendScope scope(backend);
    auto delegate = std::make_shared<Recorder>(log);
    auto request = SKProductsRequest::create({"pro", "unknown"});
    request->setDelegate(delegate);
    example.beforeStart(request, *backend);
    request->start();
    example.afterStart(request, *backend);
    backend->waitForAnswers();
    EXPECT_EQ(log, example.log);
    EXPECT_EQ(backend->requests().size(), example.requests);
    EXPECT_EQ(backend->cancelled(), example.cancels);
  }
}

TEST(PaymentQueue, ObserversAreHeldWeaklyOnceEachInOrderAndMayChangeTheListFromInsideACall) {
  std::vector<std::string> log;
  SKPaymentQueue& queue = SKPaymentQueue::defaultQueue();
  const auto recorder = [&](const char* name) { return std::make_shared<Recorder>(log, name); };
  auto first = recorder("first"), second = recorder("second"), gone = recorder("gone"), late = recorder("late");
  for (const auto& observer : {first, gone, second, first}) queue.addTransactionObserver(observer);
  gone.reset();
  queue.removeTransactionObserver(recorder("never added"));
  first->onUpdate = [&] { queue.removeTransactionObserver(first), queue.addTransactionObserver(late); };

  auto transaction = std::make_shared<SKPaymentTransaction>(SKPayment{.productIdentifier = "pro"});
  queue.reportUpdatedTransactions({transaction});
  transaction->update({.state = SKPaymentTransactionState::purchased});
  queue.reportUpdatedTransactions({transaction});
  EXPECT_EQ(log, (std::vector<std::string>{"first: pro state 0", "second: pro state 0", "second: pro state 1",
                                           "late: pro state 1"}));
}

TEST(PaymentQueue, PaymentsAndRestoresGoToTheBackendAndFailWithoutOne) {
  std::vector<std::string> log;
  SKPaymentQueue& queue = SKPaymentQueue::defaultQueue();
  auto observer = std::make_shared<Recorder>(log);
  queue.addTransactionObserver(observer);
  queue.add({.productIdentifier = "pro"});
  queue.restoreCompletedTransactions();
  queue.finishTransaction(nullptr);
  EXPECT_EQ(log, (std::vector<std::string>{"pro state 2 no store backend is configured",
                                           "no store backend is configured"}));

  auto backend = std::make_shared<ScriptedStoreBackend>();
  StoreBackendScope scope(backend);
  queue.add({.productIdentifier = "pro", .quantity = 2});
  queue.restoreCompletedTransactions();
  EXPECT_EQ(backend->payments(), (std::vector<SKPayment>{{.productIdentifier = "pro", .quantity = 2}}));
  EXPECT_EQ(log.back(), "restored");
}

// The common forms are pinned where transactions and products are described; here the rare parts.
TEST(StoreDescriptions, UnknownUnitsAndPaymentDiscounts) {
  EXPECT_EQ((SKProductSubscriptionPeriod{1, SKProductPeriodUnit{9}}.description()),
            "<SKProductSubscriptionPeriod numberOfUnits: 1, unit: 9>");
  EXPECT_EQ((SKPayment{.productIdentifier = "pro", .paymentDiscount = SKPaymentDiscount{.identifier = "winback"}}).description(),
            "<SKPayment productIdentifier: pro, quantity: 1, paymentDiscount: winback>");
}

}  // namespace
}  // namespace velquist::platform
