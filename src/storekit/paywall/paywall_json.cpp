#include "velquist/storekit/paywall/paywall_json.h"

#include <optional>
#include <string_view>

#include "velquist/storekit/formatting/offer_format_style.h"
#include "velquist/storekit/formatting/price_format_style.h"

namespace velquist::storekit {
namespace {

using foundation::JsonValue;

struct Role {
  std::string_view name;
  const std::optional<Product::ID>& (Paywall::*id)() const;
};

constexpr Role roles[] = {
    {"selected", &Paywall::productSelectedID},       {"highlighted", &Paywall::productHighlightedID},
    {"best value", &Paywall::productBestValueID},     {"most popular", &Paywall::productMostPopularID},
    {"comparing", &Paywall::productComparingID},     {"secondary", &Paywall::productSecondaryID},
    {"full price", &Paywall::productFullPriceID},    {"pay up front", &Paywall::productPayUpFrontID},
};

JsonValue optionalText(const std::optional<std::string>& text) { return text ? JsonValue(*text) : JsonValue(); }

}  // namespace

std::vector<std::string> paywallRoles(const Paywall& paywall, const Product& product) {
  std::vector<std::string> names;
  for (const Role& role : roles) {
    if ((paywall.*role.id)() == product.id) names.emplace_back(role.name);
  }
  return names;
}

std::vector<std::pair<std::string, Product::ID>> namedPaywallRoles(const Paywall& paywall) {
  std::vector<std::pair<std::string, Product::ID>> named;
  for (const Role& role : roles) {
    if (const auto& id = (paywall.*role.id)()) named.emplace_back(std::string(role.name), *id);
  }
  return named;
}

JsonValue paywallJson(const Paywall& paywall, const LoadedPaywall& loaded) {
  JsonValue::Object roleIDs;
  for (auto& [name, id] : namedPaywallRoles(paywall)) roleIDs.emplace_back(std::move(name), JsonValue(id.rawValue));
  const auto comparing = paywall.productComparing();
  JsonValue::Array products;
  for (const Product& product : paywall.products()) {
    JsonValue::Array productRoles;
    for (auto& role : paywallRoles(paywall, product)) productRoles.emplace_back(std::move(role));
    std::optional<std::string> freeTrial;
    if (const auto offer = product.introductoryPrice()) freeTrial = offer->formatted();
    if (freeTrial && freeTrial->empty()) freeTrial.reset();
    std::optional<std::string> discount;
    if (comparing && product.id != comparing->id) discount = product.displayDiscount(*comparing);
    products.emplace_back(JsonValue::Object{
        {"id", JsonValue(product.id.rawValue)},
        {"title", JsonValue(product.displayName)},
        {"roles", JsonValue(std::move(productRoles))},
        {"price", JsonValue(product.formatted(Product::FormatStyle::price()))},
        {"pricePerWeek", JsonValue(product.formatted(Product::FormatStyle::price(Product::SubscriptionPeriod::week(1))))},
        {"freeTrial", optionalText(freeTrial)},
        {"discount", optionalText(discount)},
    });
  }
  JsonValue::Array missing;
  for (const auto& identifier : loaded.missingProductIdentifiers) missing.emplace_back(identifier);
  return JsonValue(JsonValue::Object{
      {"id", JsonValue(paywall.id().rawValue)},
      {"variantID", optionalText(paywall.variantID() ? std::optional(paywall.variantID()->rawValue) : std::nullopt)},
      {"filterPayUpFrontProduct", JsonValue(paywall.filterPayUpFrontProduct())},
      {"roles", JsonValue(std::move(roleIDs))},
      {"products", JsonValue(std::move(products))},
      {"missingProducts", JsonValue(std::move(missing))},
  });
}

}  // namespace velquist::storekit
