#pragma once

#include "velquist/export.h"
#include <optional>
#include <string>
#include <string_view>

VELQUIST_API_BEGIN
namespace velquist::sandbox {

/// One country store: its three-letter code as configuration files write it, the
/// two-letter region code locales use, the store's numeric identifier, the currency
/// prices are charged in and the country's main language.
///
///     storefrontNamed("PRT") -> {"PRT", "PT", "143453", "EUR", "pt"}
struct StorefrontInfo {
  std::string_view countryCode;  ///< ISO 3166-1 alpha-3, e.g. "PRT"
  std::string_view regionCode;   ///< ISO 3166-1 alpha-2, e.g. "PT"
  std::string_view identifier;   ///< the store's own number, e.g. "143453"
  std::string_view currencyCode;  ///< ISO 4217, e.g. "EUR"
  std::string_view languageCode;  ///< ISO 639, e.g. "pt"

  friend bool operator==(const StorefrontInfo&, const StorefrontInfo&) = default;
};

/// The storefront with this three-letter code (exact, upper case), or absent when the
/// table does not know it. The table covers the larger country stores.
///
/// Thread-safety: reads a constant table; safe from any thread.
std::optional<StorefrontInfo> storefrontNamed(std::string_view countryCode);

/// The locale identifier a store forms for prices: the language of `localeIdentifier`
/// (everything before the first "_", "-" or "@"), the storefront's region and its currency.
/// Without a language ("" or absent) the storefront's own main language is used.
///
///     priceLocaleIdentifier("en_US", PRT) -> "en_PT@currency=EUR"
///     priceLocaleIdentifier("pt_BR", ESP) -> "pt_ES@currency=EUR"
///     priceLocaleIdentifier(nullopt, JPN) -> "ja_JP@currency=JPY"
std::string priceLocaleIdentifier(const std::optional<std::string>& localeIdentifier, const StorefrontInfo& storefront);

}  // namespace velquist::sandbox
VELQUIST_API_END
