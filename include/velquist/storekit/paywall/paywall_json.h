#pragma once

#include "velquist/export.h"
#include <string>
#include <utility>
#include <vector>

#include "velquist/foundation/json.h"
#include "velquist/storekit/paywall/paywall.h"
#include "velquist/storekit/paywall/paywall_loader.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// The names of the roles the paywall gives `product`, in the order a screen cares about
/// them: "selected", "highlighted", "best value", "most popular", "comparing", "secondary",
/// "full price", "pay up front".
std::vector<std::string> paywallRoles(const Paywall& paywall, const Product& product);

/// Every role the paywall's configuration names, with the product it names (on the paywall
/// or not), in the same order: {{"selected", "com.example.yearly"}, {"comparing", ...}}.
std::vector<std::pair<std::string, Product::ID>> namedPaywallRoles(const Paywall& paywall);

/// A loaded paywall as one JSON document, the form `vsk paywall --json` prints and the C
/// interface hands out: its id and variant, the role of each named product, each product
/// with its roles, price per its own period and per week, free-trial line and discount
/// against the comparing product, and the identifiers the store does not sell. Texts are
/// written in the current locale.
///
///     {"id":"onboarding","variantID":null,"filterPayUpFrontProduct":false,
///      "roles":{"selected":"com.example.yearly",...},
///      "products":[{"id":"com.example.yearly","title":"Pro Yearly","roles":["selected"],
///                   "price":"$39.99 / year","pricePerWeek":"$0.76 / week",
///                   "freeTrial":"1 week free","discount":null},...],
///      "missingProducts":[]}
///
/// Thread-safety: reads the current locale; otherwise a pure function of its arguments.
foundation::JsonValue paywallJson(const Paywall& paywall, const LoadedPaywall& loaded);

}  // namespace velquist::storekit
VELQUIST_API_END
