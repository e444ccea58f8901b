#include "velquist/foundation/rounding_rule.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace velquist::foundation {
namespace {

using Rule = FloatingPointRoundingRule;

TEST(RoundingRule, CaseNamesAreDistinctAndReadBackExactly) {
  std::set<std::string> names;
  for (const Rule rule : {Rule::toNearestOrAwayFromZero, Rule::toNearestOrEven, Rule::up, Rule::down,
                          Rule::towardZero, Rule::awayFromZero}) {
    names.insert(std::string(caseName(rule)));
    EXPECT_EQ(roundingRuleNamed(caseName(rule)), rule);
  }
  EXPECT_EQ(names.size(), 6U);
  EXPECT_EQ(caseName(Rule::toNearestOrEven), "toNearestOrEven");
  for (const char* unknown : {"", "Up", "toNearestOrEven ", "toward_zero", "unknown"}) {
    EXPECT_EQ(roundingRuleNamed(unknown), std::nullopt) << unknown;
  }
}

}  // namespace
}  // namespace velquist::foundation
