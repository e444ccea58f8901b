#pragma once

#include "velquist/export.h"
#include <optional>
#include <string_view>

VELQUIST_API_BEGIN
namespace velquist::foundation {

/// The platform's rule for rounding a value to an integral one, named as the platform
/// names it.
enum class FloatingPointRoundingRule {
  toNearestOrAwayFromZero,
  toNearestOrEven,
  up,
  down,
  towardZero,
  awayFromZero,
};

/// The case name, e.g. "toNearestOrEven"; also the rule's stable serial form.
std::string_view caseName(FloatingPointRoundingRule rule);
/// The rule with that case name (exact, case-sensitive), or nothing.
std::optional<FloatingPointRoundingRule> roundingRuleNamed(std::string_view name);

}  // namespace velquist::foundation
VELQUIST_API_END
