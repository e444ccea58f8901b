#include "velquist/foundation/locale.h"

#include <cstdlib>
#include <map>
#include <mutex>
#include <string_view>

#include <unicode/locid.h>
#include <unicode/ucurr.h>

namespace velquist::foundation {

namespace {

bool isAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }

bool allOf(std::string_view text, bool (*predicate)(char)) {
  for (char c : text) {
    if (!predicate(c)) return false;
  }
  return true;
}

// A language is two or three letters (ISO 639); ICU hands back anything it was given.
bool isLanguage(std::string_view text) { return (text.size() == 2 || text.size() == 3) && allOf(text, isAsciiLetter); }

// A region is two letters (ISO 3166) or three digits (UN M.49).
bool isRegion(std::string_view text) {
  return (text.size() == 2 && allOf(text, isAsciiLetter)) || (text.size() == 3 && allOf(text, isAsciiDigit));
}

std::string upper(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

// The parts of an identifier that the questions need. An identifier that ICU cannot read,
// or whose language part is not a language, is treated as naming nothing.
struct Parts {
  std::string language;
  std::string region;
  std::string currencyKeyword;
};

std::optional<Parts> parse(const std::string& identifier) {
  if (identifier.find('\0') != std::string::npos) return std::nullopt;
  const icu::Locale locale(identifier.c_str());
  if (locale.isBogus()) return std::nullopt;
  Parts parts{locale.getLanguage(), locale.getCountry(), {}};
  if (!parts.language.empty() && !isLanguage(parts.language)) return std::nullopt;
  if (!parts.region.empty() && !isRegion(parts.region)) return std::nullopt;

  char keyword[ULOC_KEYWORDS_CAPACITY] = {};
  UErrorCode status = U_ZERO_ERROR;
  const int32_t length = locale.getKeywordValue("currency", keyword, sizeof keyword, status);
  if (U_SUCCESS(status) && status != U_STRING_NOT_TERMINATED_WARNING && length == 3 &&
      allOf(std::string_view(keyword, 3), isAsciiLetter)) {
    parts.currencyKeyword = upper(std::string(keyword, 3));
  }
  return parts;
}

// The currency ICU's territory data gives a region today.
std::optional<std::string> lookUpCurrencyOfRegion(const std::string& region) {
  const icu::Locale regionOnly("und", region.c_str());
  UChar code[4] = {};
  UErrorCode status = U_ZERO_ERROR;
  const int32_t length = ucurr_forLocale(regionOnly.getName(), code, 4, &status);
  if (U_FAILURE(status) || length != 3) return std::nullopt;
  std::string text;
  for (int32_t i = 0; i < 3; ++i) {
    if (code[i] > 0x7F) return std::nullopt;
    text += static_cast<char>(code[i]);
  }
  return text;
}

// The same, remembered per region: there are few regions, and the lookup is costly
// next to everything else a new price formatter needs.
std::optional<std::string> currencyOfRegion(const std::string& region) {
  static std::mutex mutex;
  static auto* const known = new std::map<std::string, std::optional<std::string>, std::less<>>();
  {
    const std::lock_guard lock(mutex);
    if (const auto found = known->find(region); found != known->end()) return found->second;
  }
  auto currency = lookUpCurrencyOfRegion(region);
  const std::lock_guard lock(mutex);
  known->emplace(region, currency);
  return currency;
}

// The locale the process environment names, read as ICU reads it: the first of LC_ALL,
// LC_MESSAGES and LANG that is set, without its codeset (`.UTF-8`) or modifier (`@euro`);
// "C" and "POSIX" (or nothing) mean en_US_POSIX.
std::string environmentIdentifier() {
  std::string value;
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* setting = std::getenv(name);
    if (setting != nullptr && *setting != '\0') {
      value = setting;
      break;
    }
  }
  value = value.substr(0, value.find_first_of(".@"));
  if (value.empty() || value == "C" || value == "POSIX") return "en_US_POSIX";
  return value;
}

std::mutex currentMutex;
std::optional<Locale> currentOverride;  // guarded by currentMutex

}  // namespace

Locale::Locale(std::string identifier) : identifier_(std::move(identifier)) {}

Locale Locale::resolved() const { return isAutoUpdating_ ? current() : *this; }

std::string Locale::identifier() const { return isAutoUpdating_ ? current().identifier_ : identifier_; }

std::optional<std::string> Locale::languageCode() const {
  const auto parts = parse(identifier());
  if (!parts || parts->language.empty()) return std::nullopt;
  return parts->language;
}

std::optional<std::string> Locale::regionCode() const {
  const auto parts = parse(identifier());
  if (!parts || parts->region.empty()) return std::nullopt;
  return parts->region;
}

std::optional<std::string> Locale::currencyCode() const {
  const auto parts = parse(identifier());
  if (!parts) return std::nullopt;
  if (!parts->currencyKeyword.empty()) return parts->currencyKeyword;
  if (parts->region.empty()) return std::nullopt;
  return currencyOfRegion(parts->region);
}

Locale Locale::current() {
  {
    const std::lock_guard lock(currentMutex);
    if (currentOverride) return *currentOverride;
  }
  return Locale(environmentIdentifier());
}

Locale Locale::autoupdatingCurrent() { return Locale(AutoUpdating{}); }

void Locale::setCurrent(std::optional<Locale> locale) {
  // An auto-updating locale would make current() ask itself; fix it to what it names now.
  if (locale) locale = locale->resolved();
  const std::lock_guard lock(currentMutex);
  currentOverride = std::move(locale);
}

}  // namespace velquist::foundation
