#pragma once

#include "velquist/export.h"
#include <string>

#include "velquist/foundation/json.h"
#include "velquist/storekit/product/product.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// A product as one JSON object, the form `vsk products --json` prints and the C interface
/// hands out: the fields in declaration order, nested records in their serial form, the
/// price as exact decimal text, optional fields left out when absent.
///
///     {"id":"com.example.pro.weekly","displayName":"Pro Weekly","description":"...",
///      "price":"4.99","priceLocale":"en_US","displayPrice":"$4.99","subscription":{...}}
///
/// Thread-safety: a pure function of its argument.
foundation::JsonValue productJson(const Product& product);

}  // namespace velquist::storekit
VELQUIST_API_END
