#include "velquist/storekit/transactions/transaction.h"

#include <gtest/gtest.h>

#include <map>

#include "common/hash_testing.h"
#include "storekit/transaction_scenarios.h"
#include "velquist/storekit/product/product_from_store.h"

namespace velquist::storekit {
namespace {

using platform::SKPaymentTransactionState;
using platform::SKProduct;
using platform::SKProductDiscount;
using Mode = platform::SKProductDiscountPaymentMode;
using testing::makeStoreTransaction;
using testing::storeDiscount;
using testing::StoreTransaction;

SKProduct product(std::optional<Mode> introductory, std::vector<SKProductDiscount> discounts = {}) {
  SKProduct made = *testing::catalogueProduct("pro.monthly");
  if (introductory) made.introductoryPrice = storeDiscount(std::nullopt, *introductory);
  made.discounts = std::move(discounts);
  return made;
}

TEST(StartTrial, OfferThenIntroductoryRule) {
  const std::vector<SKProductDiscount> offers = {storeDiscount("paid", Mode::payUpFront),
                                                 storeDiscount(std::nullopt, Mode::freeTrial),
                                                 storeDiscount("free", Mode::freeTrial)};
  const struct {
    std::string name;
    StoreTransaction transaction;
    SKProduct product;
    bool expected;
  } examples[] = {
      {"offer naming a free-trial discount, despite an original", {.original = "T1", .offer = "free"},
       product(std::nullopt, offers), true},
      {"offer naming a paid discount falls back to the introductory trial", {.offer = "paid"},
       product(Mode::freeTrial, offers), true},
      {"offer naming a paid discount, no introductory offer", {.offer = "paid"}, product(std::nullopt, offers), false},
      {"offer naming no discount", {.offer = "nope"}, product(Mode::payAsYouGo, offers), false},
      {"an empty offer identifier matches no discount without one", {.offer = ""}, product(std::nullopt, offers), false},
      {"introductory trial, no original", {}, product(Mode::freeTrial), true},
      {"introductory trial, original with identifier", {.original = "T1"}, product(Mode::freeTrial), false},
      {"introductory trial, original without identifier", {.originalWithoutID = true}, product(Mode::freeTrial), true},
      {"introductory pay as you go", {}, product(Mode::payAsYouGo), false},
      {"introductory pay up front", {}, product(Mode::payUpFront), false},
      {"no offers at all", {}, product(std::nullopt), false},
      {"the state does not matter", {.state = SKPaymentTransactionState::failed}, product(Mode::freeTrial), true},
      {"a free-trial discount without the offer applied", {}, product(std::nullopt, offers), false},
  };
  for (const auto& example : examples) {
    const auto transaction = makeStoreTransaction(example.transaction);
    EXPECT_EQ(isStartTrial(*transaction, example.product), example.expected) << example.name;
  }
}

TEST(Discounts, TheOfferAppliedElseTheIntroductoryOne) {
  auto first = storeDiscount("dup", Mode::payAsYouGo), second = storeDiscount("dup", Mode::freeTrial);
  second.numberOfPeriods = 2;
  const SKProduct withIntro = product(Mode::payUpFront, {storeDiscount("other", Mode::payUpFront), first, second});
  const SKProduct withoutIntro = product(std::nullopt, {first});
  const struct {
    std::string name;
    std::optional<std::string> offer;
    SKProduct product;
    std::optional<SKProductDiscount> expected;
  } examples[] = {
      {"first of the matching offers", "dup", withIntro, first},
      {"no match: the introductory offer", "gone", withIntro, withIntro.introductoryPrice},
      {"no offer applied", std::nullopt, withIntro, withIntro.introductoryPrice},
      {"no offer applied, no introductory offer", std::nullopt, withoutIntro, std::nullopt},
      {"no match, no introductory offer", "gone", withoutIntro, std::nullopt},
  };
  for (const auto& example : examples) {
    const auto transaction = makeStoreTransaction({.offer = example.offer});
    EXPECT_EQ(discounts(*transaction, example.product), example.expected) << example.name;
  }
}

TEST(Transaction, BuiltFromTheStoreTransactionAndItsProduct) {
  const SKProduct trial = *testing::catalogueProduct("pro.trial");
  const SKProduct monthly = *testing::catalogueProduct("pro.monthly");
  const auto purchase = makeStoreTransaction({.product = "pro.trial", .id = "T1"});
  const auto pending = makeStoreTransaction({.product = "pro.trial", .state = SKPaymentTransactionState::purchasing});
  const struct {
    std::string name;
    Transaction record;
    std::optional<std::string> id, productID;
    bool hasProduct, isStartTrial;
  } examples[] = {
      {"with product", makeTransaction(&trial, purchase), "T1", "pro.trial", true, true},
      {"without product", makeTransaction(nullptr, purchase), "T1", "pro.trial", false, false},
      {"purchasing", makeTransaction(&trial, pending), std::nullopt, "pro.trial", true, true},
      {"a product of another identifier names the record", makeTransaction(&monthly, purchase),
       "T1", "pro.monthly", true, false},
      {"no store transaction", makeTransaction(&trial, nullptr), std::nullopt, "pro.trial", true, false},
      {"nothing", makeTransaction(nullptr, nullptr), std::nullopt, std::nullopt, false, false},
  };
  for (const auto& example : examples) {
    EXPECT_EQ(example.record.id(), example.id) << example.name;
    EXPECT_EQ(example.record.productID(), example.productID) << example.name;
    EXPECT_EQ(example.record.product.has_value(), example.hasProduct) << example.name;
    EXPECT_EQ(example.record.isStartTrial, example.isStartTrial) << example.name;
  }
  EXPECT_EQ(makeTransaction(&trial, purchase).product, makeProduct(trial));
}

TEST(Transaction, EqualByStoreObjectIdentityProductAndTrialFlag) {
  const auto a = makeStoreTransaction({.id = "T1"}), twin = makeStoreTransaction({.id = "T1"});
  const SKProduct monthly = *testing::catalogueProduct("pro.monthly");
  SKProduct renamed = monthly;
  renamed.localizedTitle = "Renamed";
  const std::vector<Transaction> records = {
      makeTransaction(&monthly, a),     makeTransaction(&monthly, a),  makeTransaction(&monthly, twin),
      makeTransaction(&renamed, a),     makeTransaction(nullptr, a),   {.transaction = a, .isStartTrial = true},
      makeTransaction(nullptr, nullptr), makeTransaction(nullptr, twin),
  };
  // Which pairs are equal: only the first two (and each with itself).
  for (std::size_t i = 0; i < records.size(); ++i) {
    for (std::size_t j = 0; j < records.size(); ++j) {
      const bool expected = i == j || (i < 2 && j < 2);
      EXPECT_EQ(records[i] == records[j], expected) << i << " and " << j;
    }
  }
  testing::expectHashAgreesWithEquality(records);
}

TEST(StoreTransactionText, TypeOriginalPaymentAndStateName) {
  const auto original = makeStoreTransaction({.id = "T1", .original = "T0"});
  const auto renewal = std::make_shared<platform::SKPaymentTransaction>(
      platform::SKPayment{.productIdentifier = "pro", .quantity = 2},
      platform::SKPaymentTransaction::Progress{.state = SKPaymentTransactionState::restored}, original);
  const struct {
    std::shared_ptr<platform::SKPaymentTransaction> transaction;
    std::string expected;
  } examples[] = {
      {makeStoreTransaction({.product = "pro"}),
       "<SKPaymentTransaction original: nil, payment: <SKPayment productIdentifier: pro, quantity: 1>, "
       "transactionState: purchased>"},
      {makeStoreTransaction({.product = "pro", .state = SKPaymentTransactionState{7}, .offer = "w"}),
       "<SKPaymentTransaction original: nil, payment: <SKPayment productIdentifier: pro, quantity: 1, "
       "paymentDiscount: w>, transactionState: unknown>"},
      {renewal,
       "<SKPaymentTransaction original: <SKPaymentTransaction original: <SKPaymentTransaction original: nil, "
       "payment: <SKPayment productIdentifier: pro.monthly, quantity: 1>, transactionState: purchased>, "
       "payment: <SKPayment productIdentifier: pro.monthly, quantity: 1>, transactionState: purchased>, "
       "payment: <SKPayment productIdentifier: pro, quantity: 2>, transactionState: restored>"},
  };
  for (const auto& example : examples) EXPECT_EQ(description(*example.transaction), example.expected);

  const std::vector<std::pair<std::int64_t, std::string_view>> names = {
      {0, "purchasing"}, {1, "purchased"}, {2, "failed"}, {3, "restored"}, {4, "deferred"}, {5, "unknown"}, {-1, "unknown"}};
  for (const auto& [value, name] : names) EXPECT_EQ(description(SKPaymentTransactionState{value}), name) << value;
}

TEST(TransactionDump, StoreObjectsAsObjectsWithTheirIdentifyingFields) {
  const auto original = makeStoreTransaction({.id = "T1"});
  const auto renewal = std::make_shared<platform::SKPaymentTransaction>(
      platform::SKPayment{.productIdentifier = "pro.monthly"},
      platform::SKPaymentTransaction::Progress{.state = SKPaymentTransactionState::failed}, original);
  const Transaction record{.transaction = renewal};
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
  // The same store object twice in one dump is a back-reference; another one is numbered.
  const std::map<std::string, Transaction> two = {{"a", {.transaction = original}},
                                                  {"b", {.transaction = original, .isStartTrial = true}},
                                                  {"c", {.transaction = makeStoreTransaction({.id = "T1"})}}};
  const std::string dumped = support::customDump(two);
  EXPECT_NE(dumped.find("  \"b\": Transaction(\n    transaction: SKPaymentTransaction(↩︎),\n"), std::string::npos)
      << dumped;
  EXPECT_NE(dumped.find("  \"c\": Transaction(\n    transaction: #1 SKPaymentTransaction(\n"), std::string::npos)
      << dumped;
}

}  // namespace
}  // namespace velquist::storekit
