#include "velquist/adapty/paywall_document.h"

#include <array>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>
#include <unordered_set>
#include <utility>

#include "velquist/foundation/coding.h"

namespace velquist::adapty {

PaywallDocumentError::PaywallDocumentError(std::string document, std::string path, std::string reason) {
  std::string message = document + ": " + (path.empty() ? "" : path + ": ") + reason;
  details_ = std::make_shared<const Details>(
      Details{std::move(document), std::move(path), std::move(reason), std::move(message)});
}

namespace {

using foundation::CodingKey;
using foundation::Decimal;
using foundation::Decoder;
using foundation::DecodingError;
using foundation::JsonValue;
using foundation::KeyedDecoder;
using PaymentMode = AdaptyProductDiscount::PaymentMode;

// Periods in real catalogues are at most a year of days; the bound keeps day counts far from
// overflowing wherever the periods go next.
constexpr std::int64_t maxNumberOfUnits = 1000;

constexpr std::array<std::pair<std::string_view, AdaptyPeriodUnit>, 5> unitNames{{
    {"day", AdaptyPeriodUnit::day},
    {"week", AdaptyPeriodUnit::week},
    {"month", AdaptyPeriodUnit::month},
    {"year", AdaptyPeriodUnit::year},
    {"unknown", AdaptyPeriodUnit::unknown},
}};

constexpr std::array<std::pair<std::string_view, PaymentMode>, 4> paymentModeNames{{
    {"pay_as_you_go", PaymentMode::payAsYouGo},
    {"pay_up_front", PaymentMode::payUpFront},
    {"free_trial", PaymentMode::freeTrial},
    {"unknown", PaymentMode::unknown},
}};

std::string inQuotes(std::string_view text) { return "\"" + std::string(text) + "\""; }

std::vector<CodingKey> childPath(const KeyedDecoder& object, std::string_view key) {
  std::vector<CodingKey> path = object.codingPath();
  path.push_back(CodingKey::key(key));
  return path;
}

/// The member `key`; absent when it is missing or null.
std::optional<Decoder> optionalMember(const KeyedDecoder& object, std::string_view key) {
  if (!object.contains(key)) return std::nullopt;
  Decoder value = object.nested(key);
  if (value.decodeNil()) return std::nullopt;
  return value;
}

Decoder requiredMember(const KeyedDecoder& object, std::string_view key) {
  if (auto value = optionalMember(object, key)) return *value;
  if (object.contains(key)) {
    throw DecodingError(DecodingError::Kind::valueNotFound, childPath(object, key), "required value is null");
  }
  throw DecodingError(DecodingError::Kind::keyNotFound, childPath(object, key), "required key is missing");
}

std::string text(const Decoder& value) { return value.decode<std::string>(); }

std::optional<std::string> optionalText(const KeyedDecoder& object, std::string_view key) {
  if (auto value = optionalMember(object, key)) return text(*value);
  return std::nullopt;
}

Decimal price(const Decoder& value) {
  const Decimal result = value.decode<Decimal>();
  if (result < Decimal(0)) throw value.dataCorrupted("price " + result.description() + " is negative");
  return result;
}

template <class Enum, std::size_t N>
Enum named(const Decoder& value, const std::array<std::pair<std::string_view, Enum>, N>& names, std::string_view what) {
  const std::string name = text(value);
  std::string expected;
  for (const auto& [candidate, result] : names) {
    if (candidate == name) return result;
    expected += (expected.empty() ? "" : ", ") + inQuotes(candidate);
  }
  throw value.dataCorrupted("unknown " + std::string(what) + " " + inQuotes(name) + " (expected one of " + expected +
                            ")");
}

AdaptyProductSubscriptionPeriod period(const Decoder& value) {
  const KeyedDecoder object = value.keyed();
  AdaptyProductSubscriptionPeriod result;
  result.unit = named(requiredMember(object, "unit"), unitNames, "unit");
  const Decoder count = requiredMember(object, "numberOfUnits");
  result.numberOfUnits = count.decode<std::int64_t>();
  if (result.numberOfUnits < 1 || result.numberOfUnits > maxNumberOfUnits) {
    throw count.dataCorrupted("number of units " + std::to_string(result.numberOfUnits) + " is not between 1 and " +
                              std::to_string(maxNumberOfUnits));
  }
  return result;
}

AdaptyProductDiscount discount(const Decoder& value) {
  const KeyedDecoder object = value.keyed();
  AdaptyProductDiscount result;
  result.identifier = optionalText(object, "identifier");
  result.price = price(requiredMember(object, "price"));
  result.subscriptionPeriod = period(requiredMember(object, "subscriptionPeriod"));
  result.paymentMode = named(requiredMember(object, "paymentMode"), paymentModeNames, "payment mode");
  return result;
}

AdaptyPaywallDocument::Product product(const Decoder& value) {
  const KeyedDecoder object = value.keyed();
  AdaptyPaywallDocument::Product result;
  result.productIdentifier = text(requiredMember(object, "productId"));
  result.localizedTitle = optionalText(object, "localizedTitle");
  result.localizedDescription = optionalText(object, "localizedDescription");
  if (auto member = optionalMember(object, "price")) result.price = price(*member);
  result.subscriptionGroupIdentifier = optionalText(object, "subscriptionGroupIdentifier");
  if (auto member = optionalMember(object, "subscriptionPeriod")) result.subscriptionPeriod = period(*member);
  if (auto member = optionalMember(object, "introductoryDiscount")) result.introductoryDiscount = discount(*member);
  return result;
}

/// The remote configuration's raw text: a string as it stands, anything else as JSON text.
std::optional<std::string> remoteConfigText(const KeyedDecoder& object) {
  const std::optional<Decoder> value = optionalMember(object, "remoteConfig");
  if (!value) return std::nullopt;
  if (value->value().kind() == JsonValue::Kind::string) return value->value().stringValue();
  return foundation::toJsonText(value->value());
}

AdaptyPaywallDocument document(const Decoder& root) {
  const KeyedDecoder object = root.keyed();
  AdaptyPaywallDocument result;
  result.paywall.identifier = text(requiredMember(object, "id"));
  result.paywall.remoteConfigString = remoteConfigText(object);
  for (const Decoder& entry : requiredMember(object, "products").unkeyed()) result.products.push_back(product(entry));
  return result;
}

}  // namespace

AdaptyPaywallProduct AdaptyPaywallDocument::Product::resolve(platform::SKProduct storeProduct) const {
  AdaptyPaywallProduct::Fields fields = AdaptyPaywallProduct::fieldsFrom(std::move(storeProduct));
  fields.productIdentifier = productIdentifier;
  if (localizedTitle) fields.localizedTitle = *localizedTitle;
  if (localizedDescription) fields.localizedDescription = *localizedDescription;
  if (price) fields.price = *price;
  if (subscriptionGroupIdentifier) fields.subscriptionGroupIdentifier = subscriptionGroupIdentifier;
  if (subscriptionPeriod) fields.subscriptionPeriod = subscriptionPeriod;
  if (introductoryDiscount) fields.introductoryDiscount = introductoryDiscount;
  return AdaptyPaywallProduct(std::move(fields));
}

std::vector<std::string> AdaptyPaywallDocument::productIdentifiers() const {
  std::vector<std::string> identifiers;
  std::unordered_set<std::string_view> seen;
  for (const Product& entry : products) {
    if (seen.insert(entry.productIdentifier).second) identifiers.push_back(entry.productIdentifier);
  }
  return identifiers;
}

std::vector<AdaptyPaywallProduct> AdaptyPaywallDocument::resolve(
    const std::vector<platform::SKProduct>& storeProducts) const {
  std::vector<AdaptyPaywallProduct> resolved;
  for (const Product& entry : products) {
    for (const platform::SKProduct& storeProduct : storeProducts) {
      if (storeProduct.productIdentifier != entry.productIdentifier) continue;
      resolved.push_back(entry.resolve(storeProduct));
      break;
    }
  }
  return resolved;
}

AdaptyPaywallDocument parsePaywallDocument(std::string_view text, std::string_view name) {
  try {
    const JsonValue root = foundation::parseJson(text);
    return document(Decoder(root));
  } catch (const DecodingError& error) {
    throw PaywallDocumentError(std::string(name), error.codingPathText(), error.debugDescription());
  }
}

AdaptyPaywallDocument loadPaywallDocument(const std::filesystem::path& path) {
  const std::string name = path.string();
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) throw PaywallDocumentError(name, "", "is a directory");
  std::ifstream file(path, std::ios::binary);
  if (!file) throw PaywallDocumentError(name, "", "cannot be opened: " + std::generic_category().message(errno));
  const std::string contents{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (file.bad()) throw PaywallDocumentError(name, "", "cannot be read");
  return parsePaywallDocument(contents, name);
}

}  // namespace velquist::adapty
