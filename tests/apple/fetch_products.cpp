// Plain C++ on purpose: with GCC's Objective-C runtime, code built as Objective-C++ uses an
// exception personality that cannot catch C++ exceptions by type, so the tests catch the
// store's errors here.
#include "fetch_products.h"

#include "velquist/storekit/store/product_request.h"

namespace velquist::testing {

std::variant<std::vector<platform::SKProduct>, platform::SKError> fetchProducts(
    const std::unordered_set<std::string>& identifiers) {
  try {
    return storekit::products(identifiers);
  } catch (const platform::SKError& error) {
    return error;
  }
}

}  // namespace velquist::testing
