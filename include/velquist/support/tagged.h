#pragma once

#include "velquist/export.h"
#include <compare>
#include <cstddef>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>

#include "velquist/foundation/coding.h"
#include "velquist/support/dump.h"

VELQUIST_API_BEGIN
namespace velquist::support {

/// A raw value (usually a text identifier) tagged with the type that owns it, so that a
/// product identifier and an offer identifier are different types that cannot be mixed up:
///
///     using ProductID = Tagged<Product, std::string>;
///     using OfferID = Tagged<Product::SubscriptionOffer, std::string>;
///     static_assert(!std::is_convertible_v<ProductID, OfferID>);
///
/// Compares, orders and hashes exactly as its raw value; its serial form is the raw value
/// itself; its dump is a one-field struct, `Tagged(rawValue: "pro.monthly")`.
/// The tag may be an incomplete type. A value type; thread-safe as its raw value is.
template <class Tag, class RawValue = std::string>
struct Tagged {
  using RawValueType = RawValue;

  RawValue rawValue{};

  Tagged() = default;
  explicit Tagged(RawValue value) : rawValue(std::move(value)) {}
  /// Lets a literal name an identifier where the type is already spelled out:
  /// `ProductID id{"pro.monthly"}`.
  template <class Text>
    requires(std::is_constructible_v<RawValue, Text> && !std::is_same_v<std::decay_t<Text>, RawValue> &&
             !std::is_same_v<std::decay_t<Text>, Tagged>)
  explicit Tagged(Text&& value) : rawValue(std::forward<Text>(value)) {}

  friend bool operator==(const Tagged&, const Tagged&) = default;
  friend auto operator<=>(const Tagged&, const Tagged&) = default;
};

template <class Tag, class RawValue>
DumpValue customDumpValue(const Tagged<Tag, RawValue>& tagged) {
  return DumpValue::structure("Tagged", {{"rawValue", dumpValue(tagged.rawValue)}});
}

}  // namespace velquist::support

/// The serial form of a typed identifier is its raw value alone: `"pro.monthly"`.
template <class Tag, class RawValue>
struct velquist::foundation::Coding<velquist::support::Tagged<Tag, RawValue>> {
  static void encode(Encoder& encoder, const velquist::support::Tagged<Tag, RawValue>& tagged) {
    encoder.encode(tagged.rawValue);
  }
  static velquist::support::Tagged<Tag, RawValue> decode(const Decoder& decoder) {
    return velquist::support::Tagged<Tag, RawValue>(decoder.decode<RawValue>());
  }
};

template <class Tag, class RawValue>
struct std::hash<velquist::support::Tagged<Tag, RawValue>> {
  std::size_t operator()(const velquist::support::Tagged<Tag, RawValue>& tagged) const {
    return std::hash<RawValue>{}(tagged.rawValue);
  }
};
VELQUIST_API_END
