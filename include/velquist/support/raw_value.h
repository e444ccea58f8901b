#pragma once

#include "velquist/export.h"
#include <array>
#include <optional>

VELQUIST_API_BEGIN
namespace velquist::support {

/// Enumerations with raw values list their cases by specialising `CaseList` and provide
/// `rawValue(E)` next to the enumeration; `fromRawValue<E>(raw)` then finds the case whose
/// raw value equals `raw` exactly (case-sensitive), or nothing.
///
///     template <> struct CaseList<Unit> {
///       static constexpr std::array all{Unit::day, Unit::week, Unit::month, Unit::year};
///     };
///     fromRawValue<Unit>(2)  ->  Unit::month;   fromRawValue<Unit>(4)  ->  nullopt
template <class E>
struct CaseList;

template <class E, class Raw>
std::optional<E> fromRawValue(const Raw& raw) {
  for (E candidate : CaseList<E>::all) {
    if (rawValue(candidate) == raw) return candidate;
  }
  return std::nullopt;
}

}  // namespace velquist::support
VELQUIST_API_END
