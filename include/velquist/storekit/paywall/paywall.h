#pragma once

#include "velquist/export.h"
#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "velquist/adapty/adapty_paywall.h"
#include "velquist/adapty/adapty_product.h"
#include "velquist/foundation/json.h"
#include "velquist/storekit/product/product.h"
#include "velquist/support/tagged.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// One purchase screen as configured on the subscription service: its identifier, the
/// products offered on it, and the roles its remote configuration gives them (selected when
/// the screen opens, highlighted, best value, most popular, ...). The roles are product
/// identifiers read by fixed keys from the remote configuration, a free-form JSON object;
/// the raw configuration text is kept so further flags can be read from it later.
///
///     Paywall paywall(adaptyPaywall, adaptyProducts);
///     // remote configuration {"ios_selected_product_id": "pro.yearly", "variant_id": "b"}
///     paywall.productSelectedID()  ->  Product::ID("pro.yearly")
///     paywall.productSelected()    ->  the first product whose id is "pro.yearly", if any
///     paywall.variantID()          ->  Paywall::VariantID("b")
///
/// Role identifiers are not checked against `products()`: a role may name a product that is
/// not on the paywall, and its accessor then gives nothing. Nothing here reports errors or
/// logs: a missing or malformed configuration, a missing key or a value of the wrong type
/// simply leaves a role absent.
///
/// Equality and hashing go over all twelve fields in declaration order (`id`, `products`,
/// the eight role identifiers from comparing to full price, `variantID`,
/// `remoteConfigString`): two paywalls with the same `id` but other roles are different
/// values.
///
/// A value type, immutable apart from `products()`: distinct objects may be used from
/// different threads freely, and one object may be read from several threads at once. The
/// accessors do no input or output; `remoteConfig` and `filterPayUpFrontProduct` parse the
/// configuration again on every call, so callers that read them often should keep the result.
class Paywall {
 public:
  using ID = support::Tagged<Paywall, std::string>;
  /// The tag of variant identifiers, distinct from the paywall's own.
  struct VariantIDTag;
  /// The A/B variant of a paywall; a type of its own, not convertible to `ID` or `Product::ID`.
  using VariantID = support::Tagged<VariantIDTag, std::string>;

  /// The role identifiers and the variant; designated initialisers name them.
  struct Roles {
    std::optional<Product::ID> productComparingID;
    std::optional<Product::ID> productSecondaryID;
    std::optional<Product::ID> productSelectedID;
    std::optional<Product::ID> productHighlightedID;
    std::optional<Product::ID> productBestValueID;
    std::optional<Product::ID> productMostPopularID;
    std::optional<Product::ID> productPayUpFrontID;
    std::optional<Product::ID> productFullPriceID;
    std::optional<VariantID> variantID;

    friend bool operator==(const Roles&, const Roles&) = default;
  };

  /// A paywall from its parts, without a remote configuration (`remoteConfig` is then absent
  /// and `filterPayUpFrontProduct` true).
  ///
  ///     Paywall(Paywall::ID("main"), products, {.productSelectedID = Product::ID("pro.yearly")})
  explicit Paywall(ID id, std::vector<Product> products = {}, Roles roles = {});

  /// A paywall from the SDK's records: its identifier; every product converted
  /// (product_from_adapty.h) in the given order, without removing repeats or sorting; the
  /// roles read from its remote configuration; and the configuration's raw text as it stands.
  ///
  /// A role is read from the configuration's member of the same key ("ios_selected_product_id",
  /// "ios_comparing_product_id", "ios_secondary_product_id", "ios_highlighted_product_id",
  /// "ios_best_value_product_id", "ios_most_popular_product_id",
  /// "ios_pay_up_front_product_id", "ios_full_price_product_id", "variant_id") when that
  /// member is a JSON string, taken exactly as written (an empty string is an empty
  /// identifier). Any other JSON type leaves the role absent. Never fails.
  Paywall(const adapty::AdaptyPaywall& paywall, std::span<const adapty::AdaptyPaywallProduct> products);

  const ID& id() const { return id_; }
  /// The products that could be converted, in the SDK's order; the one field that may change.
  const std::vector<Product>& products() const { return products_; }
  std::vector<Product>& products() { return products_; }

  const std::optional<Product::ID>& productComparingID() const { return roles_.productComparingID; }
  const std::optional<Product::ID>& productSecondaryID() const { return roles_.productSecondaryID; }
  const std::optional<Product::ID>& productSelectedID() const { return roles_.productSelectedID; }
  const std::optional<Product::ID>& productHighlightedID() const { return roles_.productHighlightedID; }
  const std::optional<Product::ID>& productBestValueID() const { return roles_.productBestValueID; }
  const std::optional<Product::ID>& productMostPopularID() const { return roles_.productMostPopularID; }
  const std::optional<Product::ID>& productPayUpFrontID() const { return roles_.productPayUpFrontID; }
  const std::optional<Product::ID>& productFullPriceID() const { return roles_.productFullPriceID; }
  const std::optional<VariantID>& variantID() const { return roles_.variantID; }
  const Roles& roles() const { return roles_; }
  /// The remote configuration as the SDK's paywall held it; absent for a paywall built from
  /// its parts.
  const std::optional<std::string>& remoteConfigString() const { return remoteConfigString_; }

  /// The remote configuration parsed as a JSON object (adapty::parseRemoteConfig): absent
  /// without text, for text that is not JSON, and for JSON that is not an object.
  std::optional<foundation::JsonValue> remoteConfig() const;

  /// Whether the screen should leave out the pay-up-front product: false only when the
  /// configuration's "ios_filter_pay_up_front_product" is a boolean false, true otherwise
  /// (the default is to filter). As the platform bridges JSON numbers, one exactly 0 is
  /// false too (`0`, `-0`, `0.0`, `0e5`), one exactly 1 true; strings ("false"), null and any
  /// other value give true. The paywall never removes that product itself.
  bool filterPayUpFrontProduct() const;

  /// The first product (in `products()` order) whose `id` is exactly the role identifier;
  /// nothing when the role is absent or names no product on the paywall.
  std::optional<Product> productComparing() const { return productWithID(roles_.productComparingID); }
  std::optional<Product> productSecondary() const { return productWithID(roles_.productSecondaryID); }
  std::optional<Product> productSelected() const { return productWithID(roles_.productSelectedID); }
  std::optional<Product> productHighlighted() const { return productWithID(roles_.productHighlightedID); }
  std::optional<Product> productBestValue() const { return productWithID(roles_.productBestValueID); }
  std::optional<Product> productMostPopular() const { return productWithID(roles_.productMostPopularID); }
  std::optional<Product> productPayUpFront() const { return productWithID(roles_.productPayUpFrontID); }
  std::optional<Product> productFullPrice() const { return productWithID(roles_.productFullPriceID); }

  friend bool operator==(const Paywall&, const Paywall&) = default;

 private:
  std::optional<Product> productWithID(const std::optional<Product::ID>& id) const;

  ID id_;
  std::vector<Product> products_;
  Roles roles_;
  std::optional<std::string> remoteConfigString_;
};

}  // namespace velquist::storekit

template <>
struct std::hash<velquist::storekit::Paywall> {
  std::size_t operator()(const velquist::storekit::Paywall& paywall) const;
};
VELQUIST_API_END
