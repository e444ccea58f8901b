#pragma once

#include "velquist/export.h"
#include <string>

VELQUIST_API_BEGIN
namespace velquist::platform {

/// The country store that the signed-in account belongs to, as the store names it:
/// a three-letter country code ("USA", "FRA") and the store's own identifier ("143441").
///
/// A plain value; safe to share between threads for reading.
struct SKStorefront {
  std::string countryCode;
  std::string identifier;

  friend bool operator==(const SKStorefront&, const SKStorefront&) = default;
};

}  // namespace velquist::platform
VELQUIST_API_END
