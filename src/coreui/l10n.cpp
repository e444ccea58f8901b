#include "velquist/coreui/l10n.h"

#include <unicode/locid.h>

#include <initializer_list>

#include "l10n_data.h"
#include "velquist/foundation/coding_error.h"
#include "velquist/foundation/json.h"

namespace velquist::coreui::L10n {

namespace {

using foundation::CodingKey;
using foundation::DecodingError;
using foundation::JsonValue;

// The language every other one falls back to.
constexpr std::string_view fallbackLanguage = "en";

// The catalogue code of the current locale. The choice takes ICU's likely-subtags lookup,
// so each thread remembers its last answer; the locale usually stays the same for long.
std::string currentLanguage() {
  thread_local std::string lastIdentifier;
  thread_local std::string lastLanguage;
  std::string identifier = foundation::Locale::current().identifier();
  if (lastLanguage.empty() || identifier != lastIdentifier) {
    lastLanguage = Catalogue::builtIn().languageFor(identifier);
    lastIdentifier = std::move(identifier);
  }
  return lastLanguage;
}

// The language part of a catalogue code: "pt" for "pt_PT", "zh" for "zh_Hant".
std::string_view baseLanguage(std::string_view code) { return code.substr(0, code.find('_')); }

// Copies `sentence`, writing each placeholder's value where the placeholder stands. The scan
// moves past what it writes, so a value that itself looks like a placeholder stays as it is.
std::string fillPlaceholders(std::string_view sentence,
                             std::initializer_list<std::pair<std::string_view, std::string_view>> values) {
  std::string result;
  std::size_t position = 0;
  while (position < sentence.size()) {
    const std::string_view rest = sentence.substr(position);
    bool replaced = false;
    for (const auto& [placeholder, value] : values) {
      if (rest.starts_with(placeholder)) {
        result += value;
        position += placeholder.size();
        replaced = true;
        break;
      }
    }
    if (!replaced) result += sentence[position++];
  }
  return result;
}

}  // namespace

Catalogue::Catalogue(const std::vector<DataFile>& files) {
  for (const auto& [languageCode, json] : files) {
    const std::string language(languageCode);
    JsonValue document;
    try {
      document = foundation::parseJson(json);
    } catch (const DecodingError& error) {
      throw DecodingError(error.kind(), {CodingKey::key(language)}, error.debugDescription());
    }
    if (document.kind() != JsonValue::Kind::object) {
      throw DecodingError(DecodingError::Kind::typeMismatch, {CodingKey::key(language)},
                          "Expected an object of texts but found " +
                              std::string(foundation::kindName(document.kind())) + " instead.");
    }
    Entries& entries = languages_[language];
    for (const auto& [key, value] : document.objectValue()) {
      if (value.kind() != JsonValue::Kind::string) {
        throw DecodingError(DecodingError::Kind::typeMismatch, {CodingKey::key(language), CodingKey::key(key)},
                            "Expected a text but found " + std::string(foundation::kindName(value.kind())) +
                                " instead.");
      }
      entries.insert_or_assign(key, value.stringValue());
    }
  }
}

const Catalogue& Catalogue::builtIn() {
  // A function-local static: built once, on first use, safely from any thread.
  static const Catalogue catalogue = [] {
    std::vector<DataFile> files;
    for (const detail::EmbeddedLanguage& file : detail::embeddedLanguages()) {
      files.emplace_back(file.languageCode, file.json);
    }
    return Catalogue(files);
  }();
  return catalogue;
}

std::string Catalogue::languageFor(std::string_view localeIdentifier) const {
  const std::string identifier(localeIdentifier);
  if (identifier.find('\0') != std::string::npos) return std::string(fallbackLanguage);
  const icu::Locale locale(identifier.c_str());
  if (locale.isBogus()) return std::string(fallbackLanguage);
  std::string language = locale.getLanguage();
  // Codes that name the same language as a catalogue file under another name.
  if (language == "no") language = "nb";
  if (language == "iw") language = "he";
  if (language == "in") language = "id";
  const std::string region = locale.getCountry();
  std::string script = locale.getScript();
  if (script.empty() && !language.empty()) {
    // The script the language is written in there: Traditional Chinese in Taiwan and Hong Kong.
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale likely(language.c_str(), region.c_str());
    likely.addLikelySubtags(status);
    if (U_SUCCESS(status)) script = likely.getScript();
  }
  std::vector<std::string> candidates;
  if (!script.empty() && !region.empty()) candidates.push_back(language + "_" + script + "_" + region);
  if (!script.empty()) candidates.push_back(language + "_" + script);
  if (!region.empty()) candidates.push_back(language + "_" + region);
  candidates.push_back(language);
  for (const std::string& candidate : candidates) {
    if (languages_.contains(candidate)) return candidate;
  }
  return std::string(fallbackLanguage);
}

std::string Catalogue::text(std::string_view key, std::string_view languageCode) const {
  for (const std::string_view language : {languageCode, baseLanguage(languageCode), fallbackLanguage}) {
    const auto entries = languages_.find(language);
    if (entries == languages_.end()) continue;
    const auto entry = entries->second.find(key);
    if (entry != entries->second.end()) return entry->second;
  }
  return std::string(key);
}

std::vector<std::string> Catalogue::languageCodes() const {
  std::vector<std::string> codes;
  for (const auto& [language, entries] : languages_) codes.push_back(language);
  return codes;
}

std::string text(std::string_view key) { return Catalogue::builtIn().text(key, currentLanguage()); }

std::string text(std::string_view key, std::string_view languageCode) {
  return Catalogue::builtIn().text(key, languageCode);
}

std::vector<std::string> availableLanguages() { return Catalogue::builtIn().languageCodes(); }

namespace Product::SubscriptionPeriod::Unit {
std::string day() { return text("Product.SubscriptionPeriod.Unit.day"); }
std::string week() { return text("Product.SubscriptionPeriod.Unit.week"); }
std::string month() { return text("Product.SubscriptionPeriod.Unit.month"); }
std::string year() { return text("Product.SubscriptionPeriod.Unit.year"); }
namespace Day {
std::string plural() { return text("Product.SubscriptionPeriod.Unit.Day.plural"); }
std::string plural2() { return text("Product.SubscriptionPeriod.Unit.Day.plural2"); }
std::string compactName() { return text("Product.SubscriptionPeriod.Unit.Day.compactName"); }
std::string recurrent() { return text("Product.SubscriptionPeriod.Unit.Day.recurrent"); }
}  // namespace Day
namespace Week {
std::string plural() { return text("Product.SubscriptionPeriod.Unit.Week.plural"); }
std::string plural2() { return text("Product.SubscriptionPeriod.Unit.Week.plural2"); }
std::string compactName() { return text("Product.SubscriptionPeriod.Unit.Week.compactName"); }
std::string recurrent() { return text("Product.SubscriptionPeriod.Unit.Week.recurrent"); }
}  // namespace Week
namespace Month {
std::string plural() { return text("Product.SubscriptionPeriod.Unit.Month.plural"); }
std::string plural2() { return text("Product.SubscriptionPeriod.Unit.Month.plural2"); }
std::string compactName() { return text("Product.SubscriptionPeriod.Unit.Month.compactName"); }
std::string recurrent() { return text("Product.SubscriptionPeriod.Unit.Month.recurrent"); }
}  // namespace Month
namespace Year {
std::string plural() { return text("Product.SubscriptionPeriod.Unit.Year.plural"); }
std::string plural2() { return text("Product.SubscriptionPeriod.Unit.Year.plural2"); }
std::string compactName() { return text("Product.SubscriptionPeriod.Unit.Year.compactName"); }
std::string recurrent() { return text("Product.SubscriptionPeriod.Unit.Year.recurrent"); }
}  // namespace Year
}  // namespace Product::SubscriptionPeriod::Unit

namespace Product::SubscriptionOffer {
std::string freeTrial(std::int64_t length, std::string_view unitWord) {
  const std::string lengthText = std::to_string(length);  // ASCII digits, "-" when negative, no grouping
  return fillPlaceholders(text("Product.SubscriptionOffer.freeTrial"), {{"{length}", lengthText}, {"{unit}", unitWord}});
}
namespace PaymentMode {
std::string payAsYouGo() { return text("Product.SubscriptionOffer.PaymentMode.payAsYouGo"); }
std::string payUpFront() { return text("Product.SubscriptionOffer.PaymentMode.payUpFront"); }
std::string freeTrial() { return text("Product.SubscriptionOffer.PaymentMode.freeTrial"); }
}  // namespace PaymentMode
}  // namespace Product::SubscriptionOffer

}  // namespace velquist::coreui::L10n
