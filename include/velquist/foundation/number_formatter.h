#pragma once

#include "velquist/export.h"
#include <memory>
#include <optional>
#include <string>

#include "velquist/foundation/decimal.h"
#include "velquist/foundation/locale.h"

VELQUIST_API_BEGIN
namespace velquist::foundation {

/// The subset of the platform number formatter the library uses, over ICU: currency and
/// percent styles, a locale, the seven rounding modes, minimum fraction digits, a currency
/// symbol and positive / negative format patterns with the currency placeholder "¤".
/// Decimals are handed to ICU as their exact text, never through a double.
///
///     NumberFormatter formatter;
///     formatter.setNumberStyle(NumberFormatter::Style::currency);
///     formatter.setLocale(Locale("de_DE"));
///     formatter.string(Decimal(999, -2))  ->  "9,99 €"   (U+00A0 before the euro sign)
///
/// Configuration: setters only record; the ICU formatter is built once from all settings
/// when it is first used (formatting, or a getter of a derived value), in this order: the locale's own pattern for the style (for `none` plain integer digits, the
/// pattern "#" without grouping), the rounding mode, the currency symbol, then the minimum
/// fraction digits and the formats in the order they were last set. The formats replace the
/// pattern with "positive;negative", the one not set taken from the pattern so far; so
/// fraction digits set before the formats yield to the patterns' digits, and digits set after
/// them override them. Formats that ICU cannot read are ignored: the formatter keeps the
/// locale's own pattern. A locale identifier ICU cannot hold formats as
/// the root locale.
///
///     formatter.setLocale(Locale("en_US"));
///     formatter.setPositiveFormat("¤0.00");
///     formatter.setNegativeFormat("-¤0.00");
///     formatter.string(Decimal(-123450, -2))  ->  "-$1234.50"
///     formatter.setLocale(Locale("de_DE"));   // the formats stay, with a decimal comma
///     formatter.string(Decimal(-123450, -2))  ->  "-€1234,50"
///
/// Thread-safety: `string` and the getters may be called from many threads at once on one
/// formatter; configuring a formatter while another thread uses it is not allowed.
class NumberFormatter {
 public:
  /// The platform's number styles (raw values as the platform numbers them).
  enum class Style { none = 0, decimal = 1, currency = 2, percent = 3 };
  /// The platform's rounding modes, raw values 0...6.
  enum class RoundingMode { ceiling = 0, floor = 1, down = 2, up = 3, halfEven = 4, halfDown = 5, halfUp = 6 };

  /// Style `none`, the current locale, rounding `halfEven`, as the platform starts.
  NumberFormatter();
  ~NumberFormatter();
  NumberFormatter(const NumberFormatter&) = delete;
  NumberFormatter& operator=(const NumberFormatter&) = delete;

  Style numberStyle() const;
  void setNumberStyle(Style style);
  Locale locale() const;
  void setLocale(Locale locale);
  RoundingMode roundingMode() const;
  void setRoundingMode(RoundingMode mode);
  int minimumFractionDigits() const;
  /// Counts outside 0...127 are clamped to that range.
  void setMinimumFractionDigits(int digits);
  int maximumFractionDigits() const;
  std::string currencySymbol() const;
  void setCurrencySymbol(std::string symbol);
  /// The pattern for zero and positive numbers, e.g. "¤0.00"; "¤" stands for the currency.
  /// Until set, the positive part of the current pattern ("¤#,##0.00" for en_US currency).
  std::string positiveFormat() const;
  void setPositiveFormat(std::string pattern);
  /// The pattern for negative numbers, e.g. "-¤0.00". Until set, the negative part of the
  /// current pattern, or "-" before the positive part when the pattern has none.
  std::string negativeFormat() const;
  void setNegativeFormat(std::string pattern);

  /// The text of `number`, or nothing for NaN or where ICU produces none.
  std::optional<std::string> string(const Decimal& number) const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace velquist::foundation
VELQUIST_API_END
