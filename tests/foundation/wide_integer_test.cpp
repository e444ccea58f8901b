// The 256-bit helper behind decimal products and quotients. Decimal rarely reaches the step
// of the long division that adds the divisor back, so that step is exercised here directly.

#include "../../src/foundation/wide_integer.h"

#include <gtest/gtest.h>

#include <string_view>

namespace velquist::foundation::detail {
namespace {

UInt256 hex(std::string_view digits) {
  UInt256 value;
  for (const char c : digits) {
    value.high = (value.high << 4) | (value.low >> 124);
    value.low = (value.low << 4) | static_cast<unsigned>(c <= '9' ? c - '0' : c - 'a' + 10);
  }
  return value;
}

constexpr std::string_view kMax128 = "ffffffffffffffffffffffffffffffff";
constexpr std::string_view kMax256 = "ffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff";

TEST(WideInteger, MultiplyAddDivide) {
  struct Case { char op; std::string_view lhs, rhs, result; };
  const Case cases[] = {
      {'*', "10000000000000000", "10000000000000000", "100000000000000000000000000000000"},
      {'*', kMax128, kMax128, "fffffffffffffffffffffffffffffffe00000000000000000000000000000001"},
      {'*', kMax128, "2", "1fffffffffffffffffffffffffffffffe"},
      {'*', "ffffffffffffffff", kMax128, "fffffffffffffffeffffffffffffffff0000000000000001"},
      {'+', kMax128, "1", "100000000000000000000000000000000"},
      {'/', "80000000ffffffff800000003d96bfb1", "80000000ffffffffffffffff", "ffffffff"},  // these three add back
      {'/', "5ab588c300000000800000008000000000000000", "8000000000000000e0c4e89dffffffff", "b56b1185"},
      {'/', "4b3b4ca85a86c47a098a223fffffffffb4c4b357a5793b85f675ddc000000000", "4b3b4ca85a86c47a098a224000003039",
       "ffffffffffffffffffffffffffff5be7"},
      {'/', kMax256, kMax128, "100000000000000000000000000000001"},  // divisors and quotients of every width
      {'/', kMax256, "3", "5555555555555555555555555555555555555555555555555555555555555555"},
      {'/', kMax256, "10000000000000000", "ffffffffffffffffffffffffffffffffffffffffffffffff"},
      {'/', "3039", kMax128, "0"},
  };
  for (const Case& c : cases) {
    const UInt256 lhs = hex(c.lhs), rhs = hex(c.rhs);
    const UInt256 result = c.op == '/' ? divide(lhs, rhs.low) : (c.op == '*' ? multiply : add)(lhs.low, rhs.low);
    EXPECT_EQ(result, hex(c.result)) << c.lhs << ' ' << c.op << ' ' << c.rhs << " is not " << c.result;
  }
  UInt256 value = hex(kMax256);
  EXPECT_EQ(divideSmall(value, 10000), 9935u);  // 2^256 - 1 = ...129639935
  EXPECT_EQ(value, hex("68db8bac710cb295e9e1b089a027525460aa64c2f837b4a2339c0ebedfa43"));
}

}  // namespace
}  // namespace velquist::foundation::detail
