#pragma once

#include "velquist/export.h"
#include <optional>
#include <string>
#include <string_view>

#include "velquist/storekit/product/product.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// Reads a subscription period written as an ISO 8601 duration of exactly one component:
/// `P1D`, `P1W`, `P3M`, `P1Y` (the form store catalogues use). Gives nothing for anything
/// else: several components (`P1Y2M`), times (`PT1H`), signs, fractions, a missing or
/// out-of-range count, lower-case letters.
///
///     parseISO8601Period("P3M")  ->  Product::SubscriptionPeriod::month(3)
std::optional<Product::SubscriptionPeriod> parseISO8601Period(std::string_view text);

/// The ISO 8601 text of a period: `P1W`, `P3M`; a negative count keeps its sign (`P-1D`).
std::string iso8601(const Product::SubscriptionPeriod& period);

}  // namespace velquist::storekit
VELQUIST_API_END
