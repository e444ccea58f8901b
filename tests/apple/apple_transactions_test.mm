// Purchases through the adapter: the classification stories, identity and finishing, Ask
// to Buy, restores, resuming, the threads the framework reports on, and the price consent
// questions.
#include "apple_test_support.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

#include "velquist/foundation/user_defaults.h"
#include "velquist/storekit/transactions/transaction_queue.h"

namespace velquist::apple {
namespace {

using platform::SKPaymentQueue;
using platform::SKPaymentTransactionState;
using testing::AppleStoreTest;
using testing::ns;
using Batch = std::vector<storekit::Transaction>;

SKPaymentDiscount* objcOffer(const std::string& identifier) {
  return [[[SKPaymentDiscount alloc] initWithIdentifier:ns(identifier) keyIdentifier:@"key-1"
                                                  nonce:[[[NSUUID alloc] initWithUUIDString:@"E621E1F8-C36C-495A-93FC-0C247A3E6E5F"] autorelease]
                                              signature:@"c2lnbmF0dXJl"
                                              timestamp:@1700000000000] autorelease];
}

// The framework's transaction for one row of the shared scenarios.
SKPaymentTransaction* objcTransaction(const testing::StoreTransaction& row) {
  SKMutablePayment* payment = testing::objcPayment(row.product);
  SKPaymentTransaction* original = nil;
  if (row.original || row.originalWithoutID) {
    original = testing::objcTransaction(payment, SKPaymentTransactionStatePurchased,
                                        row.original ? ns(*row.original) : nil);
  }
  if (row.offer) payment.paymentDiscount = objcOffer(*row.offer);
  return testing::objcTransaction(payment, static_cast<::SKPaymentTransactionState>(row.state),
                                  row.id ? ns(*row.id) : nil, original);
}

class AppleTransactionsTest : public AppleStoreTest {
 protected:
  // The library's next batch of updated transactions (batches arrive one after another).
  SKPaymentQueue::Transactions nextUpdate() { return observer->updated.waitFor(++updates).at(updates - 1); }

  std::size_t updates = 0;
};

// The library's classification is pinned by its own tests over a scripted store; here the
// framework's records must carry everything it reads (originals, offers, identifiers, states).
TEST_F(AppleTransactionsTest, TheListenerQueueClassifiesEachPurchase) {
  for (const auto& scenario : testing::scenarios()) {
    if (scenario.batch.empty()) continue;  // the framework never reports an empty batch
    SCOPED_TRACE(scenario.name);
    const auto defaults = std::make_shared<foundation::InMemoryUserDefaults>();
    if (scenario.stored) defaults->setString(*scenario.stored, storekit::originalTransactionIDsKey);
    const auto queue = storekit::TransactionQueue::make(storekit::TransactionQueueListenerState(defaults));
    const auto listener = std::make_shared<testing::RecordingListener>();
    queue->add(listener);
    NSMutableArray* batch = [NSMutableArray array];
    for (const auto& row : scenario.batch) [batch addObject:objcTransaction(row)];
    [SKStoreDouble report:batch];
    const auto standIns = nextUpdate();
    Batch expected;
    for (std::size_t i = 0; i < standIns.size(); ++i) {
      if (scenario.outcomes[i] != testing::Outcome::renewal) {
        expected.push_back(testing::expectedRecord(scenario.batch[i], standIns[i]));
      }
    }
    EXPECT_EQ(listener->batches.waitFor(1), std::vector<Batch>{expected});
    queue->remove(listener);
  }
}

TEST_F(AppleTransactionsTest, APurchaseKeepsOneStandInUntilItIsFinished) {
  auto& queue = SKPaymentQueue::defaultQueue();
  const platform::SKPayment payment{
      .productIdentifier = "pro.trial", .quantity = 2, .applicationUsername = "account-7",
      .paymentDiscount = platform::SKPaymentDiscount{.identifier = "winback", .keyIdentifier = "key-1",
                                                     .nonce = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F",
                                                     .signature = "c2lnbmF0dXJl", .timestamp = 1700000000000},
      .simulatesAskToBuyInSandbox = true};
  queue.add(payment);
  ASSERT_EQ([[SKStoreDouble transactions] count], 1u);
  SKPaymentTransaction* transaction = [[SKStoreDouble transactions] firstObject];
  SKPayment* sent = transaction.payment;
  EXPECT_EQ(testing::liveObjects("SKMutablePayment"), 0);  // the adapter's own is released (the double keeps a copy)
  EXPECT_NSEQ(sent.productIdentifier, @"pro.trial");
  EXPECT_EQ(sent.quantity, 2);
  EXPECT_NSEQ(sent.applicationUsername, @"account-7");
  EXPECT_TRUE(sent.simulatesAskToBuyInSandbox);
  EXPECT_NSEQ(sent.paymentDiscount.identifier, @"winback");
  EXPECT_NSEQ([sent.paymentDiscount.nonce UUIDString], @"E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  EXPECT_EQ([sent.paymentDiscount.timestamp longLongValue], 1700000000000);

  // Purchasing, then Ask to Buy's deferral, then purchased: one object all along.
  [SKStoreDouble report:@[transaction]];
  const auto standIn = nextUpdate().at(0);
  EXPECT_EQ(standIn->payment(), payment);
  EXPECT_EQ(standIn->transactionState(), SKPaymentTransactionState::purchasing);
  queue.finishTransaction(standIn);  // still purchasing: the framework would refuse
  EXPECT_EQ([[SKStoreDouble finished] count], 0u);

  [SKStoreDouble move:transaction to:SKPaymentTransactionStateDeferred identifier:nil date:nil error:nil];
  [SKStoreDouble report:@[transaction]];
  EXPECT_EQ(nextUpdate(), SKPaymentQueue::Transactions{standIn});
  EXPECT_EQ(standIn->transactionState(), SKPaymentTransactionState::deferred);

  NSDate* date = [NSDate dateWithTimeIntervalSince1970:1700000000.25];
  [SKStoreDouble move:transaction to:SKPaymentTransactionStatePurchased identifier:@"1000" date:date error:nil];
  [SKStoreDouble report:@[transaction]];
  EXPECT_EQ(nextUpdate(), SKPaymentQueue::Transactions{standIn});
  EXPECT_EQ(standIn->progress().state, SKPaymentTransactionState::purchased);
  EXPECT_EQ(standIn->transactionIdentifier(), "1000");
  EXPECT_EQ(standIn->transactionDate(),
            SKPaymentQueue::Transactions::value_type::element_type::Date(std::chrono::milliseconds(1700000000250)));

  // Finishing the stand-in finishes the framework's object, which then leaves the queue.
  queue.finishTransaction(standIn);
  ASSERT_EQ([[SKStoreDouble finished] count], 1u);
  EXPECT_EQ([[SKStoreDouble finished] firstObject], transaction);
  EXPECT_EQ(observer->removed.waitFor(1), std::vector<SKPaymentQueue::Transactions>{{standIn}});
  queue.finishTransaction(standIn);  // gone from the queue: nothing more to finish
  EXPECT_EQ([[SKStoreDouble finished] count], 1u);

  // Once the framework let go of it, the same object would be a new transaction.
  [SKStoreDouble report:@[transaction]];
  EXPECT_NE(nextUpdate().at(0), standIn);
}

TEST_F(AppleTransactionsTest, APaymentTheFrameworkCannotTakeFailsAtOnce) {
  platform::SKPayment payment{.productIdentifier = "pro.trial",
                              .paymentDiscount = platform::SKPaymentDiscount{.identifier = "winback", .nonce = "not-a-uuid"}};
  SKPaymentQueue::defaultQueue().add(payment);
  const auto standIn = nextUpdate().at(0);
  EXPECT_EQ(standIn->payment(), payment);
  EXPECT_EQ(standIn->transactionState(), SKPaymentTransactionState::failed);
  EXPECT_EQ(standIn->error(), platform::SKError(platform::SKError::Code::paymentInvalid,
                                                "the offer's nonce is not a UUID: \"not-a-uuid\""));
  EXPECT_EQ([[SKStoreDouble transactions] count], 0u);
}

TEST_F(AppleTransactionsTest, RestoresReachTheFrameworkAndTheirTransactionsComeBack) {
  auto& queue = SKPaymentQueue::defaultQueue();
  queue.restoreCompletedTransactions("account-7");
  queue.restoreCompletedTransactions();
  NSArray* expected = @[@"account-7", [NSNull null]];
  EXPECT_NSEQ([SKStoreDouble restoreRequests], expected);

  // The original still on the queue is the same stand-in; one that is not gets a record of its own.
  SKPaymentTransaction* unfinished = testing::objcTransaction(testing::objcPayment("pro.monthly"),
                                                              SKPaymentTransactionStatePurchased, @"T1");
  [SKStoreDouble report:@[unfinished]];
  const auto unfinishedStandIn = nextUpdate().at(0);
  SKPaymentTransaction* old = testing::objcTransaction(testing::objcPayment("pro.trial"),
                                                       SKPaymentTransactionStatePurchased, @"T0");
  SKPaymentTransaction* first = testing::objcTransaction(testing::objcPayment("pro.monthly"),
                                                         SKPaymentTransactionStateRestored, @"T5", unfinished);
  SKPaymentTransaction* second = testing::objcTransaction(testing::objcPayment("pro.trial"),
                                                          SKPaymentTransactionStateRestored, @"T6", old);
  [SKStoreDouble report:@[first, second]];
  [SKStoreDouble finishRestore];
  const auto restored = nextUpdate();
  ASSERT_EQ(restored.size(), 2u);
  EXPECT_EQ(restored[0]->originalTransaction(), unfinishedStandIn);
  ASSERT_NE(restored[1]->originalTransaction(), nullptr);
  EXPECT_EQ(restored[1]->originalTransaction()->transactionIdentifier(), "T0");
  EXPECT_EQ(restored[1]->originalTransaction()->payment().productIdentifier, "pro.trial");
  EXPECT_EQ(restored[1]->transactionState(), SKPaymentTransactionState::restored);
  EXPECT_EQ(observer->restores.waitFor(1), std::vector<std::string>{"finished"});
}

TEST_F(AppleTransactionsTest, TransactionsLeftUnfinishedReachTheFirstObserverOfTheLibrary) {
  SKPaymentQueue::defaultQueue().removeTransactionObserver(observer);
  uninstallAppleStore();
  SKPaymentTransaction* left = testing::objcTransaction(testing::objcPayment("pro.monthly"),
                                                        SKPaymentTransactionStatePurchased, @"T9");
  [SKStoreDouble report:@[left]];  // from an earlier run: nobody hears it
  installAppleStore();
  EXPECT_EQ([SKStoreDouble observerCount], 0u);  // not yet: the library has nobody to tell
  SKPaymentQueue::defaultQueue().addTransactionObserver(observer);
  EXPECT_EQ([SKStoreDouble observerCount], 1u);
  const auto standIns = nextUpdate();
  ASSERT_EQ(standIns.size(), 1u);
  EXPECT_EQ(standIns[0]->transactionIdentifier(), "T9");
}

// A library observer that holds the thread it is called on until the test lets it go.
struct BlockingObserver final : platform::SKPaymentTransactionObserver {
  void updatedTransactions(SKPaymentQueue&, const SKPaymentQueue::Transactions& transactions) override {
    std::unique_lock lock(mutex);
    // A framework thread held here by mistake shows as a failure, not a hang.
    testing::waitUntil(released, lock, [&] { return open; }, "the test to let the observer go");
    for (const auto& transaction : transactions) states.push_back(transaction->transactionState());
  }
  void release() {
    std::lock_guard lock(mutex);
    open = true;
    released.notify_all();
  }
  std::mutex mutex;
  std::condition_variable released;
  bool open = false;
  std::vector<SKPaymentTransactionState> states;
};

TEST_F(AppleTransactionsTest, TheFrameworksThreadNeverWaitsForTheLibrarysObservers) {
  const auto blocking = std::make_shared<BlockingObserver>();
  SKPaymentQueue::defaultQueue().addTransactionObserver(blocking);
  SKPaymentTransaction* transaction = [SKStoreDouble transactionWithPayment:testing::objcPayment("pro.monthly") original:nil];
  // Each report returns while the observer still holds the first one.
  [SKStoreDouble report:@[transaction]];
  [SKStoreDouble move:transaction to:SKPaymentTransactionStateDeferred identifier:nil date:nil error:nil];
  [SKStoreDouble report:@[transaction]];
  [SKStoreDouble move:transaction to:SKPaymentTransactionStatePurchased identifier:@"T1" date:nil error:nil];
  [SKStoreDouble report:@[transaction]];
  blocking->release();
  observer->updated.waitFor(3);
  SKPaymentQueue::defaultQueue().removeTransactionObserver(blocking);
  std::lock_guard lock(blocking->mutex);
  // Each observer saw the states in the framework's order, the stand-in moving along with the reports.
  EXPECT_EQ(blocking->states, (std::vector{SKPaymentTransactionState::purchasing, SKPaymentTransactionState::deferred,
                                           SKPaymentTransactionState::purchased}));
}

TEST_F(AppleTransactionsTest, ReportsAndFinishesFromManyThreads) {
  constexpr int threads = 4, perThread = 25;
  std::vector<std::thread> reporters;
  for (int t = 0; t < threads; ++t) {
    reporters.emplace_back([t] {
      NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
      for (int i = 0; i < perThread; ++i) {
        SKPaymentTransaction* transaction = testing::objcTransaction(
            testing::objcPayment("pro.monthly"), SKPaymentTransactionStatePurchased,
            ns("T" + std::to_string(t) + "-" + std::to_string(i)));
        [SKStoreDouble report:@[transaction]];
        [SKStoreDouble report:@[transaction]];  // twice: the same stand-in
      }
      [pool drain];
    });
  }
  for (auto& reporter : reporters) reporter.join();
  const auto batches = observer->updated.waitFor(2 * threads * perThread);
  std::set<std::shared_ptr<platform::SKPaymentTransaction>> standIns;
  for (const auto& batch : batches) standIns.insert(batch.begin(), batch.end());
  ASSERT_EQ(standIns.size(), std::size_t{threads * perThread});

  // The library finishes them from its own threads while the framework reports on others.
  std::vector<std::thread> finishers;
  std::vector<std::shared_ptr<platform::SKPaymentTransaction>> all(standIns.begin(), standIns.end());
  for (int t = 0; t < threads; ++t) {
    finishers.emplace_back([&all, t] {
      for (std::size_t i = t; i < all.size(); i += threads) SKPaymentQueue::defaultQueue().finishTransaction(all[i]);
    });
  }
  std::thread storefronts([] {
    NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
    for (int i = 0; i < 20; ++i) {
      [SKStoreDouble changeStorefront:[SKStorefront recordWithValues:@{@"countryCode": @"USA", @"identifier": @"143441"}]];
    }
    [pool drain];
  });
  for (auto& finisher : finishers) finisher.join();
  storefronts.join();
  EXPECT_EQ([[SKStoreDouble finished] count], std::size_t{threads * perThread});
  std::size_t removed = 0;
  for (const auto& batch : observer->removed.waitFor(threads * perThread)) removed += batch.size();
  EXPECT_EQ(removed, std::size_t{threads * perThread});
}

// The app's answer to the price consent question, with the threads it was asked on.
struct AnsweringDelegate final : platform::SKPaymentQueueDelegate {
  explicit AnsweringDelegate(bool answer) : answer(answer) {}
  bool shouldShowPriceConsent(SKPaymentQueue&) override {
    askedOn.push_back(std::this_thread::get_id());
    return answer;
  }
  bool answer;
  std::vector<std::thread::id> askedOn;
};

TEST_F(AppleTransactionsTest, ThePriceConsentQuestionsPassBetweenTheFrameworkAndTheApp) {
  auto& queue = SKPaymentQueue::defaultQueue();
  // The class of the framework queue's delegate (read in a pool of its own, so that the
  // count of live delegates is not held up by the test's pool).
  const auto frameworkDelegate = [] {
    NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
    id delegate = [[::SKPaymentQueue defaultQueue] delegate];
    std::string name = delegate ? [NSStringFromClass([delegate class]) UTF8String] : "none";
    [pool drain];
    return name;
  };
  const auto oursIsLive = [] { return testing::liveObjects("VSKPaymentQueueDelegate"); };
  EXPECT_EQ(frameworkDelegate(), "VSKPaymentQueueDelegate");

  struct Row {
    const char* name;
    std::optional<bool> appAnswer;  // none: the app set no delegate
    bool shows;
  };
  for (const Row& row : {Row{"without a delegate", std::nullopt, true}, Row{"the app lets it show", true, true},
                         Row{"the app defers it", false, false}}) {
    SCOPED_TRACE(row.name);
    const auto delegate = row.appAnswer ? std::make_shared<AnsweringDelegate>(*row.appAnswer) : nullptr;
    queue.setDelegate(delegate);  // held weakly: gone with the row
    const NSUInteger sheets = [SKStoreDouble priceConsentSheets], calls = [SKStoreDouble showPriceConsentCalls];
    // The framework asks on its own thread and waits for the answer there.
    BOOL shown = NO;
    std::thread::id asker;
    std::thread([&] {
      NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
      asker = std::this_thread::get_id();
      shown = [SKStoreDouble askToShowPriceConsent];
      [pool drain];
    }).join();
    EXPECT_EQ(shown == YES, row.shows);
    if (delegate) EXPECT_EQ(delegate->askedOn, std::vector{asker});
    EXPECT_EQ([SKStoreDouble priceConsentSheets], sheets + (row.shows ? 1 : 0));
    // The library's call reaches the framework, which shows a sheet it held back.
    queue.showPriceConsentIfNeeded();
    EXPECT_EQ([SKStoreDouble showPriceConsentCalls], calls + 1);
    EXPECT_EQ([SKStoreDouble priceConsentSheets], sheets + 1);
  }

  // A new adapter puts its own delegate in place of the old one, which is released.
  installAppleStore();
  EXPECT_EQ(oursIsLive(), 1);
  const auto defers = std::make_shared<AnsweringDelegate>(false);
  queue.setDelegate(defers);
  EXPECT_FALSE([SKStoreDouble askToShowPriceConsent]);
  EXPECT_EQ(defers->askedOn.size(), 1u);

  uninstallAppleStore();
  EXPECT_EQ(frameworkDelegate(), "none");
  EXPECT_EQ(oursIsLive(), 0);
  EXPECT_TRUE([SKStoreDouble askToShowPriceConsent]);  // the app is no longer asked
  EXPECT_EQ(defers->askedOn.size(), 1u);

  // A delegate someone else set after the adapter's stays when the adapter goes.
  installAppleStore();
  id other = [[[NSObject alloc] init] autorelease];
  [[::SKPaymentQueue defaultQueue] setDelegate:other];
  uninstallAppleStore();
  EXPECT_EQ(frameworkDelegate(), "NSObject");
  EXPECT_EQ(oursIsLive(), 0);
  [[::SKPaymentQueue defaultQueue] setDelegate:nil];
}

}  // namespace
}  // namespace velquist::apple
