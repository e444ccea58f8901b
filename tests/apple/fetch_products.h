#pragma once

#include <string>
#include <unordered_set>
#include <variant>
#include <vector>

#include "velquist/platform/sk_error.h"
#include "velquist/platform/sk_product.h"

namespace velquist::testing {

/// `storekit::products` for the given identifiers: the products, or the store's error.
std::variant<std::vector<platform::SKProduct>, platform::SKError> fetchProducts(
    const std::unordered_set<std::string>& identifiers);

}  // namespace velquist::testing
