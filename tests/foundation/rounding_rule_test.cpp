#include "velquist/foundation/rounding_rule.h"

#include <gtest/gtest.h>

namespace velquist::foundation {
namespace {

using Rule = FloatingPointRoundingRule;

TEST(RoundingRule, CaseNamesReadBackExactly) {
  for (const Rule rule : {Rule::toNearestOrAwayFromZero, Rule::toNearestOrEven, Rule::up, Rule::down,
                          Rule::towardZero, Rule::awayFromZero}) {
    EXPECT_EQ(roundingRuleNamed(caseName(rule)), rule);
  }
  EXPECT_EQ(caseName(Rule::toNearestOrAwayFromZero), "toNearestOrAwayFromZero");
  for (const char* unknown : {"", "Up", "towardZero ", "toward_zero", "unknown"}) {
    EXPECT_EQ(roundingRuleNamed(unknown), std::nullopt) << unknown;
  }
}

}  // namespace
}  // namespace velquist::foundation
