#include "velquist/storekit/paywall/paywall.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "common/hash_testing.h"
#include "velquist/storekit/product/product_from_adapty.h"

namespace velquist::storekit {
namespace {

using adapty::AdaptyPaywall;
using adapty::AdaptyPaywallProduct;
using foundation::JsonValue;
using ID = Product::ID;

static_assert(!std::is_convertible_v<Paywall::ID, Paywall::VariantID>);
static_assert(!std::is_convertible_v<Paywall::VariantID, Paywall::ID>);
static_assert(!std::is_convertible_v<Paywall::ID, Product::ID>);
static_assert(!std::is_convertible_v<Paywall::VariantID, Product::ID>);
static_assert(!std::is_convertible_v<std::string, Paywall::ID>);

AdaptyPaywallProduct sdkProduct(const std::string& id, std::int64_t cents) {
  return AdaptyPaywallProduct({.productIdentifier = id,
                               .skProduct = {.productIdentifier = id, .priceLocale = Locale("en_US")},
                               .localizedTitle = id,
                               .price = Decimal(cents, -2)});
}

Paywall fromConfig(std::optional<std::string> config, const std::vector<AdaptyPaywallProduct>& products = {}) {
  return Paywall(AdaptyPaywall{.identifier = "main", .remoteConfigString = std::move(config)}, products);
}

TEST(Paywall, RolesComeFromTextValuesUnderTheirExactKeys) {
  const auto some = [](const char* text) { return std::optional(ID(text)); };
  const struct {
    std::optional<std::string> config;
    Paywall::Roles expected;
  } cases[] = {
      {std::nullopt, {}},
      {"not json", {}},
      {R"(["ios_selected_product_id", "a"])", {}},
      {"{}", {}},
      {R"({"ios_selected_product_id": "s", "ios_comparing_product_id": "c", "ios_secondary_product_id": "2",
          "ios_highlighted_product_id": "h", "ios_best_value_product_id": "b", "ios_most_popular_product_id": "m",
          "ios_pay_up_front_product_id": "u", "ios_full_price_product_id": "f", "variant_id": "v"})",
       {some("c"), some("2"), some("s"), some("h"), some("b"), some("m"), some("u"), some("f"), Paywall::VariantID("v")}},
      // Only JSON strings are identifiers; numbers, booleans, null, arrays and objects are not.
      {R"({"ios_selected_product_id": 123, "ios_comparing_product_id": true, "ios_secondary_product_id": null,
          "ios_highlighted_product_id": ["h"], "ios_best_value_product_id": {"id": "b"}, "variant_id": 2})",
       {}},
      // Empty and padded texts are kept as written.
      {R"({"ios_selected_product_id": "", "variant_id": "", "ios_full_price_product_id": " F "})",
       {.productSelectedID = some(""), .productFullPriceID = some(" F "), .variantID = Paywall::VariantID("")}},
      // Keys match exactly.
      {R"({"IOS_SELECTED_PRODUCT_ID": "a", " ios_selected_product_id": "b", "ios_selected_product": "c",
          "ios_variant_id": "d"})",
       {}},
      // A repeated key counts with its last value, as the platform's parser keeps it.
      {R"({"ios_selected_product_id": "first", "ios_selected_product_id": "second"})",
       {.productSelectedID = some("second")}},
      {R"({"ios_selected_product_id": "a"} trailing)", {}},
  };
  for (const auto& c : cases) {
    const Paywall paywall = fromConfig(c.config);
    EXPECT_EQ(paywall.roles(), c.expected) << c.config.value_or("(none)");
    EXPECT_EQ(paywall.remoteConfigString(), c.config);
    EXPECT_EQ(paywall.id(), Paywall::ID("main"));
  }
}

TEST(Paywall, RemoteConfigIsTheParsedObjectOrNothing) {
  const JsonValue object(
      JsonValue::Object{{"a", JsonValue::number("1.50")}, {"b", JsonValue(JsonValue::Array{JsonValue()})}});
  const struct {
    std::optional<std::string> config;
    std::optional<JsonValue> expected;
  } cases[] = {
      {std::nullopt, std::nullopt},
      {"", std::nullopt},
      {"not json", std::nullopt},
      {"[1, 2]", std::nullopt},
      {R"("{}")", std::nullopt},  // fragments are refused
      {"5", std::nullopt},
      {"null", std::nullopt},
      {R"({"a": 1} trailing)", std::nullopt},
      {"{\"a\": \"\xff\"}", std::nullopt},  // not UTF-8
      {std::string("{\"a\": 1}\0", 9), std::nullopt},
      {"{\"a\": " + std::string(600, '[') + std::string(600, ']') + "}", std::nullopt},  // too deep
      {"{}", JsonValue(JsonValue::Object{})},
      {R"( {"a": 1.50, "b": [null]} )", object},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(fromConfig(c.config).remoteConfig(), c.expected) << c.config.value_or("(none)");
  }
  EXPECT_EQ(Paywall(Paywall::ID("main")).remoteConfig(), std::nullopt);
}

TEST(Paywall, FilterFlagIsFalseOnlyForAFalseBoolean) {
  const struct {
    std::optional<std::string> value;  // the member's JSON text; absent: no member
    bool expected;
  } cases[] = {
      {std::nullopt, true}, {"false", false}, {"true", true},   {R"("false")", true}, {R"("0")", true},
      {"null", true},       {"[false]", true}, {"{}", true},    {"0", false},         {"-0", false},
      {"0.0", false},       {"0e7", false},    {"0E-2", false}, {"1", true},          {"1.0", true},
      {"10e-1", true},      {"0.1e1", true},   {"2", true},     {"-1", true},         {"0.5", true},
      {"1e-400", true},     {"0.09", true},     {"0.0000000000000000000000000000000000000000001", true},
  };
  for (const auto& c : cases) {
    const std::string config =
        c.value ? R"({"ios_filter_pay_up_front_product": )" + *c.value + "}" : R"({"other": false})";
    EXPECT_EQ(fromConfig(config).filterPayUpFrontProduct(), c.expected) << config;
  }
  EXPECT_FALSE(fromConfig(R"({"ios_filter_pay_up_front_product": 0.000e+9})").filterPayUpFrontProduct());
  for (const char* config : {"not json", "[false]", "", "{}"}) {
    EXPECT_TRUE(fromConfig(config).filterPayUpFrontProduct()) << config;
  }
  EXPECT_TRUE(fromConfig(std::nullopt).filterPayUpFrontProduct());
  EXPECT_TRUE(Paywall(Paywall::ID("main")).filterPayUpFrontProduct());
}

TEST(Paywall, RoleAccessorsFindTheFirstProductWithTheIdentifier) {
  const auto product = [](const char* id, std::int64_t cents) { return makeProduct(sdkProduct(id, cents)); };
  // Each role names another product, so an accessor reading the wrong role is caught.
  const std::vector<Product> products = {product("c", 100), product("2", 200), product("s", 300), product("h", 400),
                                         product("b", 500), product("m", 600), product("u", 700), product("f", 800),
                                         product("s", 999)};
  Paywall paywall(Paywall::ID("main"), products,
                  {ID("c"), ID("2"), ID("s"), ID("h"), ID("b"), ID("m"), ID("u"), ID("f"), Paywall::VariantID("v")});
  const std::vector<std::function<std::optional<Product>(const Paywall&)>> accessors = {
      &Paywall::productComparing,  &Paywall::productSecondary,   &Paywall::productSelected,
      &Paywall::productHighlighted, &Paywall::productBestValue,  &Paywall::productMostPopular,
      &Paywall::productPayUpFront, &Paywall::productFullPrice};
  for (std::size_t role = 0; role < accessors.size(); ++role) {
    EXPECT_EQ(accessors[role](paywall), products[role]) << role;  // "s" at 300, not the later one at 999
  }

  // Products may change after construction; the identifiers stay.
  paywall.products().erase(paywall.products().begin() + 2);
  EXPECT_EQ(paywall.productSelected(), products[8]);
  EXPECT_EQ(paywall.productSelectedID(), ID("s"));
  paywall.products().clear();
  for (const auto& accessor : accessors) EXPECT_EQ(accessor(paywall), std::nullopt);

  // A role that names no product on the paywall, or an empty identifier, finds nothing;
  // matching is exact.
  const Paywall other = fromConfig(
      R"({"ios_selected_product_id": "gone", "ios_comparing_product_id": "", "ios_highlighted_product_id": "A"})",
      {sdkProduct("a", 100)});
  EXPECT_EQ(other.productSelectedID(), ID("gone"));
  EXPECT_EQ(other.productSelected(), std::nullopt);
  EXPECT_EQ(other.productComparing(), std::nullopt);
  EXPECT_EQ(other.productHighlighted(), std::nullopt);
}

TEST(Paywall, ProductsAreConvertedInOrderWithRepeats) {
  const std::vector<AdaptyPaywallProduct> sdk = {sdkProduct("b", 200), sdkProduct("a", 100), sdkProduct("b", 300)};
  const Paywall paywall = fromConfig(R"({"ios_selected_product_id": "b"})", sdk);
  std::vector<Product> expected;
  for (const auto& product : sdk) expected.push_back(makeProduct(product));
  EXPECT_EQ(paywall.products(), expected);
  EXPECT_EQ(paywall.productSelected(), expected[0]);

  const Paywall empty = fromConfig(R"({"ios_selected_product_id": "b"})");
  EXPECT_TRUE(empty.products().empty());
  EXPECT_EQ(empty.productSelectedID(), ID("b"));
  EXPECT_EQ(empty.productSelected(), std::nullopt);
}

TEST(Paywall, EqualityAndHashingCoverEveryField) {
  const std::vector<AdaptyPaywallProduct> sdk = {sdkProduct("a", 100)};
  const Paywall base(Paywall::ID("main"), {makeProduct(sdk[0])});
  std::vector<Paywall> values = {base, Paywall(base), Paywall(Paywall::ID("other"), base.products()),
                                 Paywall(Paywall::ID("main"))};
  // Each role, one at a time.
  for (int role = 0; role < 9; ++role) {
    Paywall::Roles roles;
    std::optional<ID>* ids[] = {&roles.productComparingID,   &roles.productSecondaryID, &roles.productSelectedID,
                                &roles.productHighlightedID, &roles.productBestValueID, &roles.productMostPopularID,
                                &roles.productPayUpFrontID,  &roles.productFullPriceID};
    if (role < 8) {
      *ids[role] = ID("a");
    } else {
      roles.variantID = Paywall::VariantID("a");
    }
    values.emplace_back(Paywall::ID("main"), base.products(), roles);
  }
  // The same parts with a remote configuration text: not the memberwise paywall.
  values.push_back(fromConfig("{}", sdk));
  values.push_back(fromConfig("{ }", sdk));
  values.push_back(fromConfig("{}", sdk));
  EXPECT_EQ(values.back().id(), base.id());
  EXPECT_EQ(values.back().products(), base.products());
  EXPECT_EQ(values.back().roles(), base.roles());

  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t j = 0; j < values.size(); ++j) {
      const bool same = i == j || (i <= 1 && j <= 1) || (i >= values.size() - 3 && j >= values.size() - 3 &&
                                                         i != values.size() - 2 && j != values.size() - 2);
      EXPECT_EQ(values[i] == values[j], same) << i << " " << j;
    }
  }
  testing::expectHashAgreesWithEquality(values);
  // Unequal values here differ in one field each; a field left out of the hash shows as a
  // repeated hash.
  std::set<std::size_t> hashes;
  for (std::size_t i = 0; i < values.size() - 1; ++i) hashes.insert(std::hash<Paywall>{}(values[i]));
  EXPECT_EQ(hashes.size(), values.size() - 2);  // 0 and 1 are equal
}

}  // namespace
}  // namespace velquist::storekit
