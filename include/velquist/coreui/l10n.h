#pragma once

#include "velquist/export.h"
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "velquist/foundation/locale.h"

/// The localisation catalogue: every text the library shows, for the current language.
///
/// The texts live in data files, one per language (`data/l10n/en.json`, `ru.json`, ...),
/// or per language variant (`pt_PT.json`, `zh_Hant.json`), built into the library. Each call
/// reads `foundation::Locale::current()` afresh and picks its file (see
/// `Catalogue::languageFor`); an entry missing there falls back to the variant's language
/// ("pt"), then to English, and an entry missing in English too gives its own key. Adding a
/// language is adding a file.
///
///     L10n::Product::SubscriptionPeriod::Unit::Week::plural2()  ->  "weeks" (en), "недель" (ru)
///     L10n::Product::SubscriptionOffer::freeTrial(7, "days")     ->  "7 days free" (en)
///     L10n::text("No.Such.Key")                                  ->  "No.Such.Key"
///
/// Thread-safe: the built-in texts are read once, on first use, and never change after.
VELQUIST_API_BEGIN
namespace velquist::coreui::L10n {

/// A set of languages' texts with the lookup rules above. The functions of this namespace
/// read the built-in one (`Catalogue::builtIn()`); a host or a test may build its own.
///
/// Immutable once built: one object may be read from several threads at once.
class Catalogue {
 public:
  /// A language code ("en") and the text of its data file: a JSON object whose members are
  /// the full keys and their texts.
  using DataFile = std::pair<std::string_view, std::string_view>;

  /// Reads the data files. Throws foundation::DecodingError when a text is not valid JSON,
  /// not an object, or has a member that is not a string; the error's coding path names the
  /// language (and the key), e.g. "typeMismatch at ru.Product.SubscriptionPeriod.Unit.day".
  /// A key given twice keeps its last text, also across two files of one language.
  explicit Catalogue(const std::vector<DataFile>& files);

  /// The built-in catalogue, read from the shipped data files on first use. The build checks
  /// those files, so this does not throw.
  static const Catalogue& builtIn();

  /// The entry's text in `languageCode` (a file's code: "ru", "pt_PT"), else in its
  /// language without script or region ("pt"), else in English, else `key` itself.
  std::string text(std::string_view key, std::string_view languageCode) const;
  /// The code of the file that speaks for a locale: the language with script and region,
  /// with script, with region, then alone, the first that has a file; else "en". The script
  /// is the one ICU deems likely when the locale names none. "no" reads as "nb", "iw" as
  /// "he", "in" as "id".
  ///
  ///     languageFor("zh_TW") -> "zh_Hant"   languageFor("zh_Hant_HK") -> "zh_Hant"
  ///     languageFor("zh_CN") -> "zh"        languageFor("pt_PT") -> "pt_PT"
  ///     languageFor("pt_BR") -> "pt"        languageFor("no_NO") -> "nb"
  ///     languageFor("sw_KE") -> "en"
  std::string languageFor(std::string_view localeIdentifier) const;
  /// The language codes that have a data file, sorted.
  std::vector<std::string> languageCodes() const;

 private:
  using Entries = std::map<std::string, std::string, std::less<>>;
  std::map<std::string, Entries, std::less<>> languages_;
};

/// The text of one entry, by its full key ("Product.SubscriptionPeriod.Unit.Day.plural"),
/// for the current language.
std::string text(std::string_view key);
/// The same for a given file's code ("en", "ru", "pt_PT").
std::string text(std::string_view key, std::string_view languageCode);
/// The codes that have a data file, sorted: {"ar", "ca", "cs", ..., "zh", "zh_Hant"}.
std::vector<std::string> availableLanguages();

namespace Product::SubscriptionPeriod::Unit {
std::string day();
std::string week();
std::string month();
std::string year();
namespace Day {
std::string plural();       ///< the form for 2 to 4
std::string plural2();      ///< the form for 5 and more
std::string compactName();  ///< the short name, the same for every number
std::string recurrent();    ///< the adjective of recurrence ("daily")
}  // namespace Day
namespace Week {
std::string plural();
std::string plural2();
std::string compactName();
std::string recurrent();
}  // namespace Week
namespace Month {
std::string plural();
std::string plural2();
std::string compactName();
std::string recurrent();
}  // namespace Month
namespace Year {
std::string plural();
std::string plural2();
std::string compactName();
std::string recurrent();
}  // namespace Year
}  // namespace Product::SubscriptionPeriod::Unit

namespace Product::SubscriptionOffer {
/// The free-trial sentence for a trial of `length` units; `unitWord` is the unit's word as
/// the caller chose it for that number ("days"). The sentence places the number itself, as
/// plain ASCII digits with "-" before a negative number; neither argument is re-read for
/// placeholders.
///
///     freeTrial(3, "days")  ->  "3 days free" (en), freeTrial(3, "дня") -> "3 дня бесплатно" (ru)
std::string freeTrial(std::int64_t length, std::string_view unitWord);
namespace PaymentMode {
std::string payAsYouGo();
std::string payUpFront();
std::string freeTrial();
}  // namespace PaymentMode
}  // namespace Product::SubscriptionOffer

}  // namespace velquist::coreui::L10n
VELQUIST_API_END
