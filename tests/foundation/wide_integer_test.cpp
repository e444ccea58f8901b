// The 256-bit helper behind decimal products and quotients. Its division is reached from
// Decimal only through M x 10^38 / M', which rarely needs the "add back" correction of long
// division, so the correction is exercised here directly.

#include "../../src/foundation/wide_integer.h"

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

namespace velquist::foundation::detail {
namespace {

UInt256 hex(std::string_view digits) {
  UInt256 value;
  for (const char c : digits) {
    const unsigned nibble = c <= '9' ? static_cast<unsigned>(c - '0') : static_cast<unsigned>(c - 'a' + 10);
    value.high = (value.high << 4) | (value.low >> 124);
    value.low = (value.low << 4) | nibble;
  }
  return value;
}

std::string hexText(const UInt256& value) {
  std::string text;
  for (int shift = 252; shift >= 0; shift -= 4) {
    const UInt128 part = shift >= 128 ? value.high >> (shift - 128) : value.low >> shift;
    const auto nibble = static_cast<unsigned>(part & 0xF);
    if (!text.empty() || nibble != 0 || shift == 0) {
      text += "0123456789abcdef"[nibble];
    }
  }
  return text;
}

const std::string_view kMax128 = "ffffffffffffffffffffffffffffffff";

TEST(WideInteger, Multiply) {
  struct Case {
    std::string_view lhs, rhs, product;
  };
  const std::vector<Case> cases = {
      {"0", kMax128, "0"},
      {"10000000000000000", "10000000000000000", "100000000000000000000000000000000"},
      {kMax128, kMax128, "fffffffffffffffffffffffffffffffe00000000000000000000000000000001"},
      {kMax128, "2", "1fffffffffffffffffffffffffffffffe"},
      {"ffffffffffffffff", "ffffffffffffffffffffffffffffffff", "fffffffffffffffeffffffffffffffff0000000000000001"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(hexText(multiply(hex(c.lhs).low, hex(c.rhs).low)), c.product) << c.lhs << " x " << c.rhs;
  }
  EXPECT_EQ(hexText(add(hex(kMax128).low, 1)), "100000000000000000000000000000000");
}

TEST(WideInteger, Divide) {
  struct Case {
    std::string_view dividend, divisor, quotient;
  };
  const std::vector<Case> cases = {
      // Estimated quotient digit one too large: the divisor is added back.
      {"80000000ffffffff800000003d96bfb1", "80000000ffffffffffffffff", "ffffffff"},
      {"ffffffffffffffff0000000080000000ffffffff00000000", "8000000100000001ffffffff", "1fffffffbfffffffe00000018"},
      {"5ab588c300000000800000008000000000000000", "8000000000000000e0c4e89dffffffff", "b56b1185"},
      // Divisors of one, two and four limbs; quotients of every width.
      {"ffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff", kMax128, "100000000000000000000000000000001"},
      {"ffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff", "3",
       "5555555555555555555555555555555555555555555555555555555555555555"},
      {"ffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff", "10000000000000000",
       "ffffffffffffffffffffffffffffffffffffffffffffffff"},
      {"4b3b4ca85a86c47a098a223fffffffffb4c4b357a5793b85f675ddc000000000", "4b3b4ca85a86c47a098a224000003039",
       "ffffffffffffffffffffffffffff5be7"},
      {"3039", kMax128, "0"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(hexText(divide(hex(c.dividend), hex(c.divisor).low)), c.quotient) << c.dividend << " / " << c.divisor;
  }
}

TEST(WideInteger, DivideSmallReturnsRemainder) {
  UInt256 value = hex("ffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff");
  EXPECT_EQ(divideSmall(value, 10000), 9935u);  // 2^256 - 1 = ...129639935
  EXPECT_EQ(hexText(value), "68db8bac710cb295e9e1b089a027525460aa64c2f837b4a2339c0ebedfa43");
}

}  // namespace
}  // namespace velquist::foundation::detail
