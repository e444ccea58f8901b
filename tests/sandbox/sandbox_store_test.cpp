// The sandbox store driven as an app drives it: payment queue, products requests, request forms.

#include "velquist/sandbox/sandbox_store.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "velquist/foundation/bundle.h"
#include "velquist/foundation/file_io.h"
#include "velquist/foundation/json.h"
#include "velquist/platform/sk_payment_queue.h"
#include "velquist/platform/sk_products_request.h"
#include "velquist/sandbox/storefronts.h"
#include "velquist/storekit/product/product_from_store.h"
#include "velquist/storekit/store/product_request.h"
#include "velquist/storekit/store/receipt.h"

namespace velquist::sandbox {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using platform::SKError, platform::SKPayment, platform::SKPaymentDiscount, platform::SKPaymentQueue;
using Lines = std::vector<std::string>;
using Tweak = std::function<void(StoreKitConfiguration&)>;

constexpr std::string_view kPrefix = "com.velquist.demo.";
std::string id(std::string_view name) { return std::string(kPrefix) + std::string(name); }
std::string shortName(std::string_view productID) {
  return std::string(productID.starts_with(kPrefix) ? productID.substr(kPrefix.size()) : productID);
}

// "pro.yearly purchased #2 of #1", "nope failed (5)".
std::string describe(const platform::SKPaymentTransaction& transaction) {
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

// What the payment queue and products requests report, as lines, and the last transaction seen.
class Log final : public platform::SKPaymentTransactionObserver, public platform::SKProductsRequestDelegate {
 public:
  using Transaction = std::shared_ptr<platform::SKPaymentTransaction>;

  void updatedTransactions(SKPaymentQueue&, const SKPaymentQueue::Transactions& transactions) override {
    for (const auto& transaction : transactions) add(describe(*transaction), transaction);
  }
  void removedTransactions(SKPaymentQueue&, const SKPaymentQueue::Transactions& transactions) override {
    for (const auto& transaction : transactions) add("removed " + describe(*transaction));
  }
  void restoreCompletedTransactionsFinished(SKPaymentQueue&) override { add("restore finished"); }
  void didRevokeEntitlementsForProductIdentifiers(SKPaymentQueue&, const std::vector<std::string>& products) override {
    for (const auto& product : products) add("revoked " + shortName(product));
  }
  void storefrontDidChange(SKPaymentQueue&) override { add("storefront changed"); }
  void restoreCompletedTransactionsFailed(SKPaymentQueue&, const SKError& error) override {
    add(std::string("restore failed: ") + error.what());
  }
  void productsRequestDidReceive(platform::SKProductsRequest&, const platform::SKProductsResponse& response) override {
    std::string line = "received";
    for (const auto& product : response.products) line += " " + shortName(product.productIdentifier);
    for (const auto& invalid : response.invalidProductIdentifiers) line += " !" + invalid;
    add(line);
  }
  void requestDidFailWithError(platform::SKProductsRequest&, const SKError& error) override {
    add(std::string("failed: ") + error.what());
  }
  Lines take() { std::lock_guard lock(mutex_); return std::exchange(lines_, {}); }
  Transaction last() { std::lock_guard lock(mutex_); return last_; }
  std::vector<Transaction> all() { std::lock_guard lock(mutex_); return all_; }

 private:
  void add(std::string line, Transaction transaction = nullptr) {
    std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
    if (transaction) all_.push_back(transaction);
    if (transaction) last_ = std::move(transaction);
  }
  std::mutex mutex_;
  Lines lines_;
  Transaction last_;
  std::vector<Transaction> all_;
};

class SandboxStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    folder = fs::temp_directory_path() / ("sandbox-" + std::string(test->name()) + "-" + std::to_string(::getpid()));
    // A death test's child works in its parent's folder.
    if (const char* inherited = std::getenv("VELQUIST_SANDBOX_TEST_FOLDER")) folder = inherited;
    else fs::remove_all(folder);
  }
  void TearDown() override {
    platform::setDefaultStoreBackend(nullptr);
    store.reset();
    fs::remove_all(folder);
  }

  // Opens the demo catalogue, changed by `tweak`, as the default store, and starts observing.
  void open(const Tweak& tweak = {}, SandboxStoreOptions options = {}) {
    auto configuration = loadStoreKitConfiguration(fs::path(VELQUIST_SOURCE_DIR) / "examples/velquist_demo.storekit");
    if (tweak) tweak(configuration);
    options.stateDirectory = folder;
    store = SandboxStore::open(std::move(configuration), std::move(options));
    platform::setDefaultStoreBackend(store);
    SKPaymentQueue::defaultQueue().addTransactionObserver(log);
  }
  void reopen(const Tweak& tweak = {}, SandboxStoreOptions options = {}) {
    fs::remove_all(folder);  // a new ledger
    open(tweak, std::move(options));
  }
  Lines buy(std::string_view product, std::optional<SKPaymentDiscount> discount = std::nullopt) {
    SKPaymentQueue::defaultQueue().add(SKPayment{.productIdentifier = id(product), .paymentDiscount = std::move(discount)});
    return settle();
  }
  Lines settle() { store->waitUntilIdle(); return log->take(); }
  std::shared_ptr<platform::SKProductsRequest> request(std::unordered_set<std::string> identifiers) {
    auto started = platform::SKProductsRequest::create(std::move(identifiers));
    started->setDelegate(log);
    started->start();
    return started;
  }
  // The offer each purchase and renewal of a product was charged under: "intro 1", "full".
  Lines offers(std::string_view product) {
    Lines lines;
    for (const auto& entry : store->transactions()) {
      if (entry.productIdentifier != id(product) || entry.state != platform::SKPaymentTransactionState::purchased) continue;
      static constexpr const char* names[] = {"full", "intro", "promo", "code"};
      lines.push_back(names[static_cast<int>(entry.offer)] +
                      (entry.offerPeriodIndex ? " " + std::to_string(entry.offerPeriodIndex) : ""));
    }
    return lines;
  }

  fs::path folder;
  std::shared_ptr<SandboxStore> store;
  std::shared_ptr<Log> log = std::make_shared<Log>();
};

SKPaymentDiscount signedOffer(std::string identifier) {
  return {.identifier = std::move(identifier), .keyIdentifier = "KEY1", .nonce = "n", .signature = "s", .timestamp = 1};
}

// "<display price> <period> | intro <mode> <period> <display price> | promo ...".
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

// "subscribed pro.yearly 2027-01-01" (the expiry day, when there is one).
std::string statusLine(const SubscriptionStatus& status) {
  std::string line(name(status.state));
  if (status.productIdentifier) line += " " + shortName(*status.productIdentifier);
  if (status.expiresDate) {
    const std::chrono::year_month_day day{std::chrono::floor<std::chrono::days>(*status.expiresDate)};
    char text[16];
    std::snprintf(text, sizeof text, " %04d-%02u-%02u", static_cast<int>(day.year()), static_cast<unsigned>(day.month()),
                  static_cast<unsigned>(day.day()));
    line += text;
  }
  return line;
}

const SandboxStore::Date kStart = std::chrono::sys_days(std::chrono::year(2026) / 1 / 1);

TEST(Storefronts, TableAndPriceLocales) {
  EXPECT_EQ(storefrontNamed("PRT"), (StorefrontInfo{"PRT", "PT", "143453", "EUR", "pt"}));
  EXPECT_EQ(storefrontNamed("JPN")->identifier, "143462");
  for (const char* unknown : {"usa", "ZZZ", ""}) EXPECT_FALSE(storefrontNamed(unknown)) << unknown;
  const struct {
    std::optional<std::string> locale;
    std::string_view storefront;
    std::string expected;
  } cases[] = {
      {"pt_BR", "ESP", "pt_ES@currency=EUR"}, {"", "DEU", "de_DE@currency=EUR"},
      {"zh-Hans_CN", "USA", "zh_US@currency=USD"}, {"ja", "GBR", "ja_GB@currency=GBP"},
  };
  for (const auto& c : cases) EXPECT_EQ(priceLocaleIdentifier(c.locale, *storefrontNamed(c.storefront)), c.expected);
}

TEST_F(SandboxStoreTest, ProductsComeInCatalogueOrderWithLocaleAndStorefrontPrices) {
  const struct {
    std::string_view storefront;
    std::optional<std::string> locale;
    std::string expected;  // price locale, then coins' title and price, then the weekly's title
  } cases[] = {
      {"PRT", "en_US", "en_PT@currency=EUR|100 Coins|€0.99|Pro Weekly"},
      {"DEU", "de_DE", "de_DE@currency=EUR|100 Coins|0,99\u00A0€|Pro wöchentlich"},
      {"RUS", "ru_RU", "ru_RU@currency=RUB|100 монет|0,99₽|Pro Weekly"},
      {"JPN", std::nullopt, "ja_JP@currency=JPY|100 Coins|￥0|Pro Weekly"},
  };
  try {
    open([](StoreKitConfiguration& c) { c.settings.storefront = "XYZ"; });
    ADD_FAILURE() << "opened in an unknown storefront";
  } catch (const StoreKitConfigurationError& error) {
    EXPECT_EQ(error.path() + ": " + error.reason(), "settings._storefront: unknown storefront \"XYZ\"");
  }
  EXPECT_FALSE(fs::exists(folder / "ledger.json")) << "opening wrote a ledger anyway";
  open();
  for (const auto& c : cases) {
    store->setStorefront(c.storefront);
    store->setLocale(c.locale);
    const auto products = storekit::products({id("pro.weekly"), id("coins100"), "nope", id("coins100")});
    ASSERT_EQ(products.size(), 2u) << c.storefront;
    const auto coins = storekit::makeProduct(products[0]), weekly = storekit::makeProduct(products[1]);
    EXPECT_EQ(std::string(coins.priceLocale.identifier()) + "|" + coins.displayName + "|" + coins.displayPrice + "|" +
                  weekly.displayName,
              c.expected);
    EXPECT_EQ(store->storefront()->identifier, storefrontNamed(c.storefront)->identifier);
  }
  EXPECT_THROW(store->setStorefront("XYZ"), std::invalid_argument);
}

TEST_F(SandboxStoreTest, ProductsRequestsAnsweredOnceHeldOrCancelled) {
  open();
  // A request nobody holds drops its answer, so each is kept until answered.
  auto found = request({id("lifetime"), "b.unknown", "a.unknown"});
  auto twice = request({id("coins100")});
  twice->start();
  EXPECT_EQ(settle(), (Lines{"received lifetime !a.unknown !b.unknown", "received coins100"}));

  // Held requests wait without a thread; cancelled ones are never answered.
  const auto threadCount = [] { return std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()); };
  const auto threadsBefore = threadCount();
  store->setHoldsProductsRequests(true);
  auto cancelled = request({id("season")});
  std::vector<std::shared_ptr<platform::SKProductsRequest>> held;
  for (int i = 0; i < 200; ++i) held.push_back(request({id("lifetime")}));
  cancelled->cancel();
  EXPECT_EQ(settle(), Lines{});
  EXPECT_EQ(threadCount(), threadsBefore);
  store->setHoldsProductsRequests(false);
  EXPECT_EQ(settle(), Lines(200, "received lifetime"));
}

TEST_F(SandboxStoreTest, ProductsRequestsFailFromTheFileOrTheTestSetting) {
  open([](StoreKitConfiguration& c) {
    c.settings.storeKitErrors = {{.name = "Load Products", .enabled = true, .current = {{"generic", 4}}}};
  });
  auto simulated = request({id("coins100")});
  EXPECT_EQ(settle(), Lines{"failed: simulated Load Products error (generic 4)"});
  store->setProductsRequestFailure(SKError(SKError::Code::cloudServiceNetworkConnectionFailed, "offline"));
  auto offline = request({id("coins100")});
  EXPECT_EQ(settle(), Lines{"failed: offline"});
}

TEST_F(SandboxStoreTest, PurchasesInEveryOutcome) {
  const auto failing = [](StoreKitConfiguration& c) {
    c.settings.failTransactionsEnabled = true;
    c.settings.storeKitError = 14;
  };
  const auto pay = [](std::string_view product) { return SKPayment{.productIdentifier = id(product)}; };
  const struct {
    Tweak tweak;
    std::function<void(SandboxStore&)> setUp;
    SKPayment payment;
    std::string expected;
  } cases[] = {
      {{}, {}, pay("coins100"), "coins100 purchased #1"},
      {{}, {}, {.productIdentifier = "nope"}, "nope failed (5)"},
      {{}, {}, {.productIdentifier = id("coins100"), .quantity = 0}, "coins100 failed (3)"},
      {{}, [](SandboxStore& s) { s.setFailTransactionsEnabled(true, SKError::Code::invalidSignature); },
       pay("coins100"), "coins100 failed (12)"},
      {failing, {}, pay("coins100"), "coins100 failed (14)"},
      {failing, [](SandboxStore& s) { s.setFailTransactionsEnabled(false); }, pay("coins100"), "coins100 purchased #1"},
      {{}, {}, {.productIdentifier = id("lifetime"), .simulatesAskToBuyInSandbox = true}, "lifetime deferred"},
      {{}, {}, {.productIdentifier = id("pro.monthly"), .paymentDiscount = signedOffer("nope")},
       "pro.monthly failed (11)"},
      {{}, {}, {.productIdentifier = id("pro.monthly"), .paymentDiscount = SKPaymentDiscount{.identifier = "loyalty.trial"}},
       "pro.monthly failed (13)"},
  };
  for (const auto& c : cases) {
    reopen(c.tweak);
    if (c.setUp) c.setUp(*store);
    SKPaymentQueue::defaultQueue().add(c.payment);
    EXPECT_EQ(settle(), (Lines{shortName(c.payment.productIdentifier) + " purchasing", c.expected}));
  }
}

TEST_F(SandboxStoreTest, AskToBuyApprovedOrDeclined) {
  for (const auto outcome : {DeclinedPurchaseOutcome::failed, DeclinedPurchaseOutcome::staysDeferred}) {
    reopen({}, {.declinedPurchaseOutcome = outcome});
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

TEST_F(SandboxStoreTest, RenewalsFollowTheClock) {
  open();
  const auto start = store->now();
  buy("pro.yearly");  // free trial of a week
  const auto firstPurchase = log->last();
  store->advanceClock(0s);
  store->advanceClock(-5s);
  EXPECT_EQ(settle(), Lines{});
  EXPECT_EQ(store->now(), start);

  store->advanceClock(std::chrono::days(8));
  EXPECT_EQ(settle(), Lines{"pro.yearly purchased #2 of #1"});
  EXPECT_EQ(log->last()->originalTransaction(), firstPurchase);
  const auto entries = store->transactions();
  EXPECT_EQ(*entries[0].expiresDate, start + std::chrono::days(7));
  EXPECT_EQ(entries[1].purchaseDate, *entries[0].expiresDate);

  store->forceRenewal(id("pro.yearly"));
  EXPECT_EQ(settle(), Lines{"pro.yearly purchased #3 of #1"});
  EXPECT_THROW(store->forceRenewal(id("lifetime")), std::invalid_argument);
}

TEST_F(SandboxStoreTest, PlanChangesAndOffersFollowTheGroupLevels) {
  // Pro: yearly at level 1, monthly and weekly at level 2.
  open();
  buy("pro.monthly");
  store->advanceClock(std::chrono::days(100));
  EXPECT_EQ(offers("pro.monthly"), (Lines{"intro 1", "intro 2", "intro 3", "full"}));
  EXPECT_EQ(settle(), (Lines{"pro.monthly purchased #2 of #1", "pro.monthly purchased #3 of #1", "pro.monthly purchased #4 of #1"}));
  // An upgrade continues under the first purchase at once, without an introductory offer, and
  // the monthly one stops; so does buying the same product again. Another group's goes on.
  EXPECT_EQ(buy("pro.yearly").back(), "pro.yearly purchased #5 of #1");
  EXPECT_EQ(buy("pro.yearly").back(), "pro.yearly purchased #6 of #1");
  buy("cloud.quarterly");
  EXPECT_EQ(buy("cloud.monthly").back(), "cloud.monthly purchased #8 of #7");  // same level, another period
  EXPECT_TRUE(store->transactions().back().changesAtRenewal) << "a crossgrade waits for the renewal";
  store->advanceClock(std::chrono::days(30));
  EXPECT_EQ(offers("pro.yearly"), (Lines{"full", "full"}));
  EXPECT_EQ(offers("pro.monthly").size(), 4u);

  // A lower level waits for the yearly period to end, charging nothing now, then renews
  // under its promotional offer from the day that period ended.
  EXPECT_EQ(buy("pro.monthly", signedOffer("loyalty.trial")).back(), "pro.monthly purchased #9 of #1");
  const LedgerEntry waiting = store->transactions().back();
  EXPECT_TRUE(waiting.changesAtRenewal && !waiting.expiresDate && waiting.offerIdentifier == "loyalty.trial");
  const auto yearlyEnds = *store->transactions()[5].expiresDate;
  EXPECT_EQ(settle(), Lines{});
  store->advanceClock(std::chrono::days(340));
  EXPECT_EQ(settle().front(), "pro.monthly purchased #10 of #1");  // then the cloud ones
  EXPECT_EQ(offers("pro.monthly").back(), "promo 1");
  EXPECT_EQ(store->transactions()[9].purchaseDate, yearlyEnds);
  buy("lifetime");
  EXPECT_EQ(buy("lifetime").back(), "lifetime purchased #22 of #21");
}

TEST_F(SandboxStoreTest, RestoresFinishingAndTheReceipt) {
  open();
  for (const char* product : {"coins100", "lifetime", "pro.weekly"}) buy(product);
  auto& queue = SKPaymentQueue::defaultQueue();
  queue.restoreCompletedTransactions();
  EXPECT_EQ(settle(), (Lines{"lifetime restored #4 of #2", "pro.weekly restored #5 of #3", "restore finished"}));

  // A transaction leaves the queue once; one still in progress cannot be finished.
  queue.finishTransaction(log->last());
  queue.finishTransaction(log->last());
  EXPECT_EQ(settle(), Lines{"removed pro.weekly restored #5 of #3"});
  store->setAskToBuyEnabled(true);
  buy("season");
  queue.finishTransaction(log->last());
  EXPECT_EQ(settle(), Lines{});
  EXPECT_TRUE(store->transactions()[4].finished);
  EXPECT_FALSE(store->transactions()[5].finished);

  EXPECT_EQ(foundation::Bundle::main().appStoreReceiptURL(), store->receiptPath());
  std::optional<std::vector<std::uint8_t>> bytes;
  storekit::Receipt::receiptData().start({.value = [&](auto value) { bytes = std::move(value); }});
  foundation::Bundle::setMainAppStoreReceiptURL(std::nullopt);
  ASSERT_TRUE(bytes) << "no receipt";
  const auto receipt = foundation::parseJson(std::string(bytes->begin(), bytes->end()));
  std::string purchases;  // "<product> <transaction>/<original> <offer>; "
  for (const auto& entry : receipt.find("in_app")->arrayValue()) {
    const auto text = [&](const char* key) { return entry.find(key) ? entry.find(key)->stringValue() : "-"; };
    purchases += shortName(text("product_id")) + " " + text("transaction_id") + "/" + text("original_transaction_id") +
                 " " + text("offer_type") + "; ";
  }
  EXPECT_EQ(purchases, "coins100 1/1 -; lifetime 2/2 -; pro.weekly 3/3 introductory; lifetime 4/2 -; pro.weekly 5/3 -; ");

  reopen([](StoreKitConfiguration& c) { c.settings.storeKitErrors = {{.name = "App Store Sync", .enabled = true}}; });
  queue.restoreCompletedTransactions();
  EXPECT_EQ(settle(), Lines{"restore failed: simulated App Store Sync error"});
}

TEST_F(SandboxStoreTest, MonthsKeepTheirDayOrTakeTheLastOne) {
  using namespace std::chrono;
  // The clock at 30 November 2026, 10:00 UTC.
  foundation::writeFileAtomically(folder / "ledger.json",
                                  R"({"format":1,"clock":1796032800000,"nextIdentifier":1,"transactions":[]})");
  open();
  buy("cloud.quarterly");
  buy("pro.weekly");
  const auto lastOfFebruary = sys_days(2027y / February / 28) + 10h;
  EXPECT_EQ(store->transactions()[0].expiresDate, lastOfFebruary);
  EXPECT_EQ(store->transactions()[1].expiresDate, sys_days(2026y / December / 3) + 10h);  // a three-day trial
  store->advanceClock(Period{.iso8601 = "P3M", .unit = Period::Unit::month, .count = 3});
  EXPECT_EQ(store->now(), lastOfFebruary);
  std::vector<LedgerEntry> quarterly;
  std::ranges::copy_if(store->transactions(), std::back_inserter(quarterly),
                       [](const LedgerEntry& entry) { return entry.productIdentifier == id("cloud.quarterly"); });
  ASSERT_EQ(quarterly.size(), 2u);
  EXPECT_EQ(quarterly[1].purchaseDate, lastOfFebruary);
}

TEST_F(SandboxStoreTest, ConcurrentBuyersEachGetTheirOwnTransaction) {
  open();
  constexpr int kThreads = 4, kPurchases = 25;
  {
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
  }
  std::set<std::string> identifiers;  // each line's own, not its original's
  int purchasing = 0;
  for (const auto& line : settle()) {
    const auto hash = line.find('#');
    if (line.find(" purchasing") != std::string::npos) ++purchasing;
    else if (hash != std::string::npos) identifiers.insert(line.substr(hash, line.find(' ', hash) - hash));
  }
  EXPECT_EQ(purchasing, kThreads * kPurchases);
  EXPECT_EQ(identifiers.size(), store->transactions().size());  // every purchase and renewal, once each
}

TEST_F(SandboxStoreTest, SubscriptionChangesFromManyThreadsWhileTheTimerRenews) {
  // Every subscription renews every two seconds of real time while threads change plans,
  // billing, auto-renew, refunds and codes; each step must leave the ledger consistent.
  open([](StoreKitConfiguration& c) { c.settings.timeRate = 1005; }, {.followsTimeRate = true});
  buy("pro.monthly");
  buy("cloud.monthly");
  {
    std::vector<std::jthread> threads;
    const auto tolerant = [](auto&& step) {
      try {
        step();
      } catch (const std::invalid_argument&) {  // not possible in the state another thread left
      }
    };
    threads.emplace_back([&] {
      for (int i = 0; i < 20; ++i) {
        store->setRenewalBillingIssuesEnabled(i % 2 == 0);
        store->advanceClock(std::chrono::seconds(3));
      }
    });
    threads.emplace_back([&] {
      for (int i = 0; i < 20; ++i) {
        SKPaymentQueue::defaultQueue().add(SKPayment{.productIdentifier = id(i % 2 ? "pro.yearly" : "pro.weekly")});
        tolerant([&] { store->cancelAutoRenew(id("cloud.monthly")); });
        tolerant([&] { store->resumeAutoRenew(id("cloud.monthly")); });
      }
    });
    threads.emplace_back([&] {
      for (int i = 0; i < 20; ++i) {
        tolerant([&] { store->refund(id("pro.weekly")); });
        store->redeemOfferCode(id("pro.monthly"), "C3000005");
        store->subscriptionStatus(id("cloud.quarterly"));
        store->setInterruptedPurchasesEnabled(i % 3 == 0);
        tolerant([&] { store->resolveInterruptedPurchase(); });
      }
    });
  }
  settle();
  std::set<std::string> identifiers;
  for (const auto& entry : store->transactions()) identifiers.insert(entry.identifier);
  EXPECT_EQ(identifiers.size(), store->transactions().size());
}

TEST_F(SandboxStoreTest, TheClockCanFollowTheFilesTimeRate) {
  // Every period lasts two seconds.
  open([](StoreKitConfiguration& c) { c.settings.timeRate = 1005; }, {.followsTimeRate = true});
  buy("pro.weekly");
  const auto deadline = std::chrono::steady_clock::now() + 20s;
  while (store->transactions().size() < 2 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(50ms);
  }
  const Lines renewals = settle();
  ASSERT_FALSE(renewals.empty()) << "no renewal within 20 seconds";
  EXPECT_EQ(renewals.front(), "pro.weekly purchased #2 of #1");
}

TEST_F(SandboxStoreTest, BillingTroubleFromGraceIntoRetryThenAFreshPeriodWhenPaid) {
  // A fix within grace and the end of the retry window show in the vsk scenarios. Here the
  // file's switches are the starting state, grace runs out into retry, and paying during
  // retry starts the period afresh.
  open([](StoreKitConfiguration& c) { c.settings.billingGracePeriodEnabled = c.settings.renewalBillingIssuesEnabled = true; },
       {.clockStart = kStart});
  buy("pro.monthly");  // renews on 1 February
  store->advanceClock(std::chrono::days(31 + 3));
  EXPECT_EQ(settle(), Lines{}) << "a renewal that fails to bill reports nothing";
  EXPECT_EQ(statusLine(store->subscriptionStatus(id("pro.monthly"))), "inGracePeriod pro.monthly 2026-02-17");
  store->advanceClock(std::chrono::days(17));
  EXPECT_EQ(statusLine(store->subscriptionStatus(id("pro.monthly"))), "inBillingRetryPeriod pro.monthly 2026-02-01");
  store->setRenewalBillingIssuesEnabled(false);
  EXPECT_EQ(settle(), Lines{"pro.monthly purchased #2 of #1"});
  EXPECT_EQ(statusLine(store->subscriptionStatus(id("pro.monthly"))), "subscribed pro.monthly 2026-03-21");
}

TEST_F(SandboxStoreTest, AutoRenewAndRefundsRefuseWhatTheStateDoesNotAllow) {
  // The plain flows show in the vsk scenarios; here the refusals, what observers hear, and
  // what restores and the receipt make of refunds.
  open({}, {.clockStart = kStart});
  EXPECT_EQ(statusLine(store->subscriptionStatus(id("coins100"))), "not subscribed");
  EXPECT_THROW(store->subscriptionStatus("nope"), std::invalid_argument);
  EXPECT_THROW(store->cancelAutoRenew(id("pro.yearly")), std::invalid_argument);

  buy("pro.yearly");  // a week's trial
  store->cancelAutoRenew(id("pro.yearly"));
  EXPECT_THROW(store->cancelAutoRenew(id("pro.yearly")), std::invalid_argument) << "already off";
  EXPECT_THROW(store->forceRenewal(id("pro.yearly")), std::invalid_argument) << "it will not renew";
  store->advanceClock(std::chrono::days(30));
  EXPECT_EQ(statusLine(store->subscriptionStatus(id("pro.yearly"))), "expired pro.yearly 2026-01-08");
  EXPECT_THROW(store->resumeAutoRenew(id("pro.yearly")), std::invalid_argument) << "too late";

  EXPECT_EQ(buy("pro.yearly").back(), "pro.yearly purchased #2 of #1");
  EXPECT_EQ(store->transactions().back().offer, LedgerEntry::OfferKind::none) << "no second trial";
  buy("lifetime");
  store->refund(id("pro.yearly"), 1);
  store->refund(id("lifetime"));
  EXPECT_EQ(settle(), (Lines{"revoked pro.yearly", "revoked lifetime"}));
  EXPECT_THROW(store->refund(id("lifetime")), std::invalid_argument) << "refunded once";
  EXPECT_EQ(statusLine(store->subscriptionStatus(id("pro.weekly"))), "revoked pro.yearly");
  store->advanceClock(std::chrono::days(400));
  SKPaymentQueue::defaultQueue().restoreCompletedTransactions();
  EXPECT_EQ(settle(), (Lines{"pro.yearly restored #4 of #1", "restore finished"})) << "no renewal, no refunded lifetime";

  const auto receipt = foundation::parseJson(*foundation::readFileIfPresent(store->receiptPath()));
  std::string cancellations;
  for (const auto& entry : receipt.find("in_app")->arrayValue()) {
    if (const auto* date = entry.find("cancellation_date")) {
      cancellations += shortName(entry.find("product_id")->stringValue()) + " " + date->stringValue().substr(0, 10) +
                       " " + entry.find("cancellation_reason")->stringValue() + "; ";
    }
  }
  EXPECT_EQ(cancellations, "pro.yearly 2026-01-31 1; lifetime 2026-01-31 0; ");

  store->setStorefront("JPN");
  store->setStorefront("JPN");
  EXPECT_EQ(settle(), Lines{"storefront changed"});
}

TEST_F(SandboxStoreTest, APriceIncreaseTheDelegateDefersIsAnsweredAndKeptByALaterProcess) {
  // Agreeing, declining and not answering by the renewal show in the vsk scenarios.
  struct Defers : platform::SKPaymentQueueDelegate {
    bool shouldShowPriceConsent(SKPaymentQueue&) override { return false; }
  };
  const auto defers = std::make_shared<Defers>();  // the queue holds it weakly
  SKPaymentQueue::defaultQueue().setDelegate(defers);
  open({}, {.clockStart = kStart});
  const std::string quarterly = id("cloud.quarterly");  // $19.99 every three months
  buy("cloud.quarterly");
  EXPECT_THROW(store->requestPriceIncrease(quarterly, Decimal(1999, -2)), std::invalid_argument) << "not an increase";
  EXPECT_FALSE(store->requestPriceIncrease(quarterly, Decimal(25))) << "the delegate said not now";
  EXPECT_THROW(store->requestPriceIncrease(quarterly, Decimal(30)), std::invalid_argument) << "one waits already";
  EXPECT_THROW(store->respondToPriceIncrease(quarterly, true), std::invalid_argument) << "not shown yet";
  SKPaymentQueue::defaultQueue().showPriceConsentIfNeeded();
  SKPaymentQueue::defaultQueue().setDelegate(nullptr);
  EXPECT_EQ(store->pendingPriceConsents(), (std::vector<PriceConsent>{{quarterly, Decimal(25), true}}));
  store->respondToPriceIncrease(quarterly, true);
  platform::setDefaultStoreBackend(nullptr);
  store.reset();
  open();
  store->advanceClock(std::chrono::days(91));
  settle();
  EXPECT_EQ(statusLine(store->subscriptionStatus(quarterly)), "subscribed cloud.quarterly 2026-07-01");
  EXPECT_EQ(store->product(quarterly)->price.description(), "25");
  const auto receipt = foundation::parseJson(*foundation::readFileIfPresent(store->receiptPath()));
  const auto* charged = receipt.find("in_app")->arrayValue().back().find("price");
  ASSERT_NE(charged, nullptr);
  EXPECT_EQ(charged->stringValue(), "25");
  EXPECT_TRUE(store->pendingPriceConsents().empty());
}

TEST_F(SandboxStoreTest, OfferCodesForEligibleCustomersOnly) {
  // pro.monthly's code offer "Half year code" (C3000005): pay up front for six months, for
  // new and expired customers, stackable on the introductory offer (three months, paid
  // monthly) that newcomers get. A subscriber's refusal shows in the vsk scenarios.
  const struct {
    bool refunded, stackable;
    Lines offers;  // of pro.monthly, after 300 days
  } cases[] = {
      {false, true, {"intro 1", "intro 2", "intro 3", "code 1", "full"}},
      {false, false, {"code 1", "full", "full", "full", "full"}},
      // A former subscriber counts as expired, and has had the introductory offer.
      {true, true, {"code 1", "full", "full", "full", "full"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.refunded << c.stackable);
    reopen([&](StoreKitConfiguration& config) {
      config.subscriptionGroups[0].subscriptions[1].codeOffers[0].isStackable = c.stackable;
    }, {.clockStart = kStart});
    if (c.refunded) {
      buy("pro.weekly");
      store->refund(id("pro.weekly"));
    }
    settle();  // also what the previous store reported last
    EXPECT_EQ(store->redeemOfferCode(id("pro.monthly"), "Half year code"), std::nullopt);
    const Lines reported = settle();
    ASSERT_EQ(reported.size(), 1u);
    EXPECT_TRUE(reported[0].starts_with("pro.monthly purchased #")) << reported[0];
    store->advanceClock(std::chrono::days(300));
    EXPECT_EQ(offers("pro.monthly"), c.offers);
  }
  EXPECT_THROW(store->redeemOfferCode(id("pro.monthly"), "nope"), std::invalid_argument);
  EXPECT_THROW(store->redeemOfferCode(id("coins100"), "Half year code"), std::invalid_argument);
}

TEST_F(SandboxStoreTest, InterruptedPurchasesCompleteWhenResolved) {
  open([](StoreKitConfiguration& c) { c.settings.billingIssuesEnabled = true; });
  EXPECT_THROW(store->resolveInterruptedPurchase(), std::invalid_argument);
  EXPECT_EQ(buy("pro.monthly", signedOffer("loyalty.trial")), (Lines{"pro.monthly purchasing", "pro.monthly failed (0)"}));
  store->setInterruptedPurchasesEnabled(false);
  buy("coins100");
  EXPECT_EQ(store->resolveInterruptedPurchase(), "3");
  EXPECT_EQ(settle(), Lines{"pro.monthly purchased #3"});
  // The new transaction carries the payment as it was made, offer and signature included.
  EXPECT_EQ(log->last()->payment().paymentDiscount, signedOffer("loyalty.trial"));
  EXPECT_EQ(store->transactions().back().offer, LedgerEntry::OfferKind::promotional);
  EXPECT_THROW(store->resolveInterruptedPurchase(), std::invalid_argument) << "resolved once";

  // Bought outside the app, a purchase arrives purchased, continuing the group as any other.
  EXPECT_EQ(store->purchaseOutsideApp(id("pro.yearly")), "4");
  EXPECT_EQ(settle(), Lines{"pro.yearly purchased #4 of #3"});
  EXPECT_THROW(store->purchaseOutsideApp("nope"), std::invalid_argument);
}

TEST_F(SandboxStoreTest, ALaterProcessContinuesWhereTheFirstLeftOff) {
  ::setenv("VELQUIST_SANDBOX_TEST_FOLDER", folder.c_str(), 1);
  EXPECT_EXIT(
      {
        open({}, {.clockStart = kStart});
        buy("pro.yearly");
        SKPaymentQueue::defaultQueue().finishTransaction(log->last());
        buy("pro.monthly", signedOffer("loyalty.trial"));  // a downgrade at the next renewal, unfinished
        store->setInterruptedPurchasesEnabled(true);
        buy("lifetime");
        store->setRenewalBillingIssuesEnabled(true);
        store->advanceClock(std::chrono::days(10));  // the yearly's trial ends: billing fails
        store->waitUntilIdle();
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "");
  ::unsetenv("VELQUIST_SANDBOX_TEST_FOLDER");

  ASSERT_TRUE(foundation::readFileIfPresent(folder / "ledger.json")) << "the first process left no ledger";
  open();
  Lines resumed = settle();
  ASSERT_FALSE(resumed.empty());
  EXPECT_EQ(resumed[0], "pro.monthly purchased #2 of #1");  // only unfinished ones come back
  EXPECT_EQ(store->now(), kStart + std::chrono::days(10));
  // The payment comes back whole, its signed offer included.
  const auto all = log->all();
  const auto second = std::ranges::find_if(all, [](const auto& t) { return t->transactionIdentifier() == "2"; });
  ASSERT_NE(second, all.end());
  EXPECT_EQ((*second)->payment().paymentDiscount, signedOffer("loyalty.trial"));
  EXPECT_EQ(statusLine(store->subscriptionStatus(id("pro.yearly"))), "inBillingRetryPeriod pro.yearly 2026-01-08");
  EXPECT_EQ(store->resolveInterruptedPurchase(), "4");
  settle();
  // Billing fixed: the renewal is the downgrade, under its offer.
  store->setRenewalBillingIssuesEnabled(false);
  EXPECT_EQ(settle(), Lines{"pro.monthly purchased #5 of #1"});
  EXPECT_EQ(store->transactions().back().offerIdentifier, "loyalty.trial");
}

TEST_F(SandboxStoreTest, TheLedgerKeepsEverythingAndOlderLedgersStillLoad) {
  open({}, {.clockStart = kStart});
  store->redeemOfferCode(id("pro.monthly"), "Half year code");        // stacked on the introductory offer
  buy("pro.weekly");                                                  // a crossgrade waiting for the renewal
  buy("cloud.quarterly");
  store->cancelAutoRenew(id("cloud.quarterly"));
  buy("lifetime");
  store->refund(id("lifetime"), 1);
  store->setInterruptedPurchasesEnabled(true);
  buy("coins100");
  buy("coins100", signedOffer("x"));
  store->setInterruptedPurchasesEnabled(false);
  store->resolveInterruptedPurchase();
  store->setBillingGracePeriodEnabled(true);
  store->setRenewalBillingIssuesEnabled(true);
  store->advanceClock(std::chrono::days(40));
  settle();
  const auto before = store->transactions();
  platform::setDefaultStoreBackend(nullptr);
  store.reset();
  open();
  EXPECT_EQ(store->transactions(), before);

  // A ledger written before any of this: a subscription and a purchase waiting for approval
  // under a promotional offer, with only the offer's identifier kept.
  const std::string old =
      R"({"format":1,"clock":1767225600000,"nextIdentifier":3,"transactions":[)"
      R"({"identifier":"1","productIdentifier":"com.velquist.demo.pro.yearly","quantity":1,"state":1,)"
      R"("purchaseDate":1767225600000,"expiresDate":1798761600000,"offer":"none","offerPeriodIndex":0,"finished":true},)"
      R"({"identifier":"2","originalIdentifier":"1","productIdentifier":"com.velquist.demo.pro.monthly","quantity":1,"state":4,)"
      R"("purchaseDate":1767225600000,"offer":"none","offerIdentifier":"loyalty.trial","offerPeriodIndex":0,"finished":false}]})";
  platform::setDefaultStoreBackend(nullptr);
  store.reset();
  fs::remove_all(folder);
  foundation::writeFileAtomically(folder / "ledger.json", old);
  open();
  settle();
  EXPECT_EQ(statusLine(store->subscriptionStatus(id("pro.monthly"))), "subscribed pro.yearly 2027-01-01");
  store->approveAskToBuyTransaction("2");  // a downgrade now, under the offer the ledger named
  EXPECT_EQ(settle(), Lines{"pro.monthly purchased #2 of #1"});
  EXPECT_TRUE(store->transactions()[1].changesAtRenewal);
  EXPECT_EQ(store->transactions()[1].offer, LedgerEntry::OfferKind::promotional);
}

TEST(StoreKitConformance, FixturesSellInTheirStorefrontsCurrencyRedeemCodesAndGoThroughBillingTrouble) {
  const fs::path fixtures = fs::path(VELQUIST_SOURCE_DIR) / "../shared/fixtures/storekit";
  if (!fs::is_directory(fixtures)) GTEST_SKIP() << "no shared .storekit fixtures at " << fixtures;
  const std::map<std::string, std::string> expected = {  // by "<file>|<product>"
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
  std::size_t checked = 0, redeemed = 0, billed = 0;
  for (const auto& file : fs::directory_iterator(fixtures)) {
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
      if (const auto found = expected.find(file.path().stem().string() + "|" + product.id.rawValue);
          found != expected.end()) {
        EXPECT_EQ(sold(product), found->second);
        ++checked;
      }
    }

    for (const auto& group : store->configuration().subscriptionGroups) {
      for (const auto& subscription : group.subscriptions) {
        for (const auto& code : subscription.codeOffers) {
          store->clearTransactions();  // a customer new to the group each time
          const auto refusal = store->redeemOfferCode(subscription.productID, code.internalID);
          const bool forNewcomers = std::ranges::find(code.eligibility, "new") != code.eligibility.end();
          EXPECT_EQ(refusal.has_value(), !forNewcomers) << subscription.productID << " " << code.referenceName;
          if (refusal) {
            EXPECT_NE(refusal->find("new to the group"), std::string::npos) << *refusal;
            continue;
          }
          // Stackable on an introductory offer, the code follows it; otherwise it applies now.
          const LedgerEntry entry = store->transactions().back();
          const bool stacked = code.isStackable && subscription.introductoryOffer;
          EXPECT_EQ(entry.offer, stacked ? LedgerEntry::OfferKind::introductory : LedgerEntry::OfferKind::code);
          EXPECT_EQ(stacked ? entry.stackedCodeOffer : entry.offerIdentifier, code.referenceName);
          ++redeemed;
        }
      }
    }
    // The first subscription bought, its renewal failing to bill: grace as the file says,
    // retry otherwise, and a fix charges it.
    if (store->configuration().subscriptionGroups.empty()) continue;
    const std::string product = store->configuration().subscriptionGroups[0].subscriptions[0].productID;
    const bool grace = store->configuration().settings.billingGracePeriodEnabled;
    store->clearTransactions();
    SKPaymentQueue::defaultQueue().add(SKPayment{.productIdentifier = product});
    store->waitUntilIdle();
    store->setRenewalBillingIssuesEnabled(true);
    const auto ends = *store->transactions().back().expiresDate;
    store->advanceClock(std::chrono::duration_cast<std::chrono::seconds>(ends - store->now()) + std::chrono::hours(1));
    EXPECT_EQ(store->subscriptionStatus(product).state,
              grace ? SubscriptionStatus::State::inGracePeriod : SubscriptionStatus::State::inBillingRetryPeriod);
    const auto before = store->transactions().size();
    store->setRenewalBillingIssuesEnabled(false);
    EXPECT_EQ(store->transactions().size(), before + 1);
    EXPECT_EQ(store->subscriptionStatus(product).state, SubscriptionStatus::State::subscribed);
    store->waitUntilIdle();
    ++billed;
  }
  platform::setDefaultStoreBackend(nullptr);
  fs::remove_all(folder);
  EXPECT_EQ(checked, expected.size());
  EXPECT_GT(redeemed, 0u);
  EXPECT_GT(billed, 0u);
}

}  // namespace
}  // namespace velquist::sandbox
