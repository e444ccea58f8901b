#include "velquist/coreui/l10n.h"

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

std::string currentLanguage() {
  return foundation::Locale::current().languageCode().value_or(std::string(fallbackLanguage));
}

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

std::string Catalogue::text(std::string_view key, std::string_view languageCode) const {
  for (const std::string_view language : {languageCode, fallbackLanguage}) {
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
