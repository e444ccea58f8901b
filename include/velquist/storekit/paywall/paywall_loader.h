#pragma once

#include "velquist/export.h"
#include <filesystem>
#include <stop_token>
#include <string>
#include <vector>

#include "velquist/adapty/adapty_paywall.h"
#include "velquist/adapty/adapty_product.h"
#include "velquist/adapty/paywall_document.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

// Loading a paywall document (adapty/paywall_document.h describes the format) into the
// subscription SDK's records, with each product's store object fetched from the store. The
// document is read by the adapty module, which knows nothing of requests; the store request
// is this module's (store/product_request.h), so the two meet here.

/// A paywall as the SDK would deliver it, and what the store did not know.
struct LoadedPaywall {
  adapty::AdaptyPaywall paywall;
  /// One product per document entry the store knows, in document order, repeats kept.
  std::vector<adapty::AdaptyPaywallProduct> products;
  /// The identifiers the store did not return, each once, in document order.
  std::vector<std::string> missingProductIdentifiers;

  friend bool operator==(const LoadedPaywall&, const LoadedPaywall&) = default;
};

/// Fetches the store products a document names with one products request through the
/// default store backend (nothing is asked when the document lists no product), waits for
/// the answer, and puts the paywall together.
///
///     LoadedPaywall loaded = loadPaywall(adapty::loadPaywallDocument("paywall.json"));
///     Paywall paywall(loaded.paywall, loaded.products);
///
/// Throws the store's error (`platform::SKError`) unchanged and `support::CancellationError`
/// when `stop` fires first, as `products` does. Blocks the calling thread; may be called from
/// any thread.
LoadedPaywall loadPaywall(const adapty::AdaptyPaywallDocument& document, std::stop_token stop = {});

/// The same for the document at `path`; also throws `adapty::PaywallDocumentError` naming
/// the file, the JSON path and the reason when the document cannot be read (before anything
/// is asked of the store).
LoadedPaywall loadPaywall(const std::filesystem::path& path, std::stop_token stop = {});

}  // namespace velquist::storekit
VELQUIST_API_END
