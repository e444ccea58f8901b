#pragma once

#include "velquist/export.h"
#include "velquist/foundation/number_formatter.h"
#include "velquist/foundation/rounding_rule.h"
#include "velquist/storekit/formatting/price_formatter.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// The process-wide percent formatter of `Product::displayDiscount`: percent style, every
/// other setting the platform default (so the current locale): 0.85 -> "85%".
/// Made on first use, thread-safely; lives until the process ends.
foundation::NumberFormatter& discountFormatter();

/// The process-wide price formatter of `displayPrice`, made on first use with the
/// auto-updating current locale and rounding down. Each `displayPrice` call leaves its own
/// locale and rounding mode on it; nothing restores them.
PriceFormatter& priceFormatter();

/// The number formatter rounding mode that `displayPrice` uses for a rounding rule. Two
/// rows are odd on purpose and kept: `towardZero` rounds half down, and a rule not listed
/// rounds up.
PriceFormatter::RoundingMode roundingMode(foundation::FloatingPointRoundingRule rule);

}  // namespace velquist::storekit
VELQUIST_API_END
