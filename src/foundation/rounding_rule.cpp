#include "velquist/foundation/rounding_rule.h"

#include <array>
#include <utility>

namespace velquist::foundation {

namespace {

using Rule = FloatingPointRoundingRule;

constexpr std::array<std::pair<Rule, std::string_view>, 6> caseNames = {{
    {Rule::toNearestOrAwayFromZero, "toNearestOrAwayFromZero"},
    {Rule::toNearestOrEven, "toNearestOrEven"},
    {Rule::up, "up"},
    {Rule::down, "down"},
    {Rule::towardZero, "towardZero"},
    {Rule::awayFromZero, "awayFromZero"},
}};

}  // namespace

std::string_view caseName(FloatingPointRoundingRule rule) {
  for (const auto& [candidate, name] : caseNames) {
    if (candidate == rule) return name;
  }
  return "unknown";  // only reachable through a cast of an out-of-range value
}

std::optional<FloatingPointRoundingRule> roundingRuleNamed(std::string_view name) {
  for (const auto& [rule, candidate] : caseNames) {
    if (candidate == name) return rule;
  }
  return std::nullopt;
}

}  // namespace velquist::foundation
