#include "velquist/storekit/transactions/transaction.h"

#include <gtest/gtest.h>

#include <tuple>

#include "common/hash_testing.h"
#include "storekit/transaction_scenarios.h"
#include "velquist/logging/log_capture.h"
#include "velquist/storekit/product/product_from_store.h"
#include "velquist/storekit/transactions/logging_transaction_listener.h"

namespace velquist::storekit {
namespace {

using platform::SKPaymentTransactionState;
using platform::SKProduct;
using platform::SKProductDiscount;
using testing::makeStoreTransaction;
using testing::Mode;
using testing::storeDiscount;

SKProduct product(std::optional<Mode> introductory, std::vector<SKProductDiscount> discounts = {}) {
  SKProduct made = *testing::catalogueProduct("pro.monthly");
  if (introductory) made.introductoryPrice = storeDiscount(std::nullopt, *introductory);
  made.discounts = std::move(discounts);
  return made;
}

TEST(Offers, StartTrialAndTheDiscountApplied) {
  // Two offers named "free": the first one found is the discount, a free trial among them starts one.
  const std::vector<SKProductDiscount> offers = {
      storeDiscount("paid", Mode::payUpFront), storeDiscount(std::nullopt, Mode::freeTrial),
      storeDiscount("free", Mode::payAsYouGo), storeDiscount("free", Mode::freeTrial)};
  const auto intro = [](Mode mode) { return storeDiscount(std::nullopt, mode); };
  const struct {
    std::string name;
    testing::StoreTransaction transaction;
    SKProduct product;
    bool startsTrial;
    std::optional<SKProductDiscount> discount;
  } examples[] = {
      {"free-trial offer, despite an original", {.original = "T1", .offer = "free"}, product({}, offers), true, offers[2]},
      {"paid offer: the introductory trial decides", {.offer = "paid"}, product(Mode::freeTrial, offers), true, offers[0]},
      {"paid offer, no introductory offer", {.offer = "paid"}, product({}, offers), false, offers[0]},
      {"offer naming no discount", {.offer = "nope"}, product(Mode::payAsYouGo, offers), false, intro(Mode::payAsYouGo)},
      {"empty offer identifier matches no unnamed discount", {.offer = ""}, product({}, offers), false, std::nullopt},
      {"free-trial discount, no offer applied", {}, product({}, offers), false, std::nullopt},
      {"introductory trial, no original", {}, product(Mode::freeTrial), true, intro(Mode::freeTrial)},
      {"introductory trial, original with identifier", {.original = "T1"}, product(Mode::freeTrial), false,
       intro(Mode::freeTrial)},
      {"introductory trial, original without identifier", {.originalWithoutID = true}, product(Mode::freeTrial), true,
       intro(Mode::freeTrial)},
      {"introductory pay up front", {}, product(Mode::payUpFront), false, intro(Mode::payUpFront)},
      {"the state does not matter", {.state = SKPaymentTransactionState::failed}, product(Mode::freeTrial), true,
       intro(Mode::freeTrial)},
  };
  for (const auto& example : examples) {
    const auto transaction = makeStoreTransaction(example.transaction);
    EXPECT_EQ(isStartTrial(*transaction, example.product), example.startsTrial) << example.name;
    EXPECT_EQ(discounts(*transaction, example.product), example.discount) << example.name;
  }
}

TEST(Transaction, BuiltFromTheStoreTransactionAndItsProduct) {
  const SKProduct trial = *testing::catalogueProduct("pro.trial"), monthly = *testing::catalogueProduct("pro.monthly");
  const auto purchase = makeStoreTransaction({.product = "pro.trial", .id = "T1"});
  using ID = std::optional<std::string>;
  const std::tuple<Transaction, ID, ID, bool, bool> examples[] = {  // record, id, product id, has product, trial
      {makeTransaction(&trial, purchase), "T1", "pro.trial", true, true},
      {makeTransaction(nullptr, purchase), "T1", "pro.trial", false, false},
      {makeTransaction(&monthly, purchase), "T1", "pro.monthly", true, false},  // the product names the record
      {makeTransaction(&trial, nullptr), std::nullopt, "pro.trial", true, false},
      {makeTransaction(nullptr, nullptr), std::nullopt, std::nullopt, false, false},
      {makeTransaction(testing::catalogue(), purchase), "T1", "pro.trial", true, true},
      {makeTransaction(std::vector{monthly}, purchase), "T1", "pro.trial", false, false},
  };
  for (std::size_t i = 0; i < std::size(examples); ++i) {
    const auto& [record, id, productID, hasProduct, trialStart] = examples[i];
    EXPECT_EQ(std::tuple(record.id(), record.productID(), record.product.has_value(), record.isStartTrial),
              std::tuple(id, productID, hasProduct, trialStart))
        << "example " << i;
  }
  EXPECT_EQ(makeTransaction(&trial, purchase).product, makeProduct(trial));
}

TEST(Transaction, EqualByStoreObjectIdentityProductAndTrialFlag) {
  const auto a = makeStoreTransaction({.id = "T1"}), twin = makeStoreTransaction({.id = "T1"});
  const SKProduct monthly = *testing::catalogueProduct("pro.monthly");
  SKProduct renamed = monthly;
  renamed.localizedTitle = "Renamed";
  const std::vector<Transaction> records = {
      makeTransaction(&monthly, a),      makeTransaction(&monthly, a), makeTransaction(&monthly, twin),
      makeTransaction(&renamed, a),      makeTransaction(nullptr, a),  {.transaction = a, .isStartTrial = true},
      makeTransaction(nullptr, nullptr), makeTransaction(nullptr, twin),
  };
  for (std::size_t i = 0; i < records.size(); ++i) {
    for (std::size_t j = 0; j < records.size(); ++j) {
      EXPECT_EQ(records[i] == records[j], i == j || (i < 2 && j < 2)) << i << " and " << j;
    }
  }
  testing::expectHashAgreesWithEquality(records);
}

TEST(StoreTransactionText, TypeOriginalPaymentAndStateName) {
  const auto renewal = std::make_shared<platform::SKPaymentTransaction>(
      platform::SKPayment{.productIdentifier = "pro", .quantity = 2},
      platform::SKPaymentTransaction::Progress{.state = SKPaymentTransactionState::restored},
      makeStoreTransaction({.id = "T1", .original = "T0"}));
  const std::pair<std::shared_ptr<platform::SKPaymentTransaction>, std::string> examples[] = {
      {makeStoreTransaction({.product = "pro", .state = SKPaymentTransactionState{7}, .offer = "w"}),
       "<SKPaymentTransaction original: nil, payment: <SKPayment productIdentifier: pro, quantity: 1, "
       "paymentDiscount: w>, transactionState: unknown>"},
      {renewal,
       "<SKPaymentTransaction original: <SKPaymentTransaction original: <SKPaymentTransaction original: nil, "
       "payment: <SKPayment productIdentifier: pro.monthly, quantity: 1>, transactionState: purchased>, "
       "payment: <SKPayment productIdentifier: pro.monthly, quantity: 1>, transactionState: purchased>, "
       "payment: <SKPayment productIdentifier: pro, quantity: 2>, transactionState: restored>"},
  };
  for (const auto& [transaction, expected] : examples) EXPECT_EQ(description(*transaction), expected);
  const std::pair<std::int64_t, std::string_view> names[] = {
      {0, "purchasing"}, {1, "purchased"}, {2, "failed"}, {3, "restored"}, {4, "deferred"}, {5, "unknown"}, {-1, "unknown"}};
  for (const auto& [value, name] : names) EXPECT_EQ(description(SKPaymentTransactionState{value}), name) << value;
}

TEST(TransactionDump, StoreObjectsAsObjectsWithTheirIdentifyingFields) {
  const auto original = makeStoreTransaction({.id = "T1"});
  const Transaction record{.transaction = std::make_shared<platform::SKPaymentTransaction>(
                               platform::SKPayment{.productIdentifier = "pro.monthly"},
                               platform::SKPaymentTransaction::Progress{.state = SKPaymentTransactionState::failed},
                               original)};
  EXPECT_EQ(record.description(),
            "Transaction(\n"
            "  transaction: SKPaymentTransaction(\n"
            "    transactionIdentifier: nil,\n"
            "    transactionState: SKPaymentTransactionState.failed,\n"
            "    productIdentifier: \"pro.monthly\",\n"
            "    originalTransaction: #1 SKPaymentTransaction(\n"  // a second object of the class
            "      transactionIdentifier: \"T1\",\n"
            "      transactionState: SKPaymentTransactionState.purchased,\n"
            "      productIdentifier: \"pro.monthly\",\n"
            "      originalTransaction: nil\n"
            "    )\n"
            "  ),\n"
            "  product: nil,\n"
            "  isStartTrial: false\n"
            ")");
}

TEST(LoggingTransactionListener, OneEntryPerRecordFailedOnesAsErrors) {
  using S = SKPaymentTransactionState;
  const std::tuple<S, std::string, std::string> rows[] = {  // state, its name, the entry's level and first line
      {S::purchased, "purchased", "info transaction updated"}, {S::failed, "failed", "error transaction failure"},
      {S::restored, "restored", "info transaction updated"},   {S{9}, "unknown", "info transaction updated"},
  };
  std::vector<Transaction> batch;
  std::vector<std::string> expected;
  for (const auto& [state, stateName, start] : rows) {
    const std::string id = "T" + std::to_string(batch.size());
    batch.push_back({.transaction = testing::makeStoreTransaction({.state = state, .id = id})});
    expected.push_back(start + "\n%{public}@\n[\n  \"transaction\": Transaction(\n    transaction: SKPaymentTransaction(\n"
                       "      transactionIdentifier: \"" + id + "\",\n      transactionState: SKPaymentTransactionState." +
                       stateName + ",\n      productIdentifier: \"pro.monthly\",\n      originalTransaction: nil\n    ),\n"
                       "    product: nil,\n    isStartTrial: false\n  )\n]");
  }
  logging::LogCapture capture;
  TransactionQueueListener::logging()->updated({});
  TransactionQueueListener::logging()->updated(batch);
  std::vector<std::string> lines;
  for (const auto& entry : capture.entries()) {
    EXPECT_EQ(entry.subsystem + ":" + entry.category, "velquist.SDK.transaction-listener:Purchases");
    lines.push_back(std::string(name(entry.level)) + " " + entry.message);
  }
  EXPECT_EQ(lines, expected);
  EXPECT_NE(TransactionQueueListener::logging(), TransactionQueueListener::logging());  // a new one each time
}

}  // namespace
}  // namespace velquist::storekit
