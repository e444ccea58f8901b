#pragma once

// CRC-32C (Castagnoli), the checksum of the defaults journal's records. Internal to
// foundation; the fuzzers and tests reach it through the journal only.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace velquist::foundation::detail {

inline std::uint32_t crc32c(std::string_view bytes) {
  static constexpr std::array<std::uint32_t, 256> table = [] {
    std::array<std::uint32_t, 256> entries{};
    for (std::uint32_t i = 0; i < 256; ++i) {
      std::uint32_t value = i;
      for (int bit = 0; bit < 8; ++bit) value = (value & 1) ? (value >> 1) ^ 0x82F63B78u : value >> 1;
      entries[i] = value;
    }
    return entries;
  }();
  std::uint32_t crc = 0xFFFFFFFFu;
  for (const char c : bytes) crc = table[(crc ^ static_cast<std::uint8_t>(c)) & 0xFF] ^ (crc >> 8);
  return crc ^ 0xFFFFFFFFu;
}

}  // namespace velquist::foundation::detail
