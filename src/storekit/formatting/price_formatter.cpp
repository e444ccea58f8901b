#include "velquist/storekit/formatting/price_formatter.h"

#include <functional>
#include <memory>
#include <string_view>
#include <unordered_map>

#include "velquist/foundation/bundle.h"
#include "velquist/support/hasher.h"

namespace velquist::storekit {

using foundation::Decimal;
using foundation::Locale;
using foundation::NumberFormatter;

namespace {

// Locales are equal by identifier, so the key holds the identifier (an auto-updating
// locale's is what it names at the time of the call).
struct FormatterKey {
  std::string localeIdentifier;
  PriceFormatter::RoundingMode roundingMode;
  friend bool operator==(const FormatterKey&, const FormatterKey&) = default;
};

struct FormatterKeyHash {
  std::size_t operator()(const FormatterKey& key) const {
    return support::Hasher().combine(key.localeIdentifier).combine(key.roundingMode).finalize();
  }
};

// The cache and its lock live for the whole process (never destroyed, so formatting stays
// safe in code that runs during exit).
struct FormatterCache {
  support::RecursiveMutex lock;
  std::unordered_map<FormatterKey, std::unique_ptr<NumberFormatter>, FormatterKeyHash> formatters
      VELQUIST_GUARDED_BY(lock);
};

FormatterCache& cache() {
  static auto* const instance = new FormatterCache();
  return *instance;
}

std::unique_ptr<NumberFormatter> makeFormatter(const FormatterKey& key) {
  const Locale locale(key.localeIdentifier);
  auto formatter = std::make_unique<NumberFormatter>();
  formatter->setNumberStyle(NumberFormatter::Style::currency);
  formatter->setLocale(locale);
  formatter->setRoundingMode(key.roundingMode);
  const auto region = locale.regionCode();
  const bool wholeAmountsPlain = region == "RU" || region == "IN" || region == "JP";
  formatter->setMinimumFractionDigits(wholeAmountsPlain ? 0 : 2);
  // The patterns come after the fraction digits, so for these two currencies the digits
  // follow the patterns.
  const auto currency = locale.currencyCode();
  if (currency == "USD") {
    formatter->setCurrencySymbol("$");
    formatter->setPositiveFormat("¤0.00");
    formatter->setNegativeFormat("-¤0.00");
  } else if (currency == "RUB") {
    formatter->setCurrencySymbol("₽");
    formatter->setPositiveFormat("0.##¤");
    formatter->setNegativeFormat("-0.##¤");
  }
  return formatter;
}

// Inside one particular host application, lira prices show the currency code instead of
// the sign.
bool isSolvane(const foundation::Bundle& bundle) { return bundle.bundleIdentifier() == "solvaneapp"; }

std::string replacingCurrencySymbolIfNeeded(std::string text) {
  static constexpr std::pair<std::string_view, std::string_view> solvaneCurrencySymboReplacementMap[] = {
      {"₺", "TRY"},
  };
  // Whether a sign occurs is asked first: it is the cheaper question, and the answer is the
  // same in either order.
  for (const auto& [symbol, replacement] : solvaneCurrencySymboReplacementMap) {
    if (text.find(symbol) == std::string::npos) continue;
    if (!isSolvane(foundation::Bundle::main())) return text;
    for (std::size_t at = text.find(symbol); at != std::string::npos;
         at = text.find(symbol, at + replacement.size())) {
      text.replace(at, symbol.size(), replacement);
    }
    return text;
  }
  return text;
}

}  // namespace

PriceFormatter::PriceFormatter(Locale locale, RoundingMode roundingMode)
    : locale_(std::move(locale)), roundingMode_(roundingMode) {}

Locale PriceFormatter::locale() const {
  support::LockGuard guard(mutex_);
  return locale_;
}

void PriceFormatter::setLocale(Locale locale) {
  support::LockGuard guard(mutex_);
  locale_ = std::move(locale);
}

PriceFormatter::RoundingMode PriceFormatter::roundingMode() const { return roundingMode_.load(); }

void PriceFormatter::setRoundingMode(RoundingMode roundingMode) { roundingMode_.store(roundingMode); }

const NumberFormatter& PriceFormatter::formatter(const Locale& locale, RoundingMode roundingMode) {
  FormatterKey key{locale.identifier(), roundingMode};
  // Formatters live as long as the process, so each thread may remember the last one it
  // was given and skip the lock and the lookup when asked for the same key again.
  thread_local FormatterKey lastKey;
  thread_local const NumberFormatter* lastFormatter = nullptr;
  if (lastFormatter != nullptr && key == lastKey) return *lastFormatter;
  FormatterCache& shared = cache();
  support::LockGuard guard(shared.lock);
  auto found = shared.formatters.find(key);
  if (found == shared.formatters.end()) {
    auto formatter = makeFormatter(key);
    found = shared.formatters.emplace(key, std::move(formatter)).first;
  }
  lastKey = std::move(key);
  lastFormatter = found->second.get();
  return *lastFormatter;
}

std::size_t PriceFormatter::cachedFormatterCount() {
  FormatterCache& shared = cache();
  support::LockGuard guard(shared.lock);
  return shared.formatters.size();
}

std::optional<std::string> PriceFormatter::string(const Decimal& price) const {
  // Formatting happens outside every lock: a cached formatter is safe to share.
  const NumberFormatter& numberFormatter = formatter(locale(), roundingMode());
  auto text = numberFormatter.string(price);
  if (!text) return std::nullopt;
  return replacingCurrencySymbolIfNeeded(std::move(*text));
}

}  // namespace velquist::storekit
