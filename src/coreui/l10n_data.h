#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace velquist::coreui::detail {

/// One localisation data file as built into the library: its language code (the file name
/// without ".json") and its bytes, a flat JSON object from key to text.
struct EmbeddedLanguage {
  std::string_view languageCode;
  std::string_view json;
};

/// Every built-in data file, sorted by language code; English is always among them. The
/// definition is generated at build time from data/l10n/*.json.
std::span<const EmbeddedLanguage> embeddedLanguages();

}  // namespace velquist::coreui::detail
