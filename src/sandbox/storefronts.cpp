#include "velquist/sandbox/storefronts.h"

#include <algorithm>
#include <array>

namespace velquist::sandbox {
namespace {

// The larger country stores with the store's own numbers for them. Sorted by country code
// for the lookup.
constexpr std::array kStorefronts = std::to_array<StorefrontInfo>({
    {"ARE", "AE", "143481", "AED", "ar"}, {"ARG", "AR", "143505", "ARS", "es"},
    {"AUS", "AU", "143460", "AUD", "en"}, {"AUT", "AT", "143445", "EUR", "de"},
    {"BEL", "BE", "143446", "EUR", "nl"}, {"BRA", "BR", "143503", "BRL", "pt"},
    {"CAN", "CA", "143455", "CAD", "en"}, {"CHE", "CH", "143459", "CHF", "de"},
    {"CHL", "CL", "143483", "CLP", "es"}, {"CHN", "CN", "143465", "CNY", "zh"},
    {"COL", "CO", "143501", "COP", "es"}, {"CZE", "CZ", "143489", "CZK", "cs"},
    {"DEU", "DE", "143443", "EUR", "de"}, {"DNK", "DK", "143458", "DKK", "da"},
    {"EGY", "EG", "143516", "EGP", "ar"}, {"ESP", "ES", "143454", "EUR", "es"},
    {"FIN", "FI", "143447", "EUR", "fi"}, {"FRA", "FR", "143442", "EUR", "fr"},
    {"GBR", "GB", "143444", "GBP", "en"}, {"GRC", "GR", "143448", "EUR", "el"},
    {"HKG", "HK", "143463", "HKD", "zh"}, {"HUN", "HU", "143482", "HUF", "hu"},
    {"IDN", "ID", "143476", "IDR", "id"}, {"IND", "IN", "143467", "INR", "en"},
    {"IRL", "IE", "143449", "EUR", "en"}, {"ISR", "IL", "143491", "ILS", "he"},
    {"ITA", "IT", "143450", "EUR", "it"}, {"JPN", "JP", "143462", "JPY", "ja"},
    {"KOR", "KR", "143466", "KRW", "ko"}, {"LUX", "LU", "143451", "EUR", "fr"},
    {"MEX", "MX", "143468", "MXN", "es"}, {"MYS", "MY", "143473", "MYR", "ms"},
    {"NLD", "NL", "143452", "EUR", "nl"}, {"NOR", "NO", "143457", "NOK", "nb"},
    {"NZL", "NZ", "143461", "NZD", "en"}, {"PAK", "PK", "143477", "PKR", "ur"},
    {"PHL", "PH", "143474", "PHP", "en"}, {"POL", "PL", "143478", "PLN", "pl"},
    {"PRT", "PT", "143453", "EUR", "pt"}, {"RUS", "RU", "143469", "RUB", "ru"},
    {"SAU", "SA", "143479", "SAR", "ar"}, {"SGP", "SG", "143464", "SGD", "en"},
    {"SWE", "SE", "143456", "SEK", "sv"}, {"THA", "TH", "143475", "THB", "th"},
    {"TUR", "TR", "143480", "TRY", "tr"}, {"TWN", "TW", "143470", "TWD", "zh"},
    {"UKR", "UA", "143492", "UAH", "uk"}, {"USA", "US", "143441", "USD", "en"},
    {"VNM", "VN", "143471", "VND", "vi"}, {"ZAF", "ZA", "143472", "ZAR", "en"},
});

static_assert(std::ranges::is_sorted(kStorefronts, {}, &StorefrontInfo::countryCode));

}  // namespace

std::optional<StorefrontInfo> storefrontNamed(std::string_view countryCode) {
  const auto found = std::ranges::lower_bound(kStorefronts, countryCode, {}, &StorefrontInfo::countryCode);
  if (found == kStorefronts.end() || found->countryCode != countryCode) return std::nullopt;
  return *found;
}

std::string priceLocaleIdentifier(const std::optional<std::string>& localeIdentifier, const StorefrontInfo& storefront) {
  std::string_view language = localeIdentifier ? std::string_view(*localeIdentifier) : std::string_view();
  language = language.substr(0, language.find_first_of("_-@"));
  if (language.empty()) language = storefront.languageCode;
  std::string identifier(language);
  identifier.append("_").append(storefront.regionCode).append("@currency=").append(storefront.currencyCode);
  return identifier;
}

}  // namespace velquist::sandbox
