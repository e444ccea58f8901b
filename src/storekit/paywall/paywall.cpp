#include "velquist/storekit/paywall/paywall.h"

#include <cstdint>
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

/// The value of a JSON number's text when it is exactly 0 or 1; nothing for any other number.
/// The text is valid JSON: `-`? digits (`.` digits)? ([eE] [+-]? digits)?.
std::optional<bool> exactZeroOrOne(std::string_view text) {
  const bool negative = !text.empty() && text.front() == '-';
  if (negative) text.remove_prefix(1);
  const std::size_t exponentStart = text.find_first_of("eE");
  const std::string_view mantissa = text.substr(0, exponentStart);
  const std::string_view exponent = exponentStart == std::string_view::npos ? "" : text.substr(exponentStart + 1);

  // The significant digits, and the power of ten their last digit stands for.
  std::string digits;
  std::int64_t scale = 0;
  bool afterPoint = false;
  for (char c : mantissa) {
    if (c == '.') {
      afterPoint = true;
    } else {
      digits += c;
      if (afterPoint) --scale;
    }
  }
  const std::size_t firstNonZero = digits.find_first_not_of('0');
  if (firstNonZero == std::string::npos) return false;  // zero, whatever the sign and exponent
  digits.erase(0, firstNonZero);
  while (digits.back() == '0') {
    digits.pop_back();
    ++scale;
  }
  if (negative || digits != "1") return std::nullopt;

  // One is 1 × 10^0: the exponent must cancel the scale exactly. Exponents too long to count
  // are far from doing so.
  bool exponentNegative = false;
  std::string_view exponentDigits = exponent;
  if (!exponentDigits.empty() && (exponentDigits.front() == '+' || exponentDigits.front() == '-')) {
    exponentNegative = exponentDigits.front() == '-';
    exponentDigits.remove_prefix(1);
  }
  std::int64_t exponentValue = 0;
  for (char c : exponentDigits) {
    if (exponentValue > 1'000'000'000) return std::nullopt;
    exponentValue = exponentValue * 10 + (c - '0');
  }
  if (exponentNegative) exponentValue = -exponentValue;
  if (exponentValue + scale != 0) return std::nullopt;
  return true;
}

/// A JSON value as the platform's bridging reads it as a boolean.
std::optional<bool> bridgedBoolean(const JsonValue& value) {
  if (value.kind() == JsonValue::Kind::boolean) return value.boolValue();
  if (value.kind() == JsonValue::Kind::number) return exactZeroOrOne(value.numberText());
  return std::nullopt;
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
  return bridgedBoolean(*value).value_or(true);
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
