#include "velquist/storekit/paywall/paywall_loader.h"

#include <algorithm>
#include <utility>

#include "velquist/storekit/store/product_request.h"

namespace velquist::storekit {

LoadedPaywall loadPaywall(const adapty::AdaptyPaywallDocument& document, std::stop_token stop) {
  const std::vector<std::string> identifiers = document.productIdentifiers();
  std::vector<platform::SKProduct> storeProducts;
  if (!identifiers.empty()) storeProducts = products(identifiers, std::move(stop));

  LoadedPaywall loaded{.paywall = document.paywall, .products = document.resolve(storeProducts)};
  for (const std::string& identifier : identifiers) {
    const bool found = std::any_of(storeProducts.begin(), storeProducts.end(), [&](const platform::SKProduct& product) {
      return product.productIdentifier == identifier;
    });
    if (!found) loaded.missingProductIdentifiers.push_back(identifier);
  }
  return loaded;
}

LoadedPaywall loadPaywall(const std::filesystem::path& path, std::stop_token stop) {
  return loadPaywall(adapty::loadPaywallDocument(path), std::move(stop));
}

}  // namespace velquist::storekit
