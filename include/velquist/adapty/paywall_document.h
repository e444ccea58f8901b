#pragma once

#include "velquist/export.h"
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "velquist/adapty/adapty_paywall.h"
#include "velquist/adapty/adapty_product.h"
#include "velquist/foundation/decimal.h"
#include "velquist/platform/sk_product.h"

VELQUIST_API_BEGIN
namespace velquist::adapty {

// A paywall written down as a JSON document, for previews, demos and tests in place of the
// subscription SDK's service:
//
//     {
//       "id": "onboarding",
//       "remoteConfig": {"ios_selected_product_id": "com.example.pro.yearly"},
//       "products": [
//         {"productId": "com.example.pro.weekly"},
//         {"productId": "com.example.pro.yearly",
//          "introductoryDiscount": {"price": 0, "paymentMode": "free_trial",
//                                   "subscriptionPeriod": {"unit": "week", "numberOfUnits": 1}}}
//       ]
//     }
//
// - "id" (text, required): the paywall's identifier.
// - "remoteConfig" (optional): a JSON object, kept as its compact JSON text; or a JSON string,
//   kept as it stands (it may hold anything, even text that is not JSON); any other value is
//   kept as its JSON text. Missing or null: no remote configuration. The document stays
//   usable whatever the remote configuration holds; only reading it can come up empty.
// - "products" (array, required): the paywall's products in order, repeats allowed. Each one
//   names a store product by "productId" (text, required). The SDK's own members of the
//   product may be restated; each one missing or null is taken from the store product:
//   "localizedTitle", "localizedDescription" (text), "price" (a JSON number, read exactly),
//   "subscriptionGroupIdentifier" (text), "subscriptionPeriod" (a period) and
//   "introductoryDiscount" (an object: "identifier" text, optional; "price" number,
//   "subscriptionPeriod" period and "paymentMode" text, required).
// - A period is {"unit": "day" | "week" | "month" | "year" | "unknown", "numberOfUnits": 1 to
//   1000}; a payment mode is "pay_as_you_go", "pay_up_front", "free_trial" or "unknown".
// - Keys not named here are ignored.

/// Why a paywall document cannot be used: it is not JSON, or a value has the wrong type or an
/// unknown text. Names the document, the JSON path of the value at fault (empty when the
/// fault is not in one value) and the reason:
///
///     what() -> "paywall.json: products[1].subscriptionPeriod.unit: unknown unit "fortnight"
///                (expected one of "day", "week", "month", "year", "unknown")"
///     what() -> "paywall.json: products[0].productId: required key is missing"
///
/// Immutable; copies share their contents, so copying never throws. Safe to read from any
/// thread.
class PaywallDocumentError : public std::exception {
 public:
  PaywallDocumentError(std::string document, std::string path, std::string reason);

  const std::string& document() const noexcept { return details_->document; }
  /// Keys joined by dots, array positions in brackets: `products[3].price`.
  const std::string& path() const noexcept { return details_->path; }
  const std::string& reason() const noexcept { return details_->reason; }
  /// "<document>: <path>: <reason>", or "<document>: <reason>" when the path is empty.
  const char* what() const noexcept override { return details_->message.c_str(); }

 private:
  struct Details {
    std::string document;
    std::string path;
    std::string reason;
    std::string message;
  };
  std::shared_ptr<const Details> details_;
};

/// A paywall document as read, before its products are matched with the store's.
///
/// A value type: distinct objects may be used from different threads freely, and one object
/// may be read from several threads at once.
struct AdaptyPaywallDocument {
  /// One product entry: the store product it names and whatever of the SDK's members the
  /// document restates (absent: take the store product's).
  struct Product {
    std::string productIdentifier;
    std::optional<std::string> localizedTitle;
    std::optional<std::string> localizedDescription;
    std::optional<foundation::Decimal> price;
    std::optional<std::string> subscriptionGroupIdentifier;
    std::optional<AdaptyProductSubscriptionPeriod> subscriptionPeriod;
    std::optional<AdaptyProductDiscount> introductoryDiscount;

    /// The SDK's product over `storeProduct` (which should carry `productIdentifier`): the
    /// store product's members (`AdaptyPaywallProduct::fieldsFrom`) with the restated ones
    /// put in their place.
    AdaptyPaywallProduct resolve(platform::SKProduct storeProduct) const;

    friend bool operator==(const Product&, const Product&) = default;
  };

  AdaptyPaywall paywall;
  std::vector<Product> products;

  /// The product identifiers, each once, in the order of their first entry.
  std::vector<std::string> productIdentifiers() const;

  /// The paywall's products over the store products given (any order): one per entry whose
  /// identifier is among them, in document order, repeats kept. Entries the store did not
  /// return are left out.
  std::vector<AdaptyPaywallProduct> resolve(const std::vector<platform::SKProduct>& storeProducts) const;

  friend bool operator==(const AdaptyPaywallDocument&, const AdaptyPaywallDocument&) = default;
};

/// Reads a paywall document from JSON text. `name` only labels errors (usually the file
/// name). Throws PaywallDocumentError for anything that is not a usable document; never
/// crashes, whatever the bytes.
AdaptyPaywallDocument parsePaywallDocument(std::string_view text, std::string_view name);

/// Reads the paywall document at `path`; errors name the path as given. Throws
/// PaywallDocumentError also when the file cannot be read.
AdaptyPaywallDocument loadPaywallDocument(const std::filesystem::path& path);

}  // namespace velquist::adapty
VELQUIST_API_END
