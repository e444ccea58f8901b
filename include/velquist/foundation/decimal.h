#pragma once

#include "velquist/export.h"
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

VELQUIST_API_BEGIN
namespace velquist::foundation {

__extension__ typedef unsigned __int128 UInt128;

/// A base-10 floating decimal for money: value = (-1)^sign x mantissa x 10^exponent with a
/// 128-bit mantissa (38 significant digits always fit, 39 when below 2^128) and an exponent
/// in -128...127, plus a distinct NaN.
///
/// It reproduces the platform decimal bit for bit, imprecise corners included, because
/// displayed prices and discounts must come out exactly as the platform's:
/// - results are compacted (trailing zeros move into the exponent), so 1.50 prints `1.5`;
/// - a sum or product wider than 128 bits is cut back by truncation, never rounded;
/// - division always truncates to at most 38 digits of quotient;
/// - any fault (overflow, division by zero, a NaN operand) gives NaN, never a trap;
/// - `Decimal::fromDouble` scales by ten in rounded double steps, so 52.1786 becomes
///   52.17860000000001024.
///
/// Equality and ordering are numeric (1.5 == 1.50, NaN equals NaN and sorts below
/// everything); `std::hash` agrees with equality.
///
/// A value type; distinct objects may be used from different threads freely.
///
///     Decimal(499, -2) * Decimal::fromDouble(52.1786)  ->  260.3712140000000510976
class Decimal {
 public:
  /// Rounding of `rounded(scale, mode)`: `plain` rounds half away from zero, `bankers` half
  /// to even, `down` toward minus infinity, `up` toward plus infinity.
  enum class RoundingMode { plain, down, up, bankers };

  /// Zero.
  constexpr Decimal() = default;

  /// The exact integer.
  Decimal(std::int64_t value);  // NOLINT(google-explicit-constructor): integers read as decimals
  Decimal(int value) : Decimal(static_cast<std::int64_t>(value)) {}  // NOLINT

  /// mantissa x 10^exponent, compacted; the exponent must lie in -128...127 (NaN otherwise).
  Decimal(std::int64_t mantissa, int exponent);

  /// The value from its raw parts as stored, not compacted (for tests and the serial form of
  /// odd values): `fromParts(false, 150, -2)` prints `1.50`. `exponent` must lie in
  /// -128...127 (NaN otherwise); a zero mantissa is never negative.
  static Decimal fromParts(bool isNegative, UInt128 mantissa, int exponent);

  /// The platform's conversion of a double: NaN for NaN, zero for +-0, the multiply-by-ten
  /// chain otherwise. An infinity is a programming error and stops the process.
  static Decimal fromDouble(double value);

  /// Parses `[spaces][+|-]digits[.digits][e[+|-]digits]`, the prefix that matches: `"4.99"` is
  /// exactly 4.99, `"1.5 kg"` is 1.5. Digits beyond what fits are truncated. Quirks kept from
  /// the platform: text that starts with anything else (`"abc"`, `""`) or whose exponent is out
  /// of range gives no value, but a lone space, sign, `.` or `e` reads as zero and `"-e"` as
  /// NaN; a bare trailing `e` keeps the digits uncompacted (`"1.50e"` prints `1.50`).
  static std::optional<Decimal> fromString(std::string_view text);

  /// Not a number: the result of every failed operation.
  static Decimal nan();

  static constexpr int minExponent = -128;
  static constexpr int maxExponent = 127;

  bool isNaN() const { return isNaN_; }
  bool isZero() const { return !isNaN_ && mantissa_ == 0; }
  /// False for zero and NaN.
  bool isNegative() const { return isNegative_; }
  UInt128 mantissa() const { return mantissa_; }
  int exponent() const { return exponent_; }

  /// Plain positional text, never an exponent: `0.85`, `12000`, `-3.5`, `0`, `NaN`.
  std::string description() const;

  /// The nearest double as the platform computes it (word by word, then by tens).
  double doubleValue() const;

  /// Rounds to `scale` digits after the point (a negative scale rounds to tens, hundreds, ...);
  /// a value that needs no rounding is returned unchanged, NaN stays NaN. A result too large
  /// to store (only possible for scales below -127) is NaN.
  ///
  ///     Decimal(15359, -5).rounded(2, RoundingMode::bankers)  ->  0.15
  Decimal rounded(int scale, RoundingMode mode) const;

  // The operators follow the platform: `+` and `*` truncate results wider than 128 bits, `/`
  // truncates, and any NaN operand, overflow or division by zero gives NaN.
  friend VELQUIST_EXPORT Decimal operator+(const Decimal& lhs, const Decimal& rhs);
  friend VELQUIST_EXPORT Decimal operator-(const Decimal& lhs, const Decimal& rhs);
  friend VELQUIST_EXPORT Decimal operator*(const Decimal& lhs, const Decimal& rhs);
  friend VELQUIST_EXPORT Decimal operator/(const Decimal& lhs, const Decimal& rhs);
  Decimal operator-() const;
  Decimal& operator+=(const Decimal& rhs) { return *this = *this + rhs; }
  Decimal& operator-=(const Decimal& rhs) { return *this = *this - rhs; }
  Decimal& operator*=(const Decimal& rhs) { return *this = *this * rhs; }
  Decimal& operator/=(const Decimal& rhs) { return *this = *this / rhs; }

  friend VELQUIST_EXPORT bool operator==(const Decimal& lhs, const Decimal& rhs);
  /// Numeric order with NaN below everything. Weak, not strong: 1.5 and 1.50 are equivalent
  /// but print differently.
  friend VELQUIST_EXPORT std::weak_ordering operator<=>(const Decimal& lhs, const Decimal& rhs);

  /// A hash that agrees with numeric equality.
  std::size_t hashValue() const;

 private:
  UInt128 mantissa_ = 0;
  std::int16_t exponent_ = 0;
  bool isNegative_ = false;
  bool isNaN_ = false;
};

}  // namespace velquist::foundation

template <>
struct std::hash<velquist::foundation::Decimal> {
  std::size_t operator()(const velquist::foundation::Decimal& value) const { return value.hashValue(); }
};
VELQUIST_API_END
