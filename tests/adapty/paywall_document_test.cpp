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

std::string withRemoteConfig(const std::string& remoteConfig) {
  return R"({"id": "main", "products": [], "remoteConfig": )" + remoteConfig + "}";
}

TEST(PaywallDocument, RemoteConfigurationIsKeptAsText) {
  const struct {
    std::string document;
    std::optional<std::string> expected;
  } cases[] = {
      {R"({"id": "main", "products": []})", std::nullopt},
      {withRemoteConfig("null"), std::nullopt},
      // An object is written compactly, numbers exactly as in the document.
      {withRemoteConfig(R"({ "ios_selected_product_id" : "a", "n": 1.50, "o": {"x": [true]} })"),
       R"({"ios_selected_product_id":"a","n":1.50,"o":{"x":[true]}})"},
      {withRemoteConfig("{}"), "{}"},
      // A string is the configuration text itself, whatever it holds.
      {withRemoteConfig(R"("{\"variant_id\": \"b\"}")"), R"({"variant_id": "b"})"},
      {withRemoteConfig(R"("not json {")"), "not json {"},
      {withRemoteConfig(R"("")"), ""},
      // Anything else is kept as its JSON text, so the document still loads.
      {withRemoteConfig("[1, 2]"), "[1,2]"},
      {withRemoteConfig("5e0"), "5e0"},
      {withRemoteConfig("false"), "false"},
  };
  for (const auto& c : cases) {
    const AdaptyPaywallDocument document = parsePaywallDocument(c.document, "paywall.json");
    EXPECT_EQ(document.paywall.identifier, "main");
    EXPECT_EQ(document.paywall.remoteConfigString, c.expected) << c.document;
  }
}

TEST(PaywallDocument, ProductEntriesRestateTheSdkMembers) {
  const auto document = parsePaywallDocument(R"({
    "id": "onboarding", "unused": 1,
    "products": [
      {"productId": "pro.weekly"},
      {"productId": "pro.yearly", "localizedTitle": "Yearly", "localizedDescription": "",
       "price": 39.990, "subscriptionGroupIdentifier": "pro",
       "subscriptionPeriod": {"unit": "unknown", "numberOfUnits": 1},
       "introductoryDiscount": {"identifier": "trial", "price": 0, "paymentMode": "free_trial",
                                "subscriptionPeriod": {"unit": "week", "numberOfUnits": 1.0}}},
      {"productId": "pro.weekly", "price": null,
       "introductoryDiscount": {"price": 1.99, "paymentMode": "unknown",
                                "subscriptionPeriod": {"unit": "month", "numberOfUnits": 3}}}
    ]})",
                                             "paywall.json");
  const std::vector<AdaptyPaywallDocument::Product> expected = {
      {.productIdentifier = "pro.weekly"},
      {.productIdentifier = "pro.yearly",
       .localizedTitle = "Yearly",
       .localizedDescription = "",
       .price = Decimal(39990, -3),
       .subscriptionGroupIdentifier = "pro",
       .subscriptionPeriod = AdaptyProductSubscriptionPeriod{AdaptyPeriodUnit::unknown, 1},
       .introductoryDiscount = AdaptyProductDiscount{"trial", Decimal(0), {AdaptyPeriodUnit::week, 1}, Mode::freeTrial}},
      {.productIdentifier = "pro.weekly",
       .introductoryDiscount =
           AdaptyProductDiscount{std::nullopt, Decimal(199, -2), {AdaptyPeriodUnit::month, 3}, Mode::unknown}},
  };
  EXPECT_EQ(document.products, expected);
  EXPECT_EQ(document.productIdentifiers(), (std::vector<std::string>{"pro.weekly", "pro.yearly"}));
}

TEST(PaywallDocument, MalformedDocumentsNameThePathAndReason) {
  const std::string product = R"({"id": "p", "products": [{"productId": "a"}, )";
  const std::string period = R"({"id": "p", "products": [{"productId": "a", "subscriptionPeriod": )";
  const struct {
    std::string document;
    std::string path;
    std::string reason;
  } cases[] = {
      {"", "", "not valid JSON"},
      {"[]", "", "but found an array"},
      {R"({"products": []})", "id", "required key is missing"},
      {R"({"id": null, "products": []})", "id", "required value is null"},
      {R"({"id": 7, "products": []})", "id", "Expected to decode String but found a number"},
      {R"({"id": "p"})", "products", "required key is missing"},
      {R"({"id": "p", "products": {"productId": "a"}})", "products", "but found a dictionary"},
      {product + "{}]}", "products[1].productId", "required key is missing"},
      {product + "5]}", "products[1]", "but found a number"},
      {product + R"({"productId": "b", "price": "4.99"}]})", "products[1].price", "but found a string"},
      {product + R"({"productId": "b", "price": -0.01}]})", "products[1].price", "price -0.01 is negative"},
      {product + R"({"productId": "b", "price": 1e999}]})", "products[1].price", "does not fit in Decimal"},
      {period + R"({"unit": "fortnight", "numberOfUnits": 1}}]})", "products[0].subscriptionPeriod.unit",
       R"(unknown unit "fortnight" (expected one of "day", "week", "month", "year", "unknown"))"},
      {period + R"({"unit": "week"}}]})", "products[0].subscriptionPeriod.numberOfUnits", "required key is missing"},
      {period + R"({"unit": "week", "numberOfUnits": 0}}]})", "products[0].subscriptionPeriod.numberOfUnits",
       "number of units 0 is not between 1 and 1000"},
      {period + R"({"unit": "year", "numberOfUnits": 1001}}]})", "products[0].subscriptionPeriod.numberOfUnits",
       "not between 1 and 1000"},
      {period + R"({"unit": "day", "numberOfUnits": 1.5}}]})", "products[0].subscriptionPeriod.numberOfUnits",
       "does not fit"},
      {period + "\"P1W\"}]}", "products[0].subscriptionPeriod", "but found a string"},
      {R"({"id": "p", "products": [{"productId": "a", "introductoryDiscount": {"price": 0,
          "subscriptionPeriod": {"unit": "day", "numberOfUnits": 3}, "paymentMode": "freeTrial"}}]})",
       "products[0].introductoryDiscount.paymentMode", R"(unknown payment mode "freeTrial")"},
      {R"({"id": "p", "products": [{"productId": "a", "introductoryDiscount": {"price": 0,
          "paymentMode": "free_trial"}}]})",
       "products[0].introductoryDiscount.subscriptionPeriod", "required key is missing"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.document);
    try {
      parsePaywallDocument(c.document, "paywall.json");
      ADD_FAILURE() << "no error";
    } catch (const PaywallDocumentError& error) {
      EXPECT_EQ(error.document(), "paywall.json");
      EXPECT_EQ(error.path(), c.path);
      EXPECT_NE(error.reason().find(c.reason), std::string::npos) << error.reason();
      const std::string prefix = c.path.empty() ? "paywall.json: " : "paywall.json: " + c.path + ": ";
      EXPECT_EQ(std::string(error.what()), prefix + error.reason());
    }
  }
}

TEST(PaywallDocument, AnyDamageGivesAnErrorOrADocument) {
  const std::string valid = R"({"id": "p", "remoteConfig": {"a": [1, {"b": null}]}, "products": [
      {"productId": "a", "price": 1.5, "subscriptionPeriod": {"unit": "week", "numberOfUnits": 2},
       "introductoryDiscount": {"price": 0, "paymentMode": "free_trial",
                                "subscriptionPeriod": {"unit": "day", "numberOfUnits": 3}}}]})";
  std::size_t refused = 0;
  const auto attempt = [&](const std::string& text) {
    try {
      parsePaywallDocument(text, "damaged.json");
    } catch (const PaywallDocumentError&) {
      ++refused;
    }
  };
  for (std::size_t length = 0; length < valid.size(); ++length) attempt(valid.substr(0, length));
  EXPECT_EQ(refused, valid.size());  // no proper prefix of an object is a document
  for (std::size_t at = 0; at < valid.size(); ++at) {
    for (char replacement : {'\0', '"', '{', ']', '\xff', '-'}) {
      std::string damaged = valid;
      damaged[at] = replacement;
      attempt(damaged);
    }
  }
  EXPECT_NO_THROW(parsePaywallDocument(valid, "valid.json"));
}

TEST(PaywallDocument, ProductsAreMatchedWithTheStoreProducts) {
  const platform::SKProductDiscount trial{.price = Decimal(0),
                                          .priceLocale = Locale("de_DE"),
                                          .subscriptionPeriod = {3, SKProductPeriodUnit{9}},
                                          .paymentMode = platform::SKProductDiscountPaymentMode{7}};
  const SKProduct weekly{.productIdentifier = "pro.weekly",
                         .localizedTitle = "Pro Weekly",
                         .localizedDescription = "Everything",
                         .price = Decimal(499, -2),
                         .priceLocale = Locale("de_DE"),
                         .subscriptionPeriod = {{1, SKProductPeriodUnit::week}},
                         .subscriptionGroupIdentifier = "pro",
                         .introductoryPrice = trial};
  const SKProduct lifetime{.productIdentifier = "pro.lifetime", .price = Decimal(2999, -2)};

  // From the store alone, units and payment modes the SDK cannot name read as unknown.
  const AdaptyPaywallProduct::Fields fromStore = AdaptyPaywallProduct::fieldsFrom(weekly);
  EXPECT_EQ(fromStore, (AdaptyPaywallProduct::Fields{
                           .productIdentifier = "pro.weekly",
                           .skProduct = weekly,
                           .localizedTitle = "Pro Weekly",
                           .localizedDescription = "Everything",
                           .price = Decimal(499, -2),
                           .subscriptionGroupIdentifier = "pro",
                           .subscriptionPeriod = AdaptyProductSubscriptionPeriod{AdaptyPeriodUnit::week, 1},
                           .introductoryDiscount = AdaptyProductDiscount{
                               std::nullopt, Decimal(0), {AdaptyPeriodUnit::unknown, 3}, Mode::unknown}}));

  const auto document = parsePaywallDocument(R"({"id": "p", "products": [
      {"productId": "gone"}, {"productId": "pro.weekly", "price": 3.99, "localizedTitle": "Weekly"},
      {"productId": "pro.lifetime"}, {"productId": "pro.weekly"}]})",
                                             "p.json");
  const std::vector<AdaptyPaywallProduct> resolved = document.resolve({lifetime, weekly});
  ASSERT_EQ(resolved.size(), 3u);
  AdaptyPaywallProduct::Fields restated = fromStore;
  restated.price = Decimal(399, -2);
  restated.localizedTitle = "Weekly";
  EXPECT_EQ(resolved[0].fields(), restated);
  EXPECT_EQ(resolved[1].fields(), AdaptyPaywallProduct::fieldsFrom(lifetime));
  EXPECT_EQ(resolved[2].fields(), fromStore);
  // The interface reads the stored members.
  const AdaptyProduct& product = resolved[0];
  EXPECT_EQ(product.price(), Decimal(399, -2));
  EXPECT_EQ(product.skProduct().priceLocale, Locale("de_DE"));
}

}  // namespace
}  // namespace velquist::adapty
