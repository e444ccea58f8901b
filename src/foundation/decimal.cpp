#include "velquist/foundation/decimal.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "wide_integer.h"

// Every operation here works on the raw stored parts (sign, mantissa, exponent) exactly as
// the platform decimal does, because later results depend on how a value is stored: the
// alignment of two operands looks at how many 16-bit words the mantissa occupies.

namespace velquist::foundation {
namespace {

using detail::UInt256;

constexpr UInt128 kMaxMantissa = ~UInt128{0};

constexpr std::array<UInt128, 39> kPowersOfTen = [] {
  std::array<UInt128, 39> powers{};
  UInt128 power = 1;
  for (UInt128& entry : powers) {
    entry = power;
    power *= 10;
  }
  return powers;
}();

// How many decimal digits a mantissa occupying `words` 16-bit words may safely be scaled
// up by during alignment: floor((8 - words) x log10(65536)), as the platform estimates it.
constexpr std::array<int, 9> kAlignmentHeadroom = {38, 33, 28, 24, 19, 14, 9, 4, 0};

int wordLength(UInt128 value) { return (UInt256::width128(value) + 15) / 16; }

/// The raw parts of a non-NaN value, for the arithmetic to work on.
struct Parts {
  bool isNegative = false;
  UInt128 mantissa = 0;
  int exponent = 0;
};

/// mantissa x 10^digits when that stays below 2^128.
bool scaleUp(UInt128& mantissa, int digits) {
  if (mantissa == 0) {
    return true;
  }
  if (digits > 38) {
    return false;
  }
  const UInt256 product = detail::multiply(mantissa, kPowersOfTen[static_cast<std::size_t>(digits)]);
  if (!product.fitsIn128()) {
    return false;
  }
  mantissa = product.low;
  return true;
}

/// mantissa / 10^digits, truncated.
UInt128 truncateDigits(UInt128 mantissa, int digits) {
  return digits > 38 ? 0 : mantissa / kPowersOfTen[static_cast<std::size_t>(digits)];
}

struct Fitted {
  UInt128 mantissa;
  int droppedDigits;
};

/// value / 10^digits in place, truncated, for digits in 0...39, by constant divisors.
void dropDigits(UInt256& value, int digits) {
  for (; digits >= 9; digits -= 9) detail::divideBy<1000000000>(value);
  switch (digits) {
    case 1: detail::divideBy<10>(value); break;
    case 2: detail::divideBy<100>(value); break;
    case 3: detail::divideBy<1000>(value); break;
    case 4: detail::divideBy<10000>(value); break;
    case 5: detail::divideBy<100000>(value); break;
    case 6: detail::divideBy<1000000>(value); break;
    case 7: detail::divideBy<10000000>(value); break;
    case 8: detail::divideBy<100000000>(value); break;
    default: break;
  }
}

/// Cuts a wide magnitude back below 2^128 by dropping decimal digits with truncation, as
/// the platform does: four at a time while it spans more than nine 16-bit words, then one at
/// a time. Truncation composes, and floor(v / 10^n) < 2^128 exactly when v.high < 10^n, so
/// the stepping always ends at the fewest digits n that make v.high < 10^n: the digit count
/// of v.high. Those are dropped in one go.
int digitsToDrop(const UInt256& value) {
  int dropped = 0;
  while (dropped < 39 && value.high >= kPowersOfTen[static_cast<std::size_t>(dropped)]) {
    ++dropped;
  }
  return dropped;
}

Fitted fitTruncating(UInt256 value) {
  const int dropped = digitsToDrop(value);
  dropDigits(value, dropped);
  return {value.low, dropped};
}

/// Brings two non-zero operands to a common exponent. The one with the larger exponent is
/// scaled up when that fits in 128 bits; otherwise it is scaled up as far as its word count
/// allows and the other is truncated down to meet it (possibly to zero, in which case the
/// larger one is left untouched).
void align(Parts& lhs, Parts& rhs) {
  if (lhs.exponent == rhs.exponent) {
    return;
  }
  Parts& larger = lhs.exponent > rhs.exponent ? lhs : rhs;
  Parts& smaller = lhs.exponent > rhs.exponent ? rhs : lhs;
  const int difference = larger.exponent - smaller.exponent;
  UInt128 scaled = larger.mantissa;
  if (scaleUp(scaled, difference)) {
    larger.mantissa = scaled;
    larger.exponent = smaller.exponent;
    return;
  }
  // The headroom is always smaller than the difference here, and scaling by it fits.
  const int headroom = kAlignmentHeadroom[static_cast<std::size_t>(wordLength(larger.mantissa))];
  smaller.mantissa = truncateDigits(smaller.mantissa, difference - headroom);
  smaller.exponent += difference - headroom;
  if (smaller.mantissa != 0) {
    larger.mantissa *= kPowersOfTen[static_cast<std::size_t>(headroom)];
    larger.exponent -= headroom;
  } else {
    smaller.exponent = larger.exponent;
  }
}

constexpr std::array<std::uint32_t, 10> kSmallPowersOfTen = {1,         10,         100,        1000,       10000,
                                                             100000,    1000000,    10000000,   100000000,  1000000000};

/// Whether a mantissa is a multiple of 10^Digits (Digits <= 9): a multiple of 2^Digits, and
/// of 5^Digits, tested on the two 64-bit halves with 2^64 reduced modulo 5^Digits. Both
/// tests cost a few multiplications, where a trial division would cost many.
template <std::uint32_t Digits>
bool isMultipleOfPowerOfTen(UInt128 value) {
  static_assert(Digits >= 1 && Digits <= 9);
  constexpr std::uint64_t fivePower = kSmallPowersOfTen[Digits] >> Digits;
  constexpr auto twoTo64 = static_cast<std::uint64_t>((UInt128{1} << 64) % fivePower);
  const auto low = static_cast<std::uint64_t>(value);
  const auto high = static_cast<std::uint64_t>(value >> 64);
  if ((low & ((std::uint64_t{1} << Digits) - 1)) != 0) return false;
  return ((high % fivePower) * twoTo64 + low % fivePower) % fivePower == 0;
}

/// Strips trailing decimal zeros into the exponent, stopping at the largest exponent.
Decimal compacted(bool isNegative, UInt128 mantissa, int exponent) {
  if (mantissa == 0) {
    return Decimal();
  }
  // Eight, then four, then one digit at a time, never past the largest exponent. The
  // divisibility test is cheap, so the division is only made when it strips digits.
  const auto strip = [&]<std::uint32_t Digits>() {
    while (exponent + static_cast<int>(Digits) <= Decimal::maxExponent && isMultipleOfPowerOfTen<Digits>(mantissa)) {
      detail::divideBy<kSmallPowersOfTen[Digits]>(mantissa);
      exponent += static_cast<int>(Digits);
    }
  };
  if (!isMultipleOfPowerOfTen<1>(mantissa)) {
    return Decimal::fromParts(isNegative, mantissa, exponent);  // the common case: nothing to strip
  }
  strip.operator()<8>();
  strip.operator()<4>();
  strip.operator()<1>();
  return Decimal::fromParts(isNegative, mantissa, exponent);
}

Decimal stored(const Parts& parts) { return Decimal::fromParts(parts.isNegative, parts.mantissa, parts.exponent); }

Parts partsOf(const Decimal& value) { return {value.isNegative(), value.mantissa(), value.exponent()}; }

bool isExponentInRange(long long exponent) {
  return exponent >= Decimal::minExponent && exponent <= Decimal::maxExponent;
}

Decimal sum(const Decimal& lhs, const Decimal& rhs) {
  if (lhs.isNaN() || rhs.isNaN()) {
    return Decimal::nan();
  }
  if (lhs.mantissa() == 0) {
    return rhs;
  }
  if (rhs.mantissa() == 0) {
    return lhs;
  }
  Parts a = partsOf(lhs);
  Parts b = partsOf(rhs);
  align(a, b);
  if (a.mantissa == 0) {
    return stored(b);
  }
  if (b.mantissa == 0) {
    return stored(a);
  }
  if (a.isNegative == b.isNegative) {
    const Fitted fitted = fitTruncating(detail::add(a.mantissa, b.mantissa));
    const int exponent = a.exponent + fitted.droppedDigits;
    if (exponent > Decimal::maxExponent) {
      return Decimal::nan();
    }
    return compacted(a.isNegative, fitted.mantissa, exponent);
  }
  if (a.mantissa == b.mantissa) {
    return Decimal();
  }
  if (a.mantissa < b.mantissa) {
    return compacted(b.isNegative, b.mantissa - a.mantissa, a.exponent);
  }
  return compacted(a.isNegative, a.mantissa - b.mantissa, a.exponent);
}

/// Sign of |lhs| - |rhs| after the platform's alignment, which for two non-zero values
/// orders them exactly as their true magnitudes.
int compareMagnitudes(const Decimal& lhs, const Decimal& rhs) {
  Parts a = partsOf(lhs);
  Parts b = partsOf(rhs);
  align(a, b);
  return (a.mantissa > b.mantissa) - (a.mantissa < b.mantissa);
}

/// -1, 0 or +1; NaN equals NaN and sorts below everything.
int compare(const Decimal& lhs, const Decimal& rhs) {
  if (lhs.isNaN() || rhs.isNaN()) {
    return static_cast<int>(!lhs.isNaN()) - static_cast<int>(!rhs.isNaN());
  }
  const int lhsSign = lhs.isZero() ? 0 : (lhs.isNegative() ? -1 : 1);
  const int rhsSign = rhs.isZero() ? 0 : (rhs.isNegative() ? -1 : 1);
  if (lhsSign != rhsSign || lhsSign == 0) {
    return (lhsSign > rhsSign) - (lhsSign < rhsSign);
  }
  const int magnitude = compareMagnitudes(lhs, rhs);
  return lhsSign < 0 ? -magnitude : magnitude;
}

std::uint64_t mix(std::uint64_t seed, std::uint64_t value) {
  // A 64-bit finaliser applied to the running state and the next value.
  std::uint64_t z = seed ^ (value + 0x9E3779B97F4A7C15ULL + (seed << 6) + (seed >> 2));
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  return z ^ (z >> 31);
}

// Leading white space accepted before a number, as UTF-8 byte sequences: the ASCII
// controls \t \n \v \f \r and \x1c...\x1f, the space, and the Unicode spaces and
// line/paragraph separators.
constexpr std::array<std::string_view, 19> kWideWhitespace = {
    "\u0085", "\u00A0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003",
    "\u2004", "\u2005", "\u2006", "\u2007", "\u2008", "\u2009", "\u200A",
    "\u2028", "\u2029", "\u202F", "\u205F", "\u3000"};

std::size_t whitespaceLength(std::string_view text, std::size_t index) {
  if (index >= text.size()) {
    return 0;
  }
  const auto byte = static_cast<unsigned char>(text[index]);
  if (byte < 0x80) {
    const bool isSpace = byte == ' ' || (byte >= '\t' && byte <= '\r') || (byte >= 0x1C && byte <= 0x1F);
    return isSpace ? 1 : 0;
  }
  const std::string_view rest = text.substr(index);
  for (const std::string_view space : kWideWhitespace) {
    if (rest.starts_with(space)) {
      return space.size();
    }
  }
  return 0;
}

bool isDigit(char character) { return character >= '0' && character <= '9'; }

/// mantissa x 10 + digit when that stays below 2^128.
bool appendDigit(UInt128& mantissa, unsigned digit) {
  if (mantissa > (kMaxMantissa - digit) / 10) {
    return false;
  }
  mantissa = mantissa * 10 + digit;
  return true;
}

/// The decimal digits of a mantissa.
std::string digitsOf(UInt128 value) {
  constexpr std::uint64_t chunk = 10'000'000'000'000'000'000ULL;  // 10^19
  std::array<char, 40> buffer{};
  std::size_t start = buffer.size();
  while (value >= chunk) {
    auto part = static_cast<std::uint64_t>(value % chunk);
    value /= chunk;
    for (int i = 0; i < 19; ++i) {
      buffer[--start] = static_cast<char>('0' + part % 10);
      part /= 10;
    }
  }
  auto part = static_cast<std::uint64_t>(value);
  do {
    buffer[--start] = static_cast<char>('0' + part % 10);
    part /= 10;
  } while (part != 0);
  return std::string(buffer.data() + start, buffer.size() - start);
}

}  // namespace

Decimal::Decimal(std::int64_t value) {
  const std::uint64_t magnitude =
      value < 0 ? std::uint64_t{0} - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
  *this = compacted(value < 0, magnitude, 0);
}

Decimal::Decimal(std::int64_t mantissa, int exponent) {
  if (!isExponentInRange(exponent)) {
    *this = nan();
    return;
  }
  const std::uint64_t magnitude = mantissa < 0 ? std::uint64_t{0} - static_cast<std::uint64_t>(mantissa)
                                               : static_cast<std::uint64_t>(mantissa);
  *this = compacted(mantissa < 0, magnitude, exponent);
}

Decimal Decimal::fromParts(bool isNegative, UInt128 mantissa, int exponent) {
  if (!isExponentInRange(exponent)) {
    return nan();
  }
  Decimal result;
  result.mantissa_ = mantissa;
  result.exponent_ = static_cast<std::int16_t>(exponent);
  result.isNegative_ = isNegative && mantissa != 0;
  return result;
}

Decimal Decimal::nan() {
  Decimal result;
  result.isNaN_ = true;
  return result;
}

Decimal Decimal::fromDouble(double value) {
  if (std::isinf(value)) {
    std::fprintf(stderr, "velquist: Decimal::fromDouble called with %s; an infinity has no decimal value\n",
                 value > 0 ? "+infinity" : "-infinity");
    std::abort();
  }
  if (std::isnan(value)) {
    return nan();
  }
  if (value == 0.0) {
    return Decimal();
  }
  // Scale |value| into [2^64 / 10, 2^64) by tens, each step a separately rounded double
  // operation, then truncate to an integer mantissa.
  constexpr double limit = 18446744073709551616.0;  // 2^64
  double scaled = std::fabs(value);
  int exponent = 0;
  while (scaled < limit) {
    if (exponent <= minExponent) {
      return nan();
    }
    scaled = scaled * 10.0;
    --exponent;
  }
  while (scaled >= limit) {
    if (exponent >= maxExponent) {
      return nan();
    }
    scaled = scaled / 10.0;
    ++exponent;
  }
  return compacted(value < 0, static_cast<std::uint64_t>(scaled), exponent);
}

std::optional<Decimal> Decimal::fromString(std::string_view text) {
  const std::size_t size = text.size();
  std::size_t index = 0;
  while (const std::size_t length = whitespaceLength(text, index)) {
    index += length;
  }
  bool isNegative = false;
  if (index < size && (text[index] == '+' || text[index] == '-')) {
    isNegative = text[index] == '-';
    ++index;
  }

  // Integer digits that no longer fit only raise the exponent; fraction digits that no
  // longer fit are ignored.
  UInt128 mantissa = 0;
  int exponent = 0;
  bool isFull = false;
  while (index < size && isDigit(text[index])) {
    const auto digit = static_cast<unsigned>(text[index] - '0');
    ++index;
    if (isFull || !appendDigit(mantissa, digit)) {
      isFull = true;
      if (exponent == maxExponent) {
        return std::nullopt;
      }
      ++exponent;
    }
  }
  if (index < size && text[index] == '.') {
    ++index;
    while (index < size && isDigit(text[index])) {
      const auto digit = static_cast<unsigned>(text[index] - '0');
      ++index;
      if (isFull) {
        continue;
      }
      if (!appendDigit(mantissa, digit)) {
        isFull = true;
        continue;
      }
      if (exponent == minExponent) {
        return std::nullopt;
      }
      --exponent;
    }
  }

  if (index < size && (text[index] == 'e' || text[index] == 'E')) {
    ++index;
    if (index == size) {
      // A bare trailing `e` ends the number as read so far, stored without compaction
      // ("1.50e" keeps mantissa 150), and a lone "-e" reads as NaN.
      if (mantissa == 0 && isNegative) {
        return nan();
      }
      return fromParts(isNegative, mantissa, exponent);
    }
    bool isExponentNegative = false;
    if (text[index] == '+' || text[index] == '-') {
      isExponentNegative = text[index] == '-';
      ++index;
    }
    int written = 0;
    while (index < size && isDigit(text[index])) {
      written = written * 10 + (text[index] - '0');
      if (written > 254) {
        return std::nullopt;
      }
      ++index;
    }
    const int total = exponent + (isExponentNegative ? -written : written);
    if (!isExponentInRange(total)) {
      return std::nullopt;
    }
    exponent = total;
  }

  if (index == 0) {
    return std::nullopt;
  }
  if (mantissa == 0) {
    return Decimal();
  }
  return compacted(isNegative, mantissa, exponent);
}

std::string Decimal::description() const {
  if (isNaN_) {
    return "NaN";
  }
  if (mantissa_ == 0) {
    return "0";
  }
  std::string digits = digitsOf(mantissa_);
  std::string text = isNegative_ ? "-" : "";
  if (exponent_ >= 0) {
    text += digits;
    text.append(static_cast<std::size_t>(exponent_), '0');
    return text;
  }
  const auto fractionLength = static_cast<std::size_t>(-exponent_);
  if (digits.size() > fractionLength) {
    const std::size_t integerLength = digits.size() - fractionLength;
    text.append(digits, 0, integerLength);
    text += '.';
    text.append(digits, integerLength);
  } else {
    text += "0.";
    text.append(fractionLength - digits.size(), '0');
    text += digits;
  }
  return text;
}

double Decimal::doubleValue() const {
  if (isNaN_) {
    return std::nan("");
  }
  if (mantissa_ == 0) {
    return 0.0;
  }
  // Accumulate the 16-bit words from the top, then scale by tens one rounded step at a time.
  double accumulated = 0.0;
  for (int word = wordLength(mantissa_) - 1; word >= 0; --word) {
    const auto bits = static_cast<std::uint16_t>(mantissa_ >> (16 * word));
    accumulated = accumulated * 65536.0 + static_cast<double>(bits);
  }
  for (int step = exponent_; step < 0; ++step) {
    accumulated /= 10.0;
  }
  for (int step = 0; step < exponent_; ++step) {
    accumulated *= 10.0;
  }
  return isNegative_ ? -accumulated : accumulated;
}

Decimal Decimal::rounded(int scale, RoundingMode mode) const {
  if (isNaN_) {
    return *this;
  }
  const long long digitsKept = static_cast<long long>(scale) + exponent_;
  if (digitsKept >= 0) {
    return *this;
  }
  // Drop digits below the scale, remembering the last dropped digit and whether any digit
  // dropped before it was non-zero (so a tie is told apart from just above or below).
  long long toDrop = -digitsKept;
  long long exponent = -static_cast<long long>(scale);
  UInt128 mantissa = mantissa_;
  unsigned remainder = 0;
  bool sticky = false;
  while (toDrop > 0) {
    if (remainder != 0) {
      sticky = true;
    }
    if (mantissa == 0) {
      // Everything further down is zero.
      remainder = 0;
      break;
    }
    if (toDrop > 4) {
      remainder = detail::divideBy<10000>(mantissa);
      toDrop -= 4;
    } else {
      remainder = detail::divideBy<10>(mantissa);
      toDrop -= 1;
    }
  }
  if (sticky && (remainder == 0 || remainder == 5)) {
    ++remainder;
  }

  bool isNegative = isNegative_;
  if (remainder != 0) {
    bool increment = false;
    switch (mode) {
      case RoundingMode::down:
        increment = isNegative;
        break;
      case RoundingMode::up:
        increment = !isNegative;
        break;
      case RoundingMode::plain:
        increment = remainder >= 5;
        break;
      case RoundingMode::bankers:
        increment = remainder > 5 || (remainder == 5 && mantissa % 2 == 1);
        break;
    }
    if (increment) {
      ++mantissa;
    }
  }
  if (mantissa == 0) {
    return Decimal();
  }
  // Scales below -127 leave an exponent above the largest: move it back into the mantissa.
  if (exponent > maxExponent) {
    if (!scaleUp(mantissa, static_cast<int>(std::min<long long>(exponent - maxExponent, 39)))) {
      return nan();
    }
    exponent = maxExponent;
  }
  return compacted(isNegative, mantissa, static_cast<int>(exponent));
}

Decimal operator+(const Decimal& lhs, const Decimal& rhs) { return sum(lhs, rhs); }

Decimal operator-(const Decimal& lhs, const Decimal& rhs) { return sum(lhs, -rhs); }

Decimal operator*(const Decimal& lhs, const Decimal& rhs) {
  if (lhs.isNaN() || rhs.isNaN()) {
    return Decimal::nan();
  }
  if (lhs.mantissa() == 0 || rhs.mantissa() == 0) {
    return Decimal();
  }
  const Fitted product = fitTruncating(detail::multiply(lhs.mantissa(), rhs.mantissa()));
  const int exponent = lhs.exponent() + rhs.exponent() + product.droppedDigits;
  if (!isExponentInRange(exponent)) {
    return Decimal::nan();
  }
  return compacted(lhs.isNegative() != rhs.isNegative(), product.mantissa, exponent);
}

Decimal operator/(const Decimal& lhs, const Decimal& rhs) {
  if (lhs.isNaN() || rhs.isNaN() || rhs.mantissa() == 0) {
    return Decimal::nan();
  }
  if (lhs.mantissa() == 0) {
    return Decimal();
  }
  const bool isNegative = lhs.isNegative() != rhs.isNegative();
  Parts dividend = partsOf(lhs);
  Parts divisor = partsOf(rhs);
  if (dividend.exponent - divisor.exponent >= 19) {
    // Far-apart exponents are aligned first, unless that would truncate the divisor away.
    Parts alignedDividend = dividend;
    Parts alignedDivisor = divisor;
    align(alignedDividend, alignedDivisor);
    if (alignedDividend.mantissa != 0 && alignedDivisor.mantissa != 0) {
      dividend = alignedDividend;
      divisor = alignedDivisor;
    }
  }
  // Q = floor(dividend x 10^38 / divisor), truncated back to 128 bits.
  const UInt256 scaled = detail::multiply(dividend.mantissa, kPowersOfTen[38]);
  if (dividend.mantissa % divisor.mantissa == 0) {
    // An exact quotient q (dividing by 1, by a whole number of units) makes Q = q x 10^38,
    // of which the cut-back keeps q x 10^(38 - dropped) and compaction strips the zeros
    // again. Skip the long division and the zeros, unless the exponent is at its limit.
    const UInt128 exact = dividend.mantissa / divisor.mantissa;
    const int dropped = digitsToDrop(scaled);
    const int exponent = dividend.exponent - divisor.exponent - 38 + dropped;
    if (!isExponentInRange(exponent)) {
      return Decimal::nan();
    }
    if (exponent + 38 - dropped <= Decimal::maxExponent) {
      return compacted(isNegative, exact, exponent + 38 - dropped);
    }
  }
  const Fitted quotient = fitTruncating(detail::divide(scaled, divisor.mantissa));
  const int exponent = dividend.exponent - divisor.exponent - 38 + quotient.droppedDigits;
  if (!isExponentInRange(exponent)) {
    return Decimal::nan();
  }
  if (quotient.mantissa == 0) {
    // The platform stores an empty negative mantissa here, which reads as NaN.
    return isNegative ? Decimal::nan() : Decimal();
  }
  return compacted(isNegative, quotient.mantissa, exponent);
}

Decimal Decimal::operator-() const {
  Decimal result = *this;
  if (!isNaN_ && mantissa_ != 0) {
    result.isNegative_ = !isNegative_;
  }
  return result;
}

bool operator==(const Decimal& lhs, const Decimal& rhs) { return compare(lhs, rhs) == 0; }

std::weak_ordering operator<=>(const Decimal& lhs, const Decimal& rhs) {
  const int order = compare(lhs, rhs);
  if (order < 0) {
    return std::weak_ordering::less;
  }
  return order > 0 ? std::weak_ordering::greater : std::weak_ordering::equivalent;
}

std::size_t Decimal::hashValue() const {
  // Hash the canonical form: NaN and zero each have one; otherwise the mantissa without
  // trailing zeros and the exponent it implies, so 150e-2 and 15e-1 agree.
  if (isNaN_) {
    return static_cast<std::size_t>(mix(0, 1));
  }
  if (mantissa_ == 0) {
    return static_cast<std::size_t>(mix(0, 2));
  }
  UInt128 mantissa = mantissa_;
  int exponent = exponent_;
  for (UInt128 trial = mantissa; detail::divideBy<10>(trial) == 0; trial = mantissa) {
    mantissa = trial;
    ++exponent;
  }
  std::uint64_t state = mix(0, isNegative_ ? 3 : 4);
  state = mix(state, static_cast<std::uint64_t>(mantissa >> 64));
  state = mix(state, static_cast<std::uint64_t>(mantissa));
  state = mix(state, static_cast<std::uint64_t>(static_cast<std::int64_t>(exponent)));
  return static_cast<std::size_t>(state);
}

}  // namespace velquist::foundation
