#include "wide_integer.h"

namespace velquist::foundation::detail {
namespace {

constexpr std::uint64_t kLimbBase = std::uint64_t{1} << 32;

// Splits into little-endian 32-bit limbs and returns the count of significant limbs.
int toLimbs(const UInt256& value, std::uint32_t* limbs) {
  for (int i = 0; i < 4; ++i) {
    limbs[i] = static_cast<std::uint32_t>(value.low >> (32 * i));
    limbs[i + 4] = static_cast<std::uint32_t>(value.high >> (32 * i));
  }
  int count = 8;
  while (count > 0 && limbs[count - 1] == 0) {
    --count;
  }
  return count;
}

UInt256 fromLimbs(const std::uint32_t* limbs) {
  UInt256 result;
  for (int i = 0; i < 4; ++i) {
    result.low |= static_cast<UInt128>(limbs[i]) << (32 * i);
    result.high |= static_cast<UInt128>(limbs[i + 4]) << (32 * i);
  }
  return result;
}

}  // namespace

UInt256 divide(const UInt256& dividend, UInt128 divisor) {
  if (divisor == 1) {
    return dividend;
  }
  std::array<std::uint32_t, 8> v{};
  const int n = toLimbs(UInt256(divisor), v.data());
  if (n == 1) {
    UInt256 quotient = dividend;
    divideSmall(quotient, v[0]);
    return quotient;
  }
  std::array<std::uint32_t, 8> u{};
  const int m = toLimbs(dividend, u.data());
  if (m < n) {
    return UInt256();
  }

  // Shift both so the divisor's top limb has its high bit set; the dividend gains a limb.
  const int shift = std::countl_zero(v[n - 1]);
  std::array<std::uint32_t, 4> vn{};
  std::array<std::uint32_t, 9> un{};
  for (int i = n - 1; i >= 0; --i) {
    const std::uint32_t carried = (shift != 0 && i > 0) ? v[i - 1] >> (32 - shift) : 0;
    vn[i] = (v[i] << shift) | carried;
  }
  un[m] = shift != 0 ? u[m - 1] >> (32 - shift) : 0;
  for (int i = m - 1; i >= 0; --i) {
    const std::uint32_t carried = (shift != 0 && i > 0) ? u[i - 1] >> (32 - shift) : 0;
    un[i] = (u[i] << shift) | carried;
  }

  std::array<std::uint32_t, 8> q{};
  for (int j = m - n; j >= 0; --j) {
    // Estimate the quotient digit from the top two limbs, then correct it with the third.
    const std::uint64_t top = (static_cast<std::uint64_t>(un[j + n]) << 32) | un[j + n - 1];
    std::uint64_t qhat = top / vn[n - 1];
    std::uint64_t rhat = top % vn[n - 1];
    while (qhat >= kLimbBase || qhat * vn[n - 2] > ((rhat << 32) | un[j + n - 2])) {
      --qhat;
      rhat += vn[n - 1];
      if (rhat >= kLimbBase) {
        break;
      }
    }

    // Subtract qhat x divisor from the current window of the remainder.
    std::uint64_t carry = 0;
    std::uint64_t borrow = 0;
    for (int i = 0; i < n; ++i) {
      const std::uint64_t product = qhat * vn[i] + carry;
      carry = product >> 32;
      const std::uint64_t difference = un[i + j] - (product & 0xFFFFFFFFu) - borrow;
      un[i + j] = static_cast<std::uint32_t>(difference);
      borrow = difference >> 63;
    }
    const std::uint64_t difference = un[j + n] - carry - borrow;
    un[j + n] = static_cast<std::uint32_t>(difference);

    if ((difference >> 63) != 0) {
      // The estimate was one too large: add the divisor back.
      --qhat;
      std::uint64_t sumCarry = 0;
      for (int i = 0; i < n; ++i) {
        const std::uint64_t sum = std::uint64_t{un[i + j]} + vn[i] + sumCarry;
        un[i + j] = static_cast<std::uint32_t>(sum);
        sumCarry = sum >> 32;
      }
      un[j + n] = static_cast<std::uint32_t>(un[j + n] + sumCarry);
    }
    q[j] = static_cast<std::uint32_t>(qhat);
  }
  return fromLimbs(q.data());
}

}  // namespace velquist::foundation::detail
