#pragma once

#include "velquist/export.h"
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// The country store that the user's account belongs to, as the store's payment queue
/// reports it; hosts use it to tell prices and offers apart by country. Obtained only
/// through `current()`; equal when both fields are.
///
///     auto storefront = Storefront::current();
///     storefront->countryCode();  // "USA"
///     storefront->id();           // "143441"
///
/// A value type: distinct objects are safe on different threads; one object is safe to read
/// from many threads.
class Storefront {
 public:
  /// The storefront as the default payment queue gives it now, read afresh on every call;
  /// nothing before the store has been reached (or with no store backend).
  /// May be called from any thread.
  static std::optional<Storefront> current();

  /// The three-letter country code, as the store gives it.
  const std::string& countryCode() const { return countryCode_; }
  /// The store's identifier of the storefront.
  const std::string& id() const { return id_; }

  friend bool operator==(const Storefront&, const Storefront&) = default;

 private:
  Storefront(std::string countryCode, std::string id) : countryCode_(std::move(countryCode)), id_(std::move(id)) {}

  std::string countryCode_;
  std::string id_;
};

}  // namespace velquist::storekit

template <>
struct std::hash<velquist::storekit::Storefront> {
  std::size_t operator()(const velquist::storekit::Storefront& storefront) const;
};
VELQUIST_API_END
