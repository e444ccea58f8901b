#include "velquist/adapty/paywall_document.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace velquist::adapty {
namespace {

using foundation::Decimal;
using foundation::Locale;
using platform::SKProduct;
using platform::SKProductPeriodUnit;
using Mode = AdaptyProductDiscount::PaymentMode;

TEST(PaywallDocument, RemoteConfigurationIsKeptAsText) {
  const auto with = [](const std::string& config) {
    return R"({"id": "main", "products": [], "remoteConfig": )" + config + "}";
  };
  const struct { std::string document; std::optional<std::string> expected; } cases[] = {
      {R"({"id": "main", "products": []})", std::nullopt},
      {with("null"), std::nullopt},
      {with(R"({ "ios_selected_product_id" : "a", "n": 1.50, "o": {"x": [true]} })"),
       R"({"ios_selected_product_id":"a","n":1.50,"o":{"x":[true]}})"},
      {with(R"("{\"variant_id\": \"b\"}")"), R"({"variant_id": "b"})"},
      {with(R"("not json {")"), "not json {"},
      {with(R"("")"), ""},
      {with("[1, 2]"), "[1,2]"},
      {with("5e0"), "5e0"},
  };
  for (const auto& c : cases) {
    const AdaptyPaywallDocument document = parsePaywallDocument(c.document, "paywall.json");
    EXPECT_EQ(document.paywall.identifier, "main");
    EXPECT_EQ(document.paywall.remoteConfigString, c.expected) << c.document;
  }
}

// Every member a product entry can have, and some it may leave out or set to null.
const std::string fullDocument = R"({"id": "onboarding", "unused": 1, "remoteConfig": {"a": [1, {"b": null}]},
    "products": [{"productId": "pro.weekly"},
      {"productId": "pro.yearly", "localizedTitle": "Yearly", "localizedDescription": "", "price": 39.990,
       "subscriptionGroupIdentifier": "pro", "subscriptionPeriod": {"unit": "unknown", "numberOfUnits": 1},
       "introductoryDiscount": {"identifier": "trial", "price": 0, "paymentMode": "free_trial",
                                "subscriptionPeriod": {"unit": "week", "numberOfUnits": 1.0}}},
      {"productId": "pro.weekly", "price": null, "introductoryDiscount": {"price": 1.99, "paymentMode": "unknown",
                                "subscriptionPeriod": {"unit": "month", "numberOfUnits": 1000}}}]})";

TEST(PaywallDocument, ProductEntriesRestateTheSdkMembers) {
  const auto document = parsePaywallDocument(fullDocument, "paywall.json");
  const std::vector<AdaptyPaywallDocument::Product> expected = {
      {.productIdentifier = "pro.weekly"},
      {.productIdentifier = "pro.yearly", .localizedTitle = "Yearly", .localizedDescription = "",
       .price = Decimal(39990, -3), .subscriptionGroupIdentifier = "pro",
       .subscriptionPeriod = AdaptyProductSubscriptionPeriod{AdaptyPeriodUnit::unknown, 1},
       .introductoryDiscount =
           AdaptyProductDiscount{"trial", Decimal(0), {AdaptyPeriodUnit::week, 1}, Mode::freeTrial}},
      {.productIdentifier = "pro.weekly", .introductoryDiscount = AdaptyProductDiscount{
           std::nullopt, Decimal(199, -2), {AdaptyPeriodUnit::month, 1000}, Mode::unknown}},
  };
  EXPECT_EQ(document.products, expected);
  EXPECT_EQ(document.productIdentifiers(), (std::vector<std::string>{"pro.weekly", "pro.yearly"}));
}

TEST(PaywallDocument, MalformedDocumentsNameThePathAndReason) {
  const std::string product = R"({"id": "p", "products": [{"productId": "a"}, )";
  const std::string period = R"({"id": "p", "products": [{"productId": "a", "subscriptionPeriod": )";
  const std::string units = "products[0].subscriptionPeriod.numberOfUnits";
  const struct { std::string document, path, reason; } cases[] = {
      {"", "", "not valid JSON"},
      {R"({"products": []})", "id", "required key is missing"},
      {R"({"id": null, "products": []})", "id", "required value is null"},
      {R"({"id": "p"})", "products", "required key is missing"},
      {R"({"id": "p", "products": {"productId": "a"}})", "products", "but found a dictionary"},
      {product + "{}]}", "products[1].productId", "required key is missing"},
      {product + "5]}", "products[1]", "but found a number"},
      {product + R"({"productId": "b", "price": -0.01}]})", "products[1].price", "price -0.01 is negative"},
      {period + R"({"unit": "fortnight", "numberOfUnits": 1}}]})", "products[0].subscriptionPeriod.unit",
       R"(unknown unit "fortnight" (expected one of "day", "week", "month", "year", "unknown"))"},
      {period + R"({"unit": "week", "numberOfUnits": 0}}]})", units, "number of units 0 is not between 1 and 1000"},
      {period + R"({"unit": "year", "numberOfUnits": 1001}}]})", units, "number of units 1001 is not between"},
      {R"({"id": "p", "products": [{"productId": "a", "introductoryDiscount": {"price": 0, "paymentMode": "freeTrial",
          "subscriptionPeriod": {"unit": "day", "numberOfUnits": 3}}}]})",
       "products[0].introductoryDiscount.paymentMode", R"(unknown payment mode "freeTrial")"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.document);
    try {
      parsePaywallDocument(c.document, "paywall.json");
      ADD_FAILURE() << "no error";
    } catch (const PaywallDocumentError& error) {
      EXPECT_EQ(error.path(), c.path);
      EXPECT_NE(error.reason().find(c.reason), std::string::npos) << error.reason();
      const std::string prefix = c.path.empty() ? "paywall.json: " : "paywall.json: " + c.path + ": ";
      EXPECT_EQ(std::string(error.what()), prefix + error.reason());
    }
  }
}

TEST(PaywallDocument, AnyDamageGivesAnErrorOrADocument) {
  const std::string& valid = fullDocument;
  const auto refused = [](const std::string& text) {
    try {
      parsePaywallDocument(text, "damaged.json");
      return false;
    } catch (const PaywallDocumentError&) {
      return true;
    }
  };
  EXPECT_FALSE(refused(valid));
  for (std::size_t at = 0; at < valid.size(); ++at) {
    EXPECT_TRUE(refused(valid.substr(0, at))) << at;  // no proper prefix of an object is a document
    for (char replacement : {'\0', '"', '{', ']', '\xff', '-'}) {
      refused(valid.substr(0, at) + replacement + valid.substr(at + 1));
    }
  }
}

TEST(PaywallDocument, ProductsAreMatchedWithTheStoreProducts) {
  // Units and payment modes the SDK cannot name read as unknown.
  const SKProduct weekly{.productIdentifier = "pro.weekly", .localizedTitle = "Weekly", .localizedDescription = "All",
                         .price = Decimal(499, -2), .priceLocale = Locale("de_DE"),
                         .subscriptionPeriod = {{1, SKProductPeriodUnit::week}}, .subscriptionGroupIdentifier = "pro",
                         .introductoryPrice = {{.price = Decimal(0), .subscriptionPeriod = {3, SKProductPeriodUnit{9}},
                                                .paymentMode = platform::SKProductDiscountPaymentMode{7}}}};
  const SKProduct lifetime{.productIdentifier = "pro.lifetime", .price = Decimal(2999, -2)};
  const AdaptyPaywallProduct::Fields fromStore = AdaptyPaywallProduct::fieldsFrom(weekly);
  EXPECT_EQ(fromStore, (AdaptyPaywallProduct::Fields{
                           .productIdentifier = "pro.weekly", .skProduct = weekly, .localizedTitle = "Weekly",
                           .localizedDescription = "All", .price = Decimal(499, -2), .subscriptionGroupIdentifier = "pro",
                           .subscriptionPeriod = AdaptyProductSubscriptionPeriod{AdaptyPeriodUnit::week, 1},
                           .introductoryDiscount = AdaptyProductDiscount{
                               std::nullopt, Decimal(0), {AdaptyPeriodUnit::unknown, 3}, Mode::unknown}}));
  const auto document = parsePaywallDocument(R"({"id": "p", "products": [{"productId": "gone"},
      {"productId": "pro.weekly", "price": 3.99, "localizedTitle": "Deal"}, {"productId": "pro.lifetime"},
      {"productId": "pro.weekly"}]})", "p.json");
  const std::vector<AdaptyPaywallProduct> resolved = document.resolve({lifetime, weekly});
  ASSERT_EQ(resolved.size(), 3u);
  AdaptyPaywallProduct::Fields restated = fromStore;
  restated.price = Decimal(399, -2);
  restated.localizedTitle = "Deal";
  EXPECT_EQ(resolved[0].fields(), restated);
  EXPECT_EQ(resolved[1].fields(), AdaptyPaywallProduct::fieldsFrom(lifetime));
  EXPECT_EQ(resolved[2].fields(), fromStore);
}

}  // namespace
}  // namespace velquist::adapty
