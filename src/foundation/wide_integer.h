#pragma once

// A small unsigned 256-bit integer for the intermediate results of decimal arithmetic:
// the product of two 128-bit mantissas and a mantissa scaled by 10^38 before a division.
// Only the operations the decimal code needs are provided. No heap allocation.

#include <array>
#include <bit>
#include <cstdint>
#include <initializer_list>
#include <type_traits>

#include "velquist/foundation/decimal.h"

namespace velquist::foundation::detail {

struct UInt256 {
  UInt128 high = 0;
  UInt128 low = 0;

  constexpr UInt256() = default;
  constexpr UInt256(UInt128 lowPart) : low(lowPart) {}  // NOLINT(google-explicit-constructor)
  constexpr UInt256(UInt128 highPart, UInt128 lowPart) : high(highPart), low(lowPart) {}

  constexpr bool fitsIn128() const { return high == 0; }
  constexpr bool isZero() const { return high == 0 && low == 0; }

  /// The number of significant bits (0 for zero).
  constexpr int bitWidth() const {
    if (high != 0) {
      return 128 + width128(high);
    }
    return width128(low);
  }

  static constexpr int width128(UInt128 value) {
    const auto top = static_cast<std::uint64_t>(value >> 64);
    if (top != 0) {
      return 64 + std::bit_width(top);
    }
    return std::bit_width(static_cast<std::uint64_t>(value));
  }

  friend constexpr bool operator==(const UInt256&, const UInt256&) = default;
};

/// The full product of two 128-bit values.
constexpr UInt256 multiply(UInt128 lhs, UInt128 rhs) {
  constexpr UInt128 mask64 = ~std::uint64_t{0};
  const UInt128 l0 = lhs & mask64;
  const UInt128 l1 = lhs >> 64;
  const UInt128 r0 = rhs & mask64;
  const UInt128 r1 = rhs >> 64;
  const UInt128 p00 = l0 * r0;
  const UInt128 p01 = l0 * r1;
  const UInt128 p10 = l1 * r0;
  const UInt128 p11 = l1 * r1;
  // Middle column: the high half of p00 plus the low halves of the cross products.
  const UInt128 middle = (p00 >> 64) + (p01 & mask64) + (p10 & mask64);
  const UInt128 low = (p00 & mask64) | (middle << 64);
  const UInt128 high = p11 + (p01 >> 64) + (p10 >> 64) + (middle >> 64);
  return UInt256(high, low);
}

/// The sum of two 128-bit values (at most 129 bits).
constexpr UInt256 add(UInt128 lhs, UInt128 rhs) {
  const UInt128 sum = lhs + rhs;
  return UInt256(sum < lhs ? 1 : 0, sum);
}

/// Long division of a 256-bit value in place by a divisor below 2^32, by 32-bit digits most
/// significant first: each partial dividend (remainder << 32 | digit) fits in 64 bits, so
/// every step is a native 64-bit division, or a multiplication when the divisor is a
/// compile-time constant (std::integral_constant). Returns the remainder.
template <class Divisor>
constexpr std::uint32_t divideByDigits(UInt256& value, Divisor divisor) {
  std::uint64_t remainder = 0;
  for (UInt128* half : {&value.high, &value.low}) {
    if (*half == 0 && remainder == 0) continue;  // a zero half divides to zero
    UInt128 quotient = 0;
    for (int shift = 96; shift >= 0; shift -= 32) {
      const std::uint64_t current = (remainder << 32) | static_cast<std::uint32_t>(*half >> shift);
      quotient |= static_cast<UInt128>(current / divisor) << shift;
      remainder = current % divisor;
    }
    *half = quotient;
  }
  return static_cast<std::uint32_t>(remainder);
}

/// Divides `value` in place by a small divisor (1...2^32-1) and returns the remainder.
constexpr std::uint32_t divideSmall(UInt256& value, std::uint32_t divisor) { return divideByDigits(value, divisor); }

/// Divides a 256-bit value in place by a constant (10, 10000, ...) and returns the
/// remainder; the constant turns each step into a multiplication, which is what keeps
/// cutting results back and stripping trailing zeros cheap.
template <std::uint32_t Divisor>
constexpr std::uint32_t divideBy(UInt256& value) {
  return divideByDigits(value, std::integral_constant<std::uint32_t, Divisor>{});
}

/// The same for a 128-bit value.
template <std::uint32_t Divisor>
constexpr std::uint32_t divideBy(UInt128& value) {
  if ((value >> 64) == 0) {
    const auto narrow = static_cast<std::uint64_t>(value);
    value = narrow / Divisor;
    return static_cast<std::uint32_t>(narrow % Divisor);
  }
  UInt256 wide(value);
  const std::uint32_t remainder = divideBy<Divisor>(wide);
  value = wide.low;
  return remainder;
}

/// floor(dividend / divisor) for a non-zero 128-bit divisor (schoolbook long division in
/// base 2^32, normalised so that each trial quotient digit is off by at most two).
UInt256 divide(const UInt256& dividend, UInt128 divisor);

}  // namespace velquist::foundation::detail
