#pragma once

#include "velquist/export.h"
#include <atomic>
#include <optional>
#include <string>

#include "velquist/foundation/decimal.h"
#include "velquist/foundation/locale.h"
#include "velquist/foundation/number_formatter.h"
#include "velquist/support/mutex.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// Turns a decimal price into currency text for a locale and rounding mode. Configured
/// number formatters are costly to make, so they are kept in one process-wide cache keyed
/// by (locale, rounding mode) and never evicted. On top of the locale's own currency format
/// it applies the library's fixed choices:
/// - minimum fraction digits 0 in the regions RU, IN and JP, 2 everywhere else;
/// - US dollars as "$9.99" / "-$9.99" (no grouping), roubles as "199₽" / "199.5₽";
/// - inside the host application "solvaneapp" only, the lira sign "₺" becomes "TRY".
///
///     PriceFormatter(Locale("en_US"), RoundingMode::down).string(9.999)  ->  "$9.99"
///
/// Thread-safety: every single read or write of `locale` and `roundingMode` is safe from
/// any thread, and so is `string`; but setting both and then formatting is not one atomic
/// step, so threads sharing one instance may format with each other's settings.
class PriceFormatter {
 public:
  using RoundingMode = foundation::NumberFormatter::RoundingMode;

  PriceFormatter(foundation::Locale locale, RoundingMode roundingMode);
  PriceFormatter(const PriceFormatter&) = delete;
  PriceFormatter& operator=(const PriceFormatter&) = delete;

  foundation::Locale locale() const;
  void setLocale(foundation::Locale locale);
  RoundingMode roundingMode() const;
  void setRoundingMode(RoundingMode roundingMode);

  /// The price as currency text by the current locale and rounding mode; absent when the
  /// number formatter produces no text.
  std::optional<std::string> string(const foundation::Decimal& price) const;

  /// How many formatters the process-wide cache holds (for tests and diagnostics).
  static std::size_t cachedFormatterCount();
  /// The cached formatter for a key, made and configured on first use. The same object is
  /// returned for equal keys for the rest of the process.
  static const foundation::NumberFormatter& formatter(const foundation::Locale& locale, RoundingMode roundingMode);

 private:
  mutable support::Mutex mutex_;
  foundation::Locale locale_ VELQUIST_GUARDED_BY(mutex_);
  std::atomic<RoundingMode> roundingMode_;
};

}  // namespace velquist::storekit
VELQUIST_API_END
