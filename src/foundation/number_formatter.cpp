#include "velquist/foundation/number_formatter.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <mutex>
#include <string_view>
#include <utility>

#include <unicode/dcfmtsym.h>
#include <unicode/decimfmt.h>
#include <unicode/numberformatter.h>
#include <unicode/numfmt.h>
#include <unicode/unistr.h>

namespace velquist::foundation {

namespace {

// The most fraction digits ICU reports back consistently; it prints more but then answers
// 127 when asked.
constexpr int maxFractionDigits = 127;

icu::UnicodeString fromUtf8(std::string_view text) {
  if (text.size() > static_cast<std::size_t>(INT32_MAX)) return icu::UnicodeString();
  return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

std::string toUtf8(const icu::UnicodeString& text) {
  std::string result;
  text.toUTF8String(result);
  return result;
}

// The ICU locale a Locale names. An identifier ICU cannot hold (an embedded NUL, or one it
// marks bogus, such as an overlong one) formats as the root locale.
icu::Locale icuLocale(const Locale& locale) {
  const std::string identifier = locale.identifier();
  if (identifier.find('\0') != std::string::npos) return icu::Locale::getRoot();
  icu::Locale result(identifier.c_str());
  return result.isBogus() ? icu::Locale::getRoot() : result;
}

icu::DecimalFormat::ERoundingMode icuRoundingMode(NumberFormatter::RoundingMode mode) {
  using Mode = NumberFormatter::RoundingMode;
  switch (mode) {
    case Mode::ceiling: return icu::DecimalFormat::kRoundCeiling;
    case Mode::floor: return icu::DecimalFormat::kRoundFloor;
    case Mode::down: return icu::DecimalFormat::kRoundDown;
    case Mode::up: return icu::DecimalFormat::kRoundUp;
    case Mode::halfEven: return icu::DecimalFormat::kRoundHalfEven;
    case Mode::halfDown: return icu::DecimalFormat::kRoundHalfDown;
    case Mode::halfUp: return icu::DecimalFormat::kRoundHalfUp;
  }
  return icu::DecimalFormat::kRoundHalfEven;
}

UNumberFormatStyle icuStyle(NumberFormatter::Style style) {
  switch (style) {
    case NumberFormatter::Style::currency: return UNUM_CURRENCY;
    case NumberFormatter::Style::percent: return UNUM_PERCENT;
    case NumberFormatter::Style::decimal:
    case NumberFormatter::Style::none: break;
  }
  return UNUM_DECIMAL;
}

// The locale's own decimal format for the style. Style `none` is the decimal format
// reduced to the pattern "#": integer digits without grouping. A numbering system
// that ICU spells out by rules (`@numbers=roman`) gives no decimal format; the locale's
// default digits are used then.
std::unique_ptr<icu::DecimalFormat> styleFormat(NumberFormatter::Style style, icu::Locale locale) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::NumberFormat> created(icu::NumberFormat::createInstance(locale, icuStyle(style), status));
    if (U_FAILURE(status)) return nullptr;
    if (auto* decimal = dynamic_cast<icu::DecimalFormat*>(created.get())) {
      created.release();
      std::unique_ptr<icu::DecimalFormat> format(decimal);
      if (style == NumberFormatter::Style::none) format->applyPattern(u"#", status);
      return U_SUCCESS(status) ? std::move(format) : nullptr;
    }
    status = U_ZERO_ERROR;
    locale.setKeywordValue("numbers", nullptr, status);
    if (U_FAILURE(status)) return nullptr;
  }
  return nullptr;
}

// A pattern's positive and negative parts, split at the first ';' outside quotes. An absent
// negative part means the minus sign before the positive part, as ICU reads it.
std::pair<icu::UnicodeString, icu::UnicodeString> patternParts(const icu::UnicodeString& pattern) {
  bool quoted = false;
  for (int32_t i = 0; i < pattern.length(); ++i) {
    const char16_t unit = pattern.charAt(i);
    if (unit == u'\'') quoted = !quoted;
    if (unit == u';' && !quoted) return {icu::UnicodeString(pattern, 0, i), icu::UnicodeString(pattern, i + 1)};
  }
  return {pattern, icu::UnicodeString(u"-") + pattern};
}

}  // namespace

// The settings made so far, and the ICU formatter built from them on first use. Setters
// only record; the build happens once, when the formatter is first asked for text or for a
// derived setting, so configuring a formatter costs one ICU build however many settings
// it takes.
struct NumberFormatter::State {
  struct Settings {
    Style style = Style::none;
    Locale locale;
    RoundingMode roundingMode = RoundingMode::halfEven;
    std::optional<int> minimumFractionDigits;
    std::optional<std::string> currencySymbol;
    std::optional<std::string> positiveFormat;
    std::optional<std::string> negativeFormat;
    // Whether minimum fraction digits were set after the latest of the two formats; the one
    // set later wins where they disagree.
    bool fractionDigitsAfterFormats = false;
  };

  // ICU's formatter; the getters of derived values read the pattern it was made from.
  struct Built {
    std::unique_ptr<icu::DecimalFormat> format;
    const icu::number::LocalizedNumberFormatter* formatter = nullptr;  // owned by `format`

    // The formats as the pattern now has them, the one set given as set.
    std::pair<std::string, std::string> formats(const Settings& made) const {
      if (!format) return {made.positiveFormat.value_or(""), made.negativeFormat.value_or("")};
      icu::UnicodeString pattern;
      const auto [positive, negative] = patternParts(format->toPattern(pattern));
      return {made.positiveFormat.value_or(toUtf8(positive)), made.negativeFormat.value_or(toUtf8(negative))};
    }
  };

  Settings settings;

  // The formatter for the current settings. Many threads may ask at once; the first builds.
  const Built& current() const {
    if (!isBuilt.load(std::memory_order_acquire)) {
      const std::lock_guard lock(buildMutex);
      if (!isBuilt.load(std::memory_order_relaxed)) {
        built = buildIgnoringUnreadablePatterns(settings);
        isBuilt.store(true, std::memory_order_release);
      }
    }
    return built;
  }
  // Setters call this; configuring is never concurrent with use.
  void invalidate() { isBuilt.store(false, std::memory_order_release); }

  static std::optional<Built> build(const Settings& settings);
  // A pattern ICU cannot read is ignored: the build is made again without the formats.
  static Built buildIgnoringUnreadablePatterns(const Settings& settings) {
    if (auto complete = build(settings)) return std::move(*complete);
    Settings withoutFormats = settings;
    withoutFormats.positiveFormat.reset();
    withoutFormats.negativeFormat.reset();
    if (auto plain = build(withoutFormats)) return std::move(*plain);
    return Built{};
  }

 private:
  mutable std::mutex buildMutex;
  mutable std::atomic<bool> isBuilt{false};
  mutable Built built;  // not usable only if ICU could build nothing at all
};

std::optional<NumberFormatter::State::Built> NumberFormatter::State::build(const Settings& settings) {
  Built built;
  built.format = styleFormat(settings.style, icuLocale(settings.locale));
  if (!built.format) return std::nullopt;
  icu::DecimalFormat& format = *built.format;

  format.setRoundingMode(icuRoundingMode(settings.roundingMode));
  if (settings.currencySymbol) {
    icu::DecimalFormatSymbols symbols(*format.getDecimalFormatSymbols());
    symbols.setSymbol(icu::DecimalFormatSymbols::kCurrencySymbol, fromUtf8(*settings.currencySymbol));
    format.setDecimalFormatSymbols(symbols);
  }

  UErrorCode status = U_ZERO_ERROR;
  const auto applyFractionDigits = [&] {
    if (settings.minimumFractionDigits) format.setMinimumFractionDigits(*settings.minimumFractionDigits);
  };
  const auto applyFormats = [&] {
    if (!settings.positiveFormat && !settings.negativeFormat) return;
    // A format not set keeps the current one, so each may be set alone.
    icu::UnicodeString current;
    auto [positive, negative] = patternParts(format.toPattern(current));
    if (settings.positiveFormat) positive = fromUtf8(*settings.positiveFormat);
    if (settings.negativeFormat) negative = fromUtf8(*settings.negativeFormat);
    format.applyPattern(positive + u";" + negative, status);
  };
  if (settings.fractionDigitsAfterFormats) {
    applyFormats();
    applyFractionDigits();
  } else {
    applyFractionDigits();
    applyFormats();
  }
  if (U_FAILURE(status)) return std::nullopt;

  const icu::number::LocalizedNumberFormatter* fromPattern = format.toNumberFormatter(status);
  if (U_FAILURE(status) || fromPattern == nullptr) return std::nullopt;
  // ICU formats the first uses by a slow path and compiles a fast one on a later use,
  // publishing it through atomics of its own (safe, but invisible to ThreadSanitizer, since
  // ICU is not instrumented: see tests/tsan.supp). Compiling up front would double the cost
  // of the first price in a new locale, so it is left to ICU.
  built.formatter = fromPattern;
  return built;
}

NumberFormatter::NumberFormatter() : state_(std::make_unique<State>()) { state_->settings.locale = Locale::current(); }

NumberFormatter::~NumberFormatter() = default;

NumberFormatter::Style NumberFormatter::numberStyle() const { return state_->settings.style; }

void NumberFormatter::setNumberStyle(Style style) {
  state_->settings.style = style;
  state_->invalidate();
}

Locale NumberFormatter::locale() const { return state_->settings.locale; }

void NumberFormatter::setLocale(Locale locale) {
  state_->settings.locale = std::move(locale);
  state_->invalidate();
}

NumberFormatter::RoundingMode NumberFormatter::roundingMode() const { return state_->settings.roundingMode; }

void NumberFormatter::setRoundingMode(RoundingMode mode) {
  state_->settings.roundingMode = mode;
  state_->invalidate();
}

int NumberFormatter::minimumFractionDigits() const {
  const State::Built& built = state_->current();
  return built.format ? built.format->getMinimumFractionDigits() : 0;
}

void NumberFormatter::setMinimumFractionDigits(int digits) {
  state_->settings.minimumFractionDigits = std::clamp(digits, 0, maxFractionDigits);
  state_->settings.fractionDigitsAfterFormats = true;
  state_->invalidate();
}

int NumberFormatter::maximumFractionDigits() const {
  const State::Built& built = state_->current();
  return built.format ? built.format->getMaximumFractionDigits() : 0;
}

std::string NumberFormatter::currencySymbol() const {
  const State::Built& built = state_->current();
  if (!built.format) return state_->settings.currencySymbol.value_or("");
  return toUtf8(built.format->getDecimalFormatSymbols()->getConstSymbol(icu::DecimalFormatSymbols::kCurrencySymbol));
}

void NumberFormatter::setCurrencySymbol(std::string symbol) {
  state_->settings.currencySymbol = std::move(symbol);
  state_->invalidate();
}

std::string NumberFormatter::positiveFormat() const { return state_->current().formats(state_->settings).first; }

void NumberFormatter::setPositiveFormat(std::string pattern) {
  state_->settings.positiveFormat = std::move(pattern);
  state_->settings.fractionDigitsAfterFormats = false;
  state_->invalidate();
}

std::string NumberFormatter::negativeFormat() const { return state_->current().formats(state_->settings).second; }

void NumberFormatter::setNegativeFormat(std::string pattern) {
  state_->settings.negativeFormat = std::move(pattern);
  state_->settings.fractionDigitsAfterFormats = false;
  state_->invalidate();
}

std::optional<std::string> NumberFormatter::string(const Decimal& number) const {
  const icu::number::LocalizedNumberFormatter* formatter = state_->current().formatter;
  if (formatter == nullptr || number.isNaN()) return std::nullopt;
  // The exact decimal text, so no digit passes through a double.
  const std::string text = number.description();
  UErrorCode status = U_ZERO_ERROR;
  const icu::number::FormattedNumber formatted =
      formatter->formatDecimal(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())), status);
  if (U_FAILURE(status)) return std::nullopt;
  const icu::UnicodeString result = formatted.toTempString(status);
  if (U_FAILURE(status)) return std::nullopt;
  return toUtf8(result);
}

}  // namespace velquist::foundation
