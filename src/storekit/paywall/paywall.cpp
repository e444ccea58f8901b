#include "velquist/storekit/paywall/paywall.h"

#include <utility>

#include "velquist/storekit/product/product_from_adapty.h"
#include "velquist/support/hasher.h"

namespace velquist::storekit {
namespace {

using foundation::JsonValue;

/// The text of the member `key` when it is a JSON string; nothing for any other value.
std::optional<std::string> textMember(const std::optional<JsonValue>& config, std::string_view key) {
  if (!config) return std::nullopt;
  const JsonValue* value = config->find(key);
  if (value == nullptr || value->kind() != JsonValue::Kind::string) return std::nullopt;
  return value->stringValue();
}

template <class Identifier>
std::optional<Identifier> identifierMember(const std::optional<JsonValue>& config, std::string_view key) {
  if (auto text = textMember(config, key)) return Identifier(std::move(*text));
  return std::nullopt;
}

/// Whether a JSON number's text stands for zero: every digit before the exponent is 0
/// (`0`, `-0`, `0.00`, `0e7`). The exponent cannot make other digits zero.
bool isZero(std::string_view numberText) {
  const std::string_view mantissa = numberText.substr(0, numberText.find_first_of("eE"));
  return mantissa.find_first_of("123456789") == std::string_view::npos;
}

}  // namespace

Paywall::Paywall(ID id, std::vector<Product> products, Roles roles)
    : id_(std::move(id)), products_(std::move(products)), roles_(std::move(roles)) {}

Paywall::Paywall(const adapty::AdaptyPaywall& paywall, std::span<const adapty::AdaptyPaywallProduct> products)
    : id_(paywall.identifier), remoteConfigString_(paywall.remoteConfigString) {
  products_.reserve(products.size());
  for (const auto& product : products) products_.push_back(makeProduct(product));

  const std::optional<JsonValue> config = paywall.remoteConfig();
  roles_.productSelectedID = identifierMember<Product::ID>(config, "ios_selected_product_id");
  roles_.productComparingID = identifierMember<Product::ID>(config, "ios_comparing_product_id");
  roles_.productSecondaryID = identifierMember<Product::ID>(config, "ios_secondary_product_id");
  roles_.productHighlightedID = identifierMember<Product::ID>(config, "ios_highlighted_product_id");
  roles_.productBestValueID = identifierMember<Product::ID>(config, "ios_best_value_product_id");
  roles_.productMostPopularID = identifierMember<Product::ID>(config, "ios_most_popular_product_id");
  roles_.productPayUpFrontID = identifierMember<Product::ID>(config, "ios_pay_up_front_product_id");
  roles_.productFullPriceID = identifierMember<Product::ID>(config, "ios_full_price_product_id");
  roles_.variantID = identifierMember<VariantID>(config, "variant_id");
}

std::optional<foundation::JsonValue> Paywall::remoteConfig() const {
  return adapty::parseRemoteConfig(remoteConfigString_);
}

bool Paywall::filterPayUpFrontProduct() const {
  const std::optional<JsonValue> config = remoteConfig();
  if (!config) return true;
  const JsonValue* value = config->find("ios_filter_pay_up_front_product");
  if (value == nullptr) return true;
  // The platform bridges a JSON number exactly 0 or 1 to a boolean as well; only false turns
  // the filter off, so of the numbers only zero matters here.
  if (value->kind() == JsonValue::Kind::boolean) return value->boolValue();
  if (value->kind() == JsonValue::Kind::number) return !isZero(value->numberText());
  return true;
}

std::optional<Product> Paywall::productWithID(const std::optional<Product::ID>& id) const {
  if (!id) return std::nullopt;
  for (const Product& product : products_) {
    if (product.id == *id) return product;
  }
  return std::nullopt;
}

}  // namespace velquist::storekit

std::size_t std::hash<velquist::storekit::Paywall>::operator()(const velquist::storekit::Paywall& paywall) const {
  return velquist::support::Hasher()
      .combine(paywall.id())
      .combine(paywall.products())
      .combine(paywall.productComparingID())
      .combine(paywall.productSecondaryID())
      .combine(paywall.productSelectedID())
      .combine(paywall.productHighlightedID())
      .combine(paywall.productBestValueID())
      .combine(paywall.productMostPopularID())
      .combine(paywall.productPayUpFrontID())
      .combine(paywall.productFullPriceID())
      .combine(paywall.variantID())
      .combine(paywall.remoteConfigString())
      .finalize();
}
