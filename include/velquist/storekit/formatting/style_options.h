#pragma once

#include "velquist/export.h"

// The options of the period and unit format styles. They are named through the styles
// (`Product::SubscriptionPeriod::FormatStyle::UnitStyle`, ...); they are declared here,
// ahead of `Product`, so that the product records can offer `formatted(...)` with them.

VELQUIST_API_BEGIN
namespace velquist::storekit::formatting {

/// Which word names a unit: the full word by grammatical number, the compact name, or the
/// adjective of recurrence.
enum class UnitStyle { complete, shortened, recurrent };

/// Whether the number 1 is written before a unit word (`always`) or left out (`automatic`).
enum class ValueDisplayStrategy { automatic, always };

/// The grammatical number of a count: `singular` for 0 and 1, `plural` for 2 to 4,
/// `pluralTwo` for 5 and more.
enum class GrammaticalNumber { singular, plural, pluralTwo };

}  // namespace velquist::storekit::formatting
VELQUIST_API_END
