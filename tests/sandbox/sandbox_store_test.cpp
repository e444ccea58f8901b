// End-to-end tests of the sandbox store, driven through the store stand-ins an app uses:
// the default payment queue, products requests and the library's request forms.

#include "velquist/sandbox/sandbox_store.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <mutex>
#include <thread>

#include "common/signal_recorder.h"
#include "velquist/foundation/bundle.h"
#include "velquist/foundation/file_io.h"
#include "velquist/foundation/json.h"
#include "velquist/platform/sk_payment_queue.h"
#include "velquist/platform/sk_products_request.h"
#include "velquist/sandbox/storefronts.h"
#include "velquist/storekit/product/product_from_store.h"
#include "velquist/storekit/store/product_request.h"
#include "velquist/storekit/store/receipt.h"
#include "velquist/support/cancellation_error.h"

namespace velquist::sandbox {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using platform::SKError;
using platform::SKPayment;
using platform::SKPaymentDiscount;
using platform::SKPaymentQueue;
using platform::SKPaymentTransaction;
using platform::SKPaymentTransactionState;
using Lines = std::vector<std::string>;

const fs::path demoCatalogue = fs::path(VELQUIST_SOURCE_DIR) / "examples/velquist_demo.storekit";
constexpr std::string_view kPrefix = "com.velquist.demo.";

std::string shortName(std::string_view productID) {
  return std::string(productID.starts_with(kPrefix) ? productID.substr(kPrefix.size()) : productID);
}

std::string id(std::string_view name) { return std::string(kPrefix) + std::string(name); }

// "pro.yearly purchased #2 of #1", "nope failed (5)": one line per transaction as reported.
std::string describe(const SKPaymentTransaction& transaction) {
  static constexpr std::string_view names[] = {"purchasing", "purchased", "failed", "restored", "deferred"};
  const auto progress = transaction.progress();
  std::string line = shortName(transaction.payment().productIdentifier) + " " +
                     std::string(names[static_cast<int>(progress.state)]);
  if (progress.transactionIdentifier) line += " #" + *progress.transactionIdentifier;
  if (const auto& original = transaction.originalTransaction()) {
    line += " of #" + original->transactionIdentifier().value_or("?");
  }
  if (progress.error) line += " (" + std::to_string(static_cast<int>(progress.error->code())) + ")";
  return line;
}

// Everything the payment queue tells its observers, as lines, and the transactions seen.
class QueueLog final : public platform::SKPaymentTransactionObserver {
 public:
  void updatedTransactions(SKPaymentQueue&, const SKPaymentQueue::Transactions& transactions) override {
    std::lock_guard lock(mutex_);
    for (const auto& transaction : transactions) {
      lines_.push_back(describe(*transaction));
      seen_.push_back(transaction);
    }
  }
  void removedTransactions(SKPaymentQueue&, const SKPaymentQueue::Transactions& transactions) override {
    std::lock_guard lock(mutex_);
    for (const auto& transaction : transactions) lines_.push_back("removed " + describe(*transaction));
  }
  void restoreCompletedTransactionsFinished(SKPaymentQueue&) override { add("restore finished"); }
  void restoreCompletedTransactionsFailed(SKPaymentQueue&, const SKError& error) override {
    add(std::string("restore failed: ") + error.what());
  }

  Lines take() {
    std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
  }
  std::shared_ptr<SKPaymentTransaction> last() {
    std::lock_guard lock(mutex_);
    return seen_.empty() ? nullptr : seen_.back();
  }

 private:
  void add(std::string line) {
    std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
  }

  std::mutex mutex_;
  Lines lines_;
  std::vector<std::shared_ptr<SKPaymentTransaction>> seen_;
};

using Tweak = std::function<void(StoreKitConfiguration&)>;

class SandboxStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // A child process of a death test works in its parent's folder.
    if (const char* inherited = std::getenv("VELQUIST_SANDBOX_TEST_FOLDER")) {
      folder = inherited;
      return;
    }
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    folder = fs::temp_directory_path() / ("sandbox-" + std::string(test->name()) + "-" + std::to_string(::getpid()));
    fs::remove_all(folder);
  }
  void TearDown() override {
    platform::setDefaultStoreBackend(nullptr);
    store.reset();
    fs::remove_all(folder);
  }

  // Opens the demo catalogue, changed by `tweak`, as the default store, and starts observing.
  std::shared_ptr<SandboxStore> open(const Tweak& tweak = {}, SandboxStoreOptions options = {}) {
    StoreKitConfiguration configuration = loadStoreKitConfiguration(demoCatalogue);
    if (tweak) tweak(configuration);
    options.stateDirectory = folder;
    store = SandboxStore::open(std::move(configuration), std::move(options));
    platform::setDefaultStoreBackend(store);
    SKPaymentQueue::defaultQueue().addTransactionObserver(log);
    return store;
  }

  Lines buy(std::string_view product, std::optional<SKPaymentDiscount> discount = std::nullopt) {
    SKPaymentQueue::defaultQueue().add(SKPayment{.productIdentifier = id(product), .paymentDiscount = std::move(discount)});
    return settle();
  }

  Lines settle() {
    store->waitUntilIdle();
    return log->take();
  }

  // The offers the ledger charged each purchase and renewal of a product under.
  Lines offers(std::string_view product) {
    Lines lines;
    for (const auto& entry : store->transactions()) {
      if (entry.productIdentifier != id(product) || entry.state != SKPaymentTransactionState::purchased) continue;
      const char* names[] = {"full", "intro", "promo"};
      lines.push_back(std::string(names[static_cast<int>(entry.offer)]) +
                      (entry.offerPeriodIndex ? " " + std::to_string(entry.offerPeriodIndex) : ""));
    }
    return lines;
  }

  fs::path folder;
  std::shared_ptr<SandboxStore> store;
  std::shared_ptr<QueueLog> log = std::make_shared<QueueLog>();
};

SKPaymentDiscount signedOffer(std::string identifier) {
  return {.identifier = std::move(identifier), .keyIdentifier = "KEY1", .nonce = "n", .signature = "s", .timestamp = 1};
}

TEST(Storefronts, TableAndPriceLocales) {
  EXPECT_EQ(storefrontNamed("PRT"), (StorefrontInfo{"PRT", "PT", "143453", "EUR", "pt"}));
  EXPECT_EQ(storefrontNamed("JPN")->identifier, "143462");
  EXPECT_EQ(storefrontNamed("USA")->identifier, "143441");
  EXPECT_FALSE(storefrontNamed("usa"));
  EXPECT_FALSE(storefrontNamed("ZZZ"));
  EXPECT_FALSE(storefrontNamed(""));

  const struct {
    std::optional<std::string> locale;
    std::string_view storefront;
    std::string expected;
  } cases[] = {
      {"en_US", "PRT", "en_PT@currency=EUR"}, {"pt_BR", "ESP", "pt_ES@currency=EUR"},
      {std::nullopt, "JPN", "ja_JP@currency=JPY"}, {"", "DEU", "de_DE@currency=EUR"},
      {"zh-Hans_CN", "USA", "zh_US@currency=USD"}, {"ja", "GBR", "ja_GB@currency=GBP"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(priceLocaleIdentifier(c.locale, *storefrontNamed(c.storefront)), c.expected) << c.storefront;
  }
}

TEST_F(SandboxStoreTest, ProductsComeInCatalogueOrderWithLocaleAndStorefrontPrices) {
  const struct {
    std::string_view storefront;
    std::optional<std::string> locale;
    std::string priceLocale;
    std::string coinsTitle;
    std::string coinsPrice;
    std::string weeklyTitle;
  } cases[] = {
      {"USA", "en_US", "en_US@currency=USD", "100 Coins", "$0.99", "Pro Weekly"},
      {"PRT", "en_US", "en_PT@currency=EUR", "100 Coins", "€0.99", "Pro Weekly"},
      {"DEU", "de_DE", "de_DE@currency=EUR", "100 Coins", "0,99\u00A0€", "Pro wöchentlich"},
      {"RUS", "ru_RU", "ru_RU@currency=RUB", "100 монет", "0,99₽", "Pro Weekly"},
      {"JPN", std::nullopt, "ja_JP@currency=JPY", "100 Coins", "￥0", "Pro Weekly"},
  };
  open();
  for (const auto& c : cases) {
    store->setStorefront(c.storefront);
    store->setLocale(c.locale);
    const auto products = storekit::products({id("pro.weekly"), id("coins100"), "nope", id("coins100")});
    ASSERT_EQ(products.size(), 2u) << c.storefront;
    const auto coins = storekit::makeProduct(products[0]);
    const auto weekly = storekit::makeProduct(products[1]);
    EXPECT_EQ(coins.id.rawValue, id("coins100"));
    EXPECT_EQ(coins.priceLocale.identifier(), c.priceLocale);
    EXPECT_EQ(coins.displayName, c.coinsTitle) << c.storefront;
    EXPECT_EQ(coins.displayPrice, c.coinsPrice) << c.storefront;
    EXPECT_EQ(weekly.displayName, c.weeklyTitle) << c.storefront;
    EXPECT_EQ(store->storefront()->identifier, storefrontNamed(c.storefront)->identifier);
  }
  EXPECT_THROW(store->setStorefront("XYZ"), std::invalid_argument);
}

TEST_F(SandboxStoreTest, SubscriptionsCarryTheirPeriodsAndOffers) {
  open();
  const auto monthly = store->product(id("pro.monthly"));
  ASSERT_TRUE(monthly);
  EXPECT_EQ(monthly->subscriptionGroupIdentifier, "20001000");
  EXPECT_EQ(monthly->subscriptionPeriod->description(), "<SKProductSubscriptionPeriod numberOfUnits: 1, unit: month>");
  ASSERT_TRUE(monthly->introductoryPrice);
  EXPECT_EQ(monthly->introductoryPrice->numberOfPeriods, 3);
  EXPECT_EQ(monthly->introductoryPrice->price, *foundation::Decimal::fromString("2.49"));
  EXPECT_FALSE(monthly->introductoryPrice->identifier);
  ASSERT_EQ(monthly->discounts.size(), 2u);
  EXPECT_EQ(monthly->discounts[1].identifier, "loyalty.trial");
  EXPECT_EQ(monthly->discounts[1].paymentMode, platform::SKProductDiscountPaymentMode::freeTrial);
  EXPECT_EQ(monthly->discounts[1].type, platform::SKProductDiscountType::subscription);

  const auto season = store->product(id("season"));  // non-renewing: no period, no group
  ASSERT_TRUE(season);
  EXPECT_FALSE(season->subscriptionPeriod);
  EXPECT_FALSE(season->subscriptionGroupIdentifier);
  EXPECT_FALSE(store->product("nope"));
}

// A delegate that records how its request ended.
class DelegateLog final : public platform::SKProductsRequestDelegate {
 public:
  void productsRequestDidReceive(platform::SKProductsRequest&, const platform::SKProductsResponse& response) override {
    std::lock_guard lock(mutex);
    std::string line = "received";
    for (const auto& product : response.products) line += " " + shortName(product.productIdentifier);
    for (const auto& invalid : response.invalidProductIdentifiers) line += " !" + invalid;
    lines.push_back(line);
  }
  void requestDidFailWithError(platform::SKProductsRequest&, const SKError& error) override {
    std::lock_guard lock(mutex);
    lines.push_back(std::string("failed: ") + error.what());
  }
  Lines take() {
    std::lock_guard lock(mutex);
    return std::exchange(lines, {});
  }

  std::mutex mutex;
  Lines lines;
};

TEST_F(SandboxStoreTest, ProductsRequestsInEveryLife) {
  open();
  auto delegate = std::make_shared<DelegateLog>();
  auto startRequest = [&](std::unordered_set<std::string> identifiers) {
    auto request = platform::SKProductsRequest::create(std::move(identifiers));
    request->setDelegate(delegate);
    request->start();
    return request;
  };

  // A request nobody holds drops its answer, so each is kept until answered.
  auto found = startRequest({id("lifetime"), "b.unknown", "a.unknown"});
  store->waitUntilIdle();
  EXPECT_EQ(delegate->take(), Lines{"received lifetime !a.unknown !b.unknown"});

  // Started twice: one answer.
  auto twice = startRequest({id("coins100")});
  twice->start();
  store->waitUntilIdle();
  EXPECT_EQ(delegate->take(), Lines{"received coins100"});

  // Cancelled while the store holds it: never answered, even once the store lets go.
  store->setHoldsProductsRequests(true);
  auto cancelled = startRequest({id("coins100")});
  auto answeredLater = startRequest({id("lifetime")});
  cancelled->cancel();
  store->waitUntilIdle();
  EXPECT_EQ(delegate->take(), Lines{});
  store->setHoldsProductsRequests(false);
  store->waitUntilIdle();
  EXPECT_EQ(delegate->take(), Lines{"received lifetime"});

  // Failing, from the test setting.
  store->setProductsRequestFailure(SKError(SKError::Code::cloudServiceNetworkConnectionFailed, "offline"));
  auto failing = startRequest({id("coins100")});
  store->waitUntilIdle();
  EXPECT_EQ(delegate->take(), Lines{"failed: offline"});
  try {
    storekit::products({id("coins100")});
    ADD_FAILURE() << "expected the store's error";
  } catch (const SKError& error) {
    EXPECT_EQ(error.code(), SKError::Code::cloudServiceNetworkConnectionFailed);
  }
}

TEST_F(SandboxStoreTest, TheFileCanSimulateLoadFailures) {
  open([](StoreKitConfiguration& configuration) {
    configuration.settings.storeKitErrors = {{.name = "Load Products", .enabled = true, .current = {{"generic", 4}}}};
  });
  try {
    storekit::products({id("coins100")});
    ADD_FAILURE() << "expected the simulated error";
  } catch (const SKError& error) {
    EXPECT_STREQ(error.what(), "simulated Load Products error (generic 4)");
  }
}

TEST_F(SandboxStoreTest, RequestFormsCancelWhileTheStoreHoldsTheAnswer) {
  open();
  store->setHoldsProductsRequests(true);

  // The blocking form: stopping it throws the cancellation error; no thread waits for it.
  std::stop_source stop;
  std::thread stopper([&] {
    std::this_thread::sleep_for(20ms);
    stop.request_stop();
  });
  EXPECT_THROW(storekit::products({id("coins100")}, stop.get_token()), support::CancellationError);
  stopper.join();

  // The signal form: disposed before the answer, it hears nothing at all.
  testing::SignalRecorder<std::vector<platform::SKProduct>> recorder(
      [](const auto& products) { return std::to_string(products.size()) + " products"; });
  auto disposable = storekit::productsProducer({id("coins100")}).start(recorder.handlers());
  disposable.dispose();
  store->setHoldsProductsRequests(false);
  store->waitUntilIdle();
  EXPECT_EQ(recorder.events(), Lines{});

  // And undisturbed, it hears the products.
  testing::SignalRecorder<std::vector<platform::SKProduct>> whole(
      [](const auto& products) { return std::to_string(products.size()) + " products"; });
  auto kept = storekit::productsProducer({id("coins100"), id("lifetime")}).start(whole.handlers());
  EXPECT_EQ(whole.waitForEnd(), (Lines{"2 products", "completed"}));
}

TEST_F(SandboxStoreTest, PurchasesInEveryOutcome) {
  const struct {
    std::string name;
    std::function<void(SandboxStore&)> setUp;
    SKPayment payment;
    Lines expected;
  } cases[] = {
      {"purchased", {}, {.productIdentifier = id("coins100")}, {"coins100 purchasing", "coins100 purchased #1"}},
      {"unknown product", {}, {.productIdentifier = "nope"}, {"nope purchasing", "nope failed (5)"}},
      {"no quantity", {}, {.productIdentifier = id("coins100"), .quantity = 0}, {"coins100 purchasing", "coins100 failed (3)"}},
      {"failing transactions",
       [](SandboxStore& s) { s.setFailTransactionsEnabled(true, SKError::Code::invalidSignature); },
       {.productIdentifier = id("coins100")},
       {"coins100 purchasing", "coins100 failed (12)"}},
      {"ask to buy", [](SandboxStore& s) { s.setAskToBuyEnabled(true); }, {.productIdentifier = id("lifetime")},
       {"lifetime purchasing", "lifetime deferred"}},
      {"ask to buy for one payment", {}, {.productIdentifier = id("lifetime"), .simulatesAskToBuyInSandbox = true},
       {"lifetime purchasing", "lifetime deferred"}},
      {"unknown promotional offer", {}, {.productIdentifier = id("pro.monthly"), .paymentDiscount = signedOffer("nope")},
       {"pro.monthly purchasing", "pro.monthly failed (11)"}},
      {"unsigned promotional offer", {},
       {.productIdentifier = id("pro.monthly"), .paymentDiscount = SKPaymentDiscount{.identifier = "loyalty.trial"}},
       {"pro.monthly purchasing", "pro.monthly failed (13)"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(folder);
    open();
    if (c.setUp) c.setUp(*store);
    SKPaymentQueue::defaultQueue().add(c.payment);
    EXPECT_EQ(settle(), c.expected);
  }
}

TEST_F(SandboxStoreTest, FailTransactionsFromTheFile) {
  open([](StoreKitConfiguration& configuration) {
    configuration.settings.failTransactionsEnabled = true;
    configuration.settings.storeKitError = 14;
  });
  EXPECT_EQ(buy("coins100"), (Lines{"coins100 purchasing", "coins100 failed (14)"}));
  store->setFailTransactionsEnabled(false);
  EXPECT_EQ(buy("coins100"), (Lines{"coins100 purchasing", "coins100 purchased #2"}));
}

TEST_F(SandboxStoreTest, AskToBuyApprovedOrDeclined) {
  for (const auto outcome : {DeclinedPurchaseOutcome::failed, DeclinedPurchaseOutcome::staysDeferred}) {
    fs::remove_all(folder);
    open({}, {.declinedPurchaseOutcome = outcome});
    store->setAskToBuyEnabled(true);
    buy("lifetime");
    buy("pro.yearly");
    const auto approvedObject = log->last();
    const auto deferred = store->deferredTransactions();
    ASSERT_EQ(deferred.size(), 2u);
    EXPECT_THROW(store->approveAskToBuyTransaction("99"), std::invalid_argument);

    store->approveAskToBuyTransaction(deferred[1].identifier);
    EXPECT_EQ(settle(), Lines{"pro.yearly purchased #2"});
    EXPECT_EQ(log->last(), approvedObject);  // the same transaction, moved on
    EXPECT_EQ(offers("pro.yearly"), Lines{"intro 1"});

    store->declineAskToBuyTransaction(deferred[0].identifier);
    EXPECT_EQ(settle(), outcome == DeclinedPurchaseOutcome::failed ? Lines{"lifetime failed (2)"} : Lines{});
    EXPECT_TRUE(store->deferredTransactions().empty());
    EXPECT_THROW(store->declineAskToBuyTransaction(deferred[0].identifier), std::invalid_argument);
  }
}

TEST_F(SandboxStoreTest, RenewalsFollowTheClockAndTheOffers) {
  open();
  const auto start = store->now();
  buy("pro.yearly");          // free trial of a week
  const auto firstPurchase = log->last();
  buy("cloud.monthly");       // three months paid up front, then monthly
  store->advanceClock(0s);
  store->advanceClock(-5s);
  EXPECT_EQ(settle(), Lines{});
  EXPECT_EQ(store->now(), start);

  store->advanceClock(std::chrono::days(8));
  EXPECT_EQ(settle(), Lines{"pro.yearly purchased #3 of #1"});
  EXPECT_EQ(log->last()->originalTransaction(), firstPurchase);  // the app's own first purchase

  store->advanceClock(std::chrono::days(120));  // past the paid-up-front quarter by about a month
  EXPECT_EQ(settle(), (Lines{"cloud.monthly purchased #4 of #2", "cloud.monthly purchased #5 of #2"}));
  EXPECT_EQ(offers("pro.yearly"), (Lines{"intro 1", "full"}));
  EXPECT_EQ(offers("cloud.monthly"), (Lines{"intro 1", "full", "full"}));

  const auto entries = store->transactions();
  EXPECT_EQ(*entries[0].expiresDate, start + std::chrono::days(7));
  EXPECT_EQ(entries[2].purchaseDate, *entries[0].expiresDate);  // renewals start where the period ended

  store->forceRenewal(id("pro.yearly"));
  EXPECT_EQ(settle(), Lines{"pro.yearly purchased #6 of #1"});
  EXPECT_THROW(store->forceRenewal(id("lifetime")), std::invalid_argument);
}

TEST_F(SandboxStoreTest, IntroductoryOffersOncePerGroupAndPromotionalOffersById) {
  open();
  buy("pro.monthly");  // three months at the introductory price, then full price
  store->advanceClock(std::chrono::days(100));
  EXPECT_EQ(offers("pro.monthly"), (Lines{"intro 1", "intro 2", "intro 3", "full"}));
  settle();

  // Another subscription of the group continues the group's subscription under its first
  // purchase, without an introductory offer, and the monthly one stops.
  EXPECT_EQ(buy("pro.weekly").back(), "pro.weekly purchased #5 of #1");
  buy("cloud.quarterly");  // another group: it goes on
  store->advanceClock(std::chrono::days(30));
  EXPECT_EQ(offers("pro.weekly"), (Lines{"full", "full", "full", "full", "full"}));
  EXPECT_EQ(offers("pro.monthly").size(), 4u);  // its fifth month would have begun meanwhile

  EXPECT_EQ(buy("pro.monthly", signedOffer("loyalty.trial")).back(), "pro.monthly purchased #11 of #1");
  EXPECT_EQ(offers("pro.monthly").back(), "promo 1");
  EXPECT_EQ(store->transactions().back().offerIdentifier, "loyalty.trial");
  // A non-consumable bought again hands back its first purchase.
  buy("lifetime");
  EXPECT_EQ(buy("lifetime").back(), "lifetime purchased #13 of #12");
}

TEST_F(SandboxStoreTest, RestoresAndFinishing) {
  open();
  buy("coins100");
  buy("lifetime");
  buy("pro.weekly");
  SKPaymentQueue::defaultQueue().restoreCompletedTransactions();
  EXPECT_EQ(settle(), (Lines{"lifetime restored #4 of #2", "pro.weekly restored #5 of #3", "restore finished"}));

  // Finishing takes a transaction out of the queue; one still in progress cannot be finished.
  const auto restored = log->last();
  SKPaymentQueue::defaultQueue().finishTransaction(restored);
  SKPaymentQueue::defaultQueue().finishTransaction(restored);
  EXPECT_EQ(settle(), Lines{"removed pro.weekly restored #5 of #3"});
  store->setAskToBuyEnabled(true);
  buy("season");
  SKPaymentQueue::defaultQueue().finishTransaction(log->last());
  EXPECT_EQ(settle(), Lines{});
  EXPECT_TRUE(store->transactions()[4].finished);
  EXPECT_FALSE(store->transactions()[5].finished);

  store->clearTransactions();
  SKPaymentQueue::defaultQueue().restoreCompletedTransactions();
  EXPECT_EQ(settle(), Lines{"restore finished"});
}

TEST_F(SandboxStoreTest, RestoreCanFail) {
  open([](StoreKitConfiguration& configuration) {
    configuration.settings.storeKitErrors = {{.name = "App Store Sync", .enabled = true}};
  });
  SKPaymentQueue::defaultQueue().restoreCompletedTransactions();
  EXPECT_EQ(settle(), Lines{"restore failed: simulated App Store Sync error"});
}

TEST_F(SandboxStoreTest, TheReceiptFollowsTheLedger) {
  open();
  EXPECT_EQ(foundation::Bundle::main().appStoreReceiptURL(), store->receiptPath());
  buy("pro.weekly");
  std::optional<std::vector<std::uint8_t>> bytes;
  storekit::Receipt::receiptData().start({.value = [&](auto value) { bytes = std::move(value); }});
  ASSERT_TRUE(bytes) << "no receipt";
  const auto receipt = foundation::parseJson(std::string(bytes->begin(), bytes->end()));
  const auto& purchases = receipt.find("in_app")->arrayValue();
  ASSERT_EQ(purchases.size(), 1u);
  EXPECT_EQ(purchases[0].find("product_id")->stringValue(), id("pro.weekly"));
  EXPECT_EQ(purchases[0].find("original_transaction_id")->stringValue(), "1");
  EXPECT_EQ(purchases[0].find("offer_type")->stringValue(), "introductory");
  foundation::Bundle::setMainAppStoreReceiptURL(std::nullopt);
}

TEST_F(SandboxStoreTest, AnotherProcessResumesTheLedger) {
  // The first process buys two things, finishes one, moves the clock and exits.
  ::setenv("VELQUIST_SANDBOX_TEST_FOLDER", folder.c_str(), 1);
  EXPECT_EXIT(
      {
        open();
        buy("coins100");
        SKPaymentQueue::defaultQueue().finishTransaction(log->last());
        buy("lifetime");
        store->advanceClock(std::chrono::days(2));
        store->waitUntilIdle();
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "");
  ::unsetenv("VELQUIST_SANDBOX_TEST_FOLDER");

  auto ledger = foundation::readFileIfPresent(folder / "ledger.json");
  ASSERT_TRUE(ledger) << "the first process left no ledger";
  open();
  // Only the unfinished purchase comes back, under its identifier.
  EXPECT_EQ(settle(), Lines{"lifetime purchased #2"});
  EXPECT_EQ(store->transactions().size(), 2u);
  EXPECT_EQ(store->now(), store->transactions()[0].purchaseDate + std::chrono::days(2));
  EXPECT_EQ(buy("coins100").back(), "coins100 purchased #3");
}

TEST_F(SandboxStoreTest, ABrokenLedgerIsNeverOverwritten) {
  const struct {
    std::string contents;
    std::string message;
  } cases[] = {
      {"{", "ledger.json: not JSON"},
      {R"({"format":2})", "ledger.json: format: unsupported ledger format 2"},
      {R"({"format":1,"clock":0,"nextIdentifier":1,"transactions":[{"identifier":7}]})",
       "ledger.json: transactions[0].identifier: expected text"},
  };
  for (const auto& c : cases) {
    foundation::writeFileAtomically(folder / "ledger.json", c.contents);
    try {
      open();
      ADD_FAILURE() << "opened over " << c.contents;
    } catch (const std::runtime_error& error) {
      EXPECT_NE(std::string(error.what()).find(c.message), std::string::npos) << error.what();
    }
    EXPECT_EQ(foundation::readFileIfPresent(folder / "ledger.json"), c.contents);
  }
}

TEST_F(SandboxStoreTest, MonthsKeepTheirDayOrTakeTheLastOne) {
  // 30 November 2026, 10:00 UTC, in milliseconds.
  foundation::writeFileAtomically(
      folder / "ledger.json",
      R"({"format":1,"clock":1796032800000,"nextIdentifier":1,"transactions":[]})");
  open();
  buy("cloud.quarterly");
  buy("pro.weekly");
  using namespace std::chrono;
  const auto entries = store->transactions();
  EXPECT_EQ(entries[0].expiresDate, sys_days(2027y / February / 28) + 10h);
  EXPECT_EQ(entries[1].expiresDate, sys_days(2026y / December / 3) + 10h);  // a three-day trial

  store->advanceClock(Period{.iso8601 = "P3M", .unit = Period::Unit::month, .count = 3});
  EXPECT_EQ(store->now(), sys_days(2027y / February / 28) + 10h);
  std::vector<LedgerEntry> quarterly;
  std::ranges::copy_if(store->transactions(), std::back_inserter(quarterly),
                       [](const LedgerEntry& entry) { return entry.productIdentifier == id("cloud.quarterly"); });
  ASSERT_EQ(quarterly.size(), 2u);
  EXPECT_EQ(quarterly[1].purchaseDate, sys_days(2027y / February / 28) + 10h);
}

TEST_F(SandboxStoreTest, UnknownStorefrontsAreRefused) {
  try {
    open([](StoreKitConfiguration& configuration) { configuration.settings.storefront = "XYZ"; });
    ADD_FAILURE() << "opened with an unknown storefront";
  } catch (const StoreKitConfigurationError& error) {
    EXPECT_EQ(error.path(), "settings._storefront");
    EXPECT_EQ(error.reason(), "unknown storefront \"XYZ\"");
  }
}

std::size_t threadCount() {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()));
}

TEST_F(SandboxStoreTest, PendingRequestsHoldNoThreads) {
  open();
  store->waitUntilIdle();  // the shared pool's workers are running by now
  const std::size_t before = threadCount();
  store->setHoldsProductsRequests(true);
  auto delegate = std::make_shared<DelegateLog>();
  std::vector<std::shared_ptr<platform::SKProductsRequest>> requests;
  for (int i = 0; i < 200; ++i) {
    requests.push_back(platform::SKProductsRequest::create({id("coins100")}));
    requests.back()->setDelegate(delegate);
    requests.back()->start();
  }
  store->waitUntilIdle();
  EXPECT_EQ(threadCount(), before);
  store->setHoldsProductsRequests(false);
  store->waitUntilIdle();
  EXPECT_EQ(delegate->take().size(), 200u);
}

TEST_F(SandboxStoreTest, ConcurrentBuyersEachGetTheirOwnTransaction) {
  open();
  constexpr int kThreads = 4;
  constexpr int kPurchases = 25;
  std::vector<std::jthread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kPurchases; ++i) {
        SKPaymentQueue::defaultQueue().add(SKPayment{.productIdentifier = id(t % 2 ? "coins100" : "pro.weekly")});
        if (i % 5 == 0) storekit::products({id("coins100")});
        if (t == 0 && i % 10 == 0) store->advanceClock(std::chrono::days(1));
      }
    });
  }
  threads.clear();
  const Lines lines = settle();
  std::set<std::string> identifiers;
  int purchasing = 0;
  for (const auto& line : lines) {
    if (line.find(" purchasing") != std::string::npos) {
      ++purchasing;
    } else if (const auto hash = line.find('#'); hash != std::string::npos) {
      identifiers.insert(line.substr(hash, line.find(' ', hash) - hash));  // its own, not its original's
    }
  }
  EXPECT_EQ(purchasing, kThreads * kPurchases);
  EXPECT_EQ(identifiers.size(), store->transactions().size());  // every purchase and renewal, once each
}

TEST_F(SandboxStoreTest, TheClockCanFollowTheFilesTimeRate) {
  open([](StoreKitConfiguration& configuration) { configuration.settings.timeRate = 1005; },
       {.followsTimeRate = true});  // every period lasts two seconds
  buy("pro.weekly");
  const auto deadline = std::chrono::steady_clock::now() + 20s;
  while (store->transactions().size() < 2 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(50ms);
  }
  const Lines renewals = settle();
  ASSERT_FALSE(renewals.empty()) << "no renewal within 20 seconds";
  EXPECT_EQ(renewals.front(), "pro.weekly purchased #2 of #1");
}

}  // namespace
}  // namespace velquist::sandbox

namespace velquist::sandbox {
namespace {

const fs::path sharedFixtures = fs::path(VELQUIST_SOURCE_DIR) / "../shared/fixtures/storekit";

// "<display price> <period> | intro <mode> <period> <display price> | promo <id> ...", as the
// library sees a product after a products request.
std::string sold(const storekit::Product& product) {
  std::string line = product.displayPrice;
  if (!product.subscription) return line;
  const auto offer = [](const storekit::Product::SubscriptionOffer& o) {
    return std::string(storekit::rawValue(o.paymentMode)) + " " + o.period.analyticsValue() + " " + o.displayPrice;
  };
  line += " " + product.subscription->subscriptionPeriod.analyticsValue();
  if (const auto& intro = product.subscription->introductoryOffer) line += " | intro " + offer(*intro);
  for (const auto& promo : product.subscription->promotionalOffers) line += " | promo " + offer(promo);
  return line;
}

TEST(StoreKitConformance, FixturesSellThroughTheStoreInTheirStorefrontsCurrency) {
  if (!fs::is_directory(sharedFixtures)) GTEST_SKIP() << "no shared .storekit fixtures at " << sharedFixtures;
  // By file and product: "<file>|<product>".
  const std::map<std::string, std::string> expected = {
      {"pocketcasts-v4-prt-storefront-two-groups-fast-timerate|com.pocketcasts.plus.yearly.referral",
       "€39.99 1_year | intro free_trial 2_month €0.00 | promo free_trial 2_month €0.00"},
      {"apple-skdemo-v2-all-four-product-types|subscription.pro", "$4.99 1_month | intro pay_up_front 2_month $1.99"},
      {"revenuecat-v5-billing-plans-intro-offers-array|com.revenuecat.monthly_4.99.1_week_intro",
       "$4.99 1_month | intro free_trial 3_month $0.00 | promo pay_up_front 1_year $40.99 | promo pay_as_you_go "
       "1_month $20.15"},
      {"revenuecat-v4-esp-storefront-ptbr-locale-group-localization|maestro.weekly.tests.01",
       "€\u00A00,99 7_day | promo free_trial 3_day €\u00A00,00"},
  };
  const std::map<std::string, std::string> currencySigns = {{"USA", "$"}, {"PRT", "€"}, {"ESP", "€"}};
  const fs::path folder = fs::temp_directory_path() / ("sandbox-fixtures-" + std::to_string(::getpid()));
  std::size_t checked = 0;
  for (const auto& file : fs::directory_iterator(sharedFixtures)) {
    if (file.path().extension() != ".storekit") continue;
    SCOPED_TRACE(file.path().filename().string());
    fs::remove_all(folder);
    auto store = SandboxStore::open(file.path(), {.stateDirectory = folder, .publishesReceipt = false});
    platform::setDefaultStoreBackend(store);
    const auto identifiers = store->productIdentifiers();
    const auto products = storekit::products(identifiers);
    ASSERT_EQ(products.size(), identifiers.size());
    const std::string sign = currencySigns.at(store->configuration().settings.storefront);
    for (const auto& storeProduct : products) {
      const auto product = storekit::makeProduct(storeProduct);
      EXPECT_NE(product.displayPrice.find(sign), std::string::npos) << product.id.rawValue << ": " << product.displayPrice;
      const std::string key = file.path().stem().string() + "|" + product.id.rawValue;
      if (const auto found = expected.find(key); found != expected.end()) {
        EXPECT_EQ(sold(product), found->second);
        ++checked;
      }
    }
  }
  platform::setDefaultStoreBackend(nullptr);
  fs::remove_all(folder);
  EXPECT_EQ(checked, expected.size());
}

}  // namespace
}  // namespace velquist::sandbox
