#include "velquist/storekit/paywall/paywall.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <type_traits>
#include <unistd.h>
#include <unordered_set>
#include <vector>

#include "common/hash_testing.h"
#include "common/scripted_store_backend.h"
#include "velquist/storekit/paywall/paywall_loader.h"
#include "velquist/storekit/product/product_from_adapty.h"

namespace velquist::storekit {
namespace {

using adapty::AdaptyPaywallProduct;
using platform::SKProduct;
using foundation::JsonValue;
using ID = Product::ID;
using Roles = Paywall::Roles;

static_assert(!std::is_convertible_v<Paywall::ID, Paywall::VariantID> &&
              !std::is_convertible_v<Paywall::VariantID, Paywall::ID> &&
              !std::is_convertible_v<Paywall::VariantID, Product::ID> && !std::is_convertible_v<std::string, Paywall::ID>);

AdaptyPaywallProduct sdkProduct(const std::string& id, std::int64_t cents) {
  return AdaptyPaywallProduct({.productIdentifier = id, .localizedTitle = id, .price = Decimal(cents, -2)});
}

Paywall fromConfig(std::optional<std::string> config, const std::vector<AdaptyPaywallProduct>& products = {}) {
  return Paywall(adapty::AdaptyPaywall{.identifier = "main", .remoteConfigString = std::move(config)}, products);
}

TEST(Paywall, RolesComeFromTextValuesUnderTheirExactKeys) {
  const auto some = [](const char* text) { return std::optional(ID(text)); };
  const struct { std::optional<std::string> config; Roles expected; } cases[] = {
      {std::nullopt, {}},
      {"not json", {}},
      {R"(["ios_selected_product_id", "a"])", {}},
      {"{}", {}},
      // Each key a different value, so a key read into the wrong role shows.
      {R"({"ios_selected_product_id": "s", "ios_comparing_product_id": "c", "ios_secondary_product_id": "2",
          "ios_highlighted_product_id": "h", "ios_best_value_product_id": "b", "ios_most_popular_product_id": "m",
          "ios_pay_up_front_product_id": "u", "ios_full_price_product_id": "f", "variant_id": "v"})",
       {some("c"), some("2"), some("s"), some("h"), some("b"), some("m"), some("u"), some("f"), Paywall::VariantID("v")}},
      {R"({"ios_selected_product_id": 123, "ios_comparing_product_id": true, "ios_secondary_product_id": null,
          "ios_highlighted_product_id": ["h"], "ios_best_value_product_id": {"id": "b"}, "variant_id": 2})", {}},
      {R"({"ios_selected_product_id": "", "variant_id": "", "ios_full_price_product_id": " F "})",
       {.productSelectedID = some(""), .productFullPriceID = some(" F "), .variantID = Paywall::VariantID("")}},
      {R"({"ios_selected_product_id": "first", "ios_selected_product_id": "second"})",
       {.productSelectedID = some("second")}},
      {R"({"IOS_SELECTED_PRODUCT_ID": "a", " ios_selected_product_id": "b", "variant_id ": "c"})", {}},
  };
  // Products are converted in the SDK's order, repeats kept.
  const std::vector<AdaptyPaywallProduct> sdk = {sdkProduct("b", 200), sdkProduct("a", 100), sdkProduct("b", 300)};
  for (const auto& c : cases) {
    const Paywall paywall = fromConfig(c.config, sdk);
    EXPECT_EQ(paywall.products(), (std::vector{makeProduct(sdk[0]), makeProduct(sdk[1]), makeProduct(sdk[2])}));
    EXPECT_EQ(paywall.roles(), c.expected) << c.config.value_or("(none)");
    EXPECT_EQ(paywall.remoteConfigString(), c.config);
    EXPECT_EQ(paywall.id(), Paywall::ID("main"));
  }
}

TEST(Paywall, RemoteConfigIsTheParsedObjectOrNothing) {
  const JsonValue object(
      JsonValue::Object{{"a", JsonValue::number("1.50")}, {"b", JsonValue(JsonValue::Array{JsonValue()})}});
  const struct { std::optional<std::string> config; std::optional<JsonValue> expected; } cases[] = {
      {std::nullopt, std::nullopt}, {"", std::nullopt},       {"not json", std::nullopt},
      {"[1, 2]", std::nullopt},     {R"("{}")", std::nullopt}, {"5", std::nullopt},
      {R"({"a": 1} trailing)", std::nullopt}, {"{}", JsonValue(JsonValue::Object{})},
      {R"( {"a": 1.50, "b": [null]} )", object},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(fromConfig(c.config).remoteConfig(), c.expected) << c.config.value_or("(none)");
  }
  EXPECT_EQ(Paywall(Paywall::ID("main")).remoteConfig(), std::nullopt);
}

TEST(Paywall, FilterFlagIsFalseOnlyForAFalseBooleanOrAZeroNumber) {
  const struct { std::optional<std::string> value; bool expected; } cases[] = {  // absent: no member
      {std::nullopt, true}, {"false", false}, {"true", true},   {R"("false")", true}, {R"("0")", true},
      {"null", true},       {"[false]", true}, {"{}", true},    {"0", false},         {"-0", false},
      {"0.0", false},       {"0E-2", false},   {"0.000e+9", false}, {"1", true},     {"10e-1", true},
      {"2", true},          {"-1", true},      {"0.5", true},   {"1e-400", true},     {"0.00000000000000000001", true},
  };
  for (const auto& c : cases) {
    const std::string config =
        c.value ? R"({"ios_filter_pay_up_front_product": )" + *c.value + "}" : R"({"other": false})";
    EXPECT_EQ(fromConfig(config).filterPayUpFrontProduct(), c.expected) << config;
  }
  for (const char* config : {"not json", "[false]", ""}) EXPECT_TRUE(fromConfig(config).filterPayUpFrontProduct());
  EXPECT_TRUE(fromConfig(std::nullopt).filterPayUpFrontProduct() && Paywall(Paywall::ID("")).filterPayUpFrontProduct());
}

TEST(Paywall, RoleAccessorsFindTheFirstProductWithTheIdentifier) {
  std::vector<Product> products;  // a second, dearer "s" last
  std::int64_t cents = 0;
  for (const char* id : {"c", "2", "s", "h", "b", "m", "u", "f", "s"}) {
    products.push_back(makeProduct(sdkProduct(id, cents += 100)));
  }
  Paywall paywall(Paywall::ID("main"), products,
                  {ID("c"), ID("2"), ID("s"), ID("h"), ID("b"), ID("m"), ID("u"), ID("f"), Paywall::VariantID("v")});
  const std::vector<std::function<std::optional<Product>(const Paywall&)>> accessors = {
      &Paywall::productComparing,   &Paywall::productSecondary, &Paywall::productSelected,
      &Paywall::productHighlighted, &Paywall::productBestValue, &Paywall::productMostPopular,
      &Paywall::productPayUpFront,  &Paywall::productFullPrice};
  for (std::size_t role = 0; role < accessors.size(); ++role) EXPECT_EQ(accessors[role](paywall), products[role]);
  paywall.products().erase(paywall.products().begin() + 2);
  EXPECT_EQ(paywall.productSelected(), products[8]);

  // A role naming no product on the paywall, or an empty identifier, finds nothing; matching is exact.
  const Paywall other(Paywall::ID("main"), {products[0]},
                      {.productComparingID = ID(""), .productSelectedID = ID("gone"), .productHighlightedID = ID("A")});
  for (const auto& accessor : accessors) EXPECT_EQ(accessor(other), std::nullopt);
}

TEST(Paywall, EqualityAndHashingCoverEveryField) {
  const std::vector<AdaptyPaywallProduct> sdk = {sdkProduct("a", 100)};
  const Paywall base(Paywall::ID("main"), {makeProduct(sdk[0])});
  // Every value but the copy differs from `base` in one field.
  std::vector<Paywall> values = {base, Paywall(base), Paywall(Paywall::ID("other"), base.products()),
                                 Paywall(Paywall::ID("main"))};
  for (auto role : {&Roles::productComparingID, &Roles::productSecondaryID, &Roles::productSelectedID,
                    &Roles::productHighlightedID, &Roles::productBestValueID, &Roles::productMostPopularID,
                    &Roles::productPayUpFrontID, &Roles::productFullPriceID}) {
    Roles roles;
    roles.*role = ID("a");
    values.emplace_back(Paywall::ID("main"), base.products(), roles);
  }
  values.emplace_back(Paywall::ID("main"), base.products(), Roles{.variantID = Paywall::VariantID("a")});
  values.push_back(fromConfig("{}", sdk));
  values.push_back(fromConfig("{ }", sdk));
  EXPECT_EQ(Paywall(values.back().id(), values.back().products(), values.back().roles()), base);

  std::set<std::size_t> hashes;
  for (std::size_t i = 0; i < values.size(); ++i) {
    hashes.insert(std::hash<Paywall>{}(values[i]));
    for (std::size_t j = 0; j < values.size(); ++j) EXPECT_EQ(values[i] == values[j], i == j || i + j == 1) << i << j;
  }
  testing::expectHashAgreesWithEquality(values);
  EXPECT_EQ(hashes.size(), values.size() - 1);  // a field left out of the hash shows as a repeat
}

std::filesystem::path writeDocument(const std::string& name, const std::string& contents) {
  const auto path = std::filesystem::temp_directory_path() /
                    ("paywall_loader_test_" + std::to_string(::getpid()) + "_" + name);
  std::ofstream(path) << contents;
  return path;
}

class PaywallLoader : public ::testing::Test {
 protected:
  PaywallLoader() { backend->setCatalogue({weekly, yearly, {.productIdentifier = "unrelated"}}); }

  const SKProduct weekly{.productIdentifier = "pro.weekly", .localizedTitle = "Pro Weekly", .price = Decimal(499, -2)};
  const SKProduct yearly{.productIdentifier = "pro.yearly", .localizedTitle = "Pro Yearly", .price = Decimal(3999, -2)};
  std::shared_ptr<testing::ScriptedStoreBackend> backend = std::make_shared<testing::ScriptedStoreBackend>();
  testing::StoreBackendScope scope{backend};
};

TEST_F(PaywallLoader, OneRequestForTheNamedProductsInDocumentOrder) {
  const auto path = writeDocument("order.json", R"({"id": "onboarding",
      "remoteConfig": {"ios_selected_product_id": "pro.yearly"},
      "products": [{"productId": "pro.yearly", "localizedTitle": "Best deal"}, {"productId": "gone"},
                   {"productId": "pro.weekly"}, {"productId": "pro.yearly"}, {"productId": "also.gone"}]})");
  const LoadedPaywall loaded = loadPaywall(path);
  std::filesystem::remove(path);

  const std::vector<std::unordered_set<std::string>> asked = {{"pro.yearly", "gone", "pro.weekly", "also.gone"}};
  EXPECT_EQ(backend->requests(), asked);
  EXPECT_EQ(loaded.missingProductIdentifiers, (std::vector<std::string>{"gone", "also.gone"}));
  std::vector<std::pair<std::string, std::string>> products;
  for (const auto& product : loaded.products) products.emplace_back(product.productIdentifier(), product.localizedTitle());
  EXPECT_EQ(products, (std::vector<std::pair<std::string, std::string>>{
                          {"pro.yearly", "Best deal"}, {"pro.weekly", "Pro Weekly"}, {"pro.yearly", "Pro Yearly"}}));
  EXPECT_EQ(loaded.products[1].skProduct(), weekly);
  EXPECT_EQ(Paywall(loaded.paywall, loaded.products).productSelected().value().displayName, "Best deal");
}

TEST_F(PaywallLoader, ABadRemoteConfigurationStillLoads) {
  for (const char* config : {R"("not json {")", "[1, 2]", "7"}) {
    const LoadedPaywall loaded = loadPaywall(adapty::parsePaywallDocument(
        std::string(R"({"id": "p", "products": [{"productId": "pro.weekly"}], "remoteConfig": )") + config + "}", "p"));
    EXPECT_EQ(loaded.products.size(), 1u) << config;
    EXPECT_EQ(Paywall(loaded.paywall, loaded.products).roles(), Paywall::Roles{}) << config;
  }
}

TEST_F(PaywallLoader, NothingIsAskedWithoutProductsOrWithABadDocument) {
  const LoadedPaywall empty = loadPaywall(adapty::parsePaywallDocument(R"({"id": "p", "products": []})", "p.json"));
  EXPECT_EQ(empty, (LoadedPaywall{.paywall = {.identifier = "p"}}));

  const auto path = writeDocument("bad.json", R"({"id": "p", "products": [{"productId": "pro.weekly", "price": "1"}]})");
  try {
    loadPaywall(path);
    ADD_FAILURE() << "no error";
  } catch (const adapty::PaywallDocumentError& error) {
    EXPECT_EQ(error.document(), path.string());
    EXPECT_EQ(error.path(), "products[0].price");
  }
  std::filesystem::remove(path);
  EXPECT_TRUE(backend->requests().empty());
}

}  // namespace
}  // namespace velquist::storekit
