#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "velquist/foundation/locale.h"

/// The localisation catalogue: every text the library shows, for the current language.
///
/// The texts live in data files, one per language (`en.json`, `ru.json`, ...), built into
/// the library. Each call reads the language of `foundation::Locale::current()`; an entry
/// missing for that language (or a language without a file) falls back to English, and an
/// entry missing in English too gives its own key. Adding a language is adding a file.
///
///     L10n::Product::SubscriptionPeriod::Unit::Week::plural2()  ->  "weeks" (en), "недель" (ru)
///     L10n::Product::SubscriptionOffer::freeTrial(7, "days")     ->  "7 days free" (en)
///
/// Thread-safe.
namespace velquist::coreui::L10n {

/// The text of one entry, by its full key ("Product.SubscriptionPeriod.Unit.Day.plural"),
/// for the current language.
std::string text(std::string_view key);
/// The same for a given language code ("en", "ru").
std::string text(std::string_view key, std::string_view languageCode);
/// The language codes that have a data file, sorted.
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
/// the caller chose it for that number ("days"). The sentence places the number itself.
std::string freeTrial(std::int64_t length, std::string_view unitWord);
namespace PaymentMode {
std::string payAsYouGo();
std::string payUpFront();
std::string freeTrial();
}  // namespace PaymentMode
}  // namespace Product::SubscriptionOffer

}  // namespace velquist::coreui::L10n
