#pragma once

#include "velquist/export.h"
#include <cstddef>
#include <optional>
#include <string>

VELQUIST_API_BEGIN
namespace velquist::foundation {

/// A locale named by its identifier (`en_US`, `de_DE`, `en_PT@currency=EUR`), answering
/// questions through ICU. It states the currency of a price: the explicit `@currency=`
/// keyword when given, else the currency of its region.
///
/// Equality and hashing are by identifier, as given (`en_US` and `en-US` are different
/// locales, as on the platform). The serial form is the identifier text.
///
/// Any text is a valid identifier: one ICU cannot read, or whose language part is not two
/// or three letters ("garbage", "!!"), names no language, region or currency.
///
///     Locale("en_PT@currency=EUR"): languageCode "en", regionCode "PT", currencyCode "EUR"
///     Locale("ar"):                 languageCode "ar", no region, no currency
///
/// A value type; distinct objects may be used from different threads freely. `current()`
/// and `setCurrent()` are safe to call from any thread at any time.
class Locale {
 public:
  /// The root locale, identifier "".
  Locale() = default;
  explicit Locale(std::string identifier);

  /// The identifier as given; for the auto-updating locale, the current one's.
  std::string identifier() const;

  /// `en` for `en_US`; absent for the root locale.
  std::optional<std::string> languageCode() const;
  /// `US` for `en_US`; absent when the identifier names no region.
  std::optional<std::string> regionCode() const;
  /// `USD` for `en_US`, `EUR` for `en_PT@currency=EUR`; absent when neither a keyword nor a
  /// region gives one. A keyword that is not three letters is ignored.
  std::optional<std::string> currencyCode() const;

  /// The current locale, fixed at the moment of the call: the one set by `setCurrent`, else
  /// the process environment's, read afresh on every call: the first of `LC_ALL`,
  /// `LC_MESSAGES` and `LANG` that is set, without codeset or modifier
  /// (`LANG=de_DE.UTF-8` gives `de_DE`); "C", "POSIX" or none give `en_US_POSIX`.
  static Locale current();
  /// A locale that follows `current()` whenever it is asked anything.
  static Locale autoupdatingCurrent();
  /// Replaces the current locale for the whole process (the host's settings, or a test's);
  /// nullopt returns to the environment's. An auto-updating locale is fixed to what it names
  /// at the moment of the call.
  static void setCurrent(std::optional<Locale> locale);

  friend bool operator==(const Locale& lhs, const Locale& rhs) { return lhs.identifier() == rhs.identifier(); }

 private:
  struct AutoUpdating {};
  explicit Locale(AutoUpdating) : isAutoUpdating_(true) {}
  // This locale, or for the auto-updating one the current locale.
  Locale resolved() const;

  std::string identifier_;
  bool isAutoUpdating_ = false;
};

}  // namespace velquist::foundation

template <>
struct std::hash<velquist::foundation::Locale> {
  std::size_t operator()(const velquist::foundation::Locale& locale) const {
    return std::hash<std::string>{}(locale.identifier());
  }
};
VELQUIST_API_END
