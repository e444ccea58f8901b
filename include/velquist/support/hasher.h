#pragma once

#include "velquist/export.h"
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <type_traits>
#include <vector>

VELQUIST_API_BEGIN
namespace velquist::support {

/// The one hash combiner every record uses: it feeds fields in declaration order, an
/// optional as a marker 0 when absent or a marker 1 followed by its value, and a list as
/// its length followed by its elements.
///
///     std::size_t hash = Hasher().combine(period.unit).combine(period.value).finalize();
///
/// Not thread-safe; make one per hash computation.
class Hasher {
 public:
  template <class T>
  Hasher& combine(const T& value) {
    if constexpr (std::is_enum_v<T>) {
      mix(static_cast<std::uint64_t>(value));
    } else {
      mix(static_cast<std::uint64_t>(std::hash<T>{}(value)));
    }
    return *this;
  }

  template <class T>
  Hasher& combine(const std::optional<T>& value) {
    if (!value) return marker(0);
    marker(1);
    return combine(*value);
  }

  template <class T>
  Hasher& combine(const std::vector<T>& values) {
    mix(values.size());
    for (const auto& value : values) combine(value);
    return *this;
  }

  std::size_t finalize() const { return static_cast<std::size_t>(state_); }

 private:
  Hasher& marker(std::uint64_t value) {
    mix(value);
    return *this;
  }
  void mix(std::uint64_t value) {
    // A 64-bit multiply-xorshift round (the finaliser of splitmix64) per field.
    std::uint64_t x = state_ ^ (value + 0x9e3779b97f4a7c15ULL + (state_ << 6) + (state_ >> 2));
    x ^= x >> 30;
    x *= 0xbf58476d1ce4e5b9ULL;
    x ^= x >> 27;
    x *= 0x94d049bb133111ebULL;
    x ^= x >> 31;
    state_ = x;
  }

  std::uint64_t state_ = 0x84222325cbf29ce4ULL;
};

}  // namespace velquist::support
VELQUIST_API_END
