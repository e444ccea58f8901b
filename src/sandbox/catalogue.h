#pragma once

// What the sandbox store sells, as the store stand-ins describe it: store products built
// from the configuration's entries for one locale and storefront.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "velquist/foundation/locale.h"
#include "velquist/platform/sk_product.h"
#include "velquist/sandbox/storekit_configuration.h"

namespace velquist::sandbox::detail {

/// Where a product sits in the configuration.
struct CatalogueEntry {
  const Product* product = nullptr;                 ///< always set
  const Subscription* subscription = nullptr;       ///< for auto-renewable subscriptions
  const SubscriptionGroup* group = nullptr;         ///< likewise
};

/// The product with this identifier, of any kind; absent when the configuration lacks it.
std::optional<CatalogueEntry> findEntry(const StoreKitConfiguration& configuration, std::string_view productID);

/// Every product identifier in file order: products, non-renewing subscriptions, then each
/// group's subscriptions.
std::vector<std::string> catalogueIdentifiers(const StoreKitConfiguration& configuration);

/// The localization to show for `localeIdentifier`: the exact one, else one of the same
/// language, else en_US, else the first; absent when there are none.
const Localization* localizationFor(const std::vector<Localization>& localizations, std::string_view localeIdentifier);

/// The store's description of a product: title and description in `localeIdentifier`,
/// price as written in the file, in `priceLocale`; period, group and offers for
/// auto-renewable subscriptions.
platform::SKProduct makeStoreProduct(const CatalogueEntry& entry, std::string_view localeIdentifier,
                                     const foundation::Locale& priceLocale);

platform::SKProductSubscriptionPeriod storePeriod(const Period& period);

}  // namespace velquist::sandbox::detail
