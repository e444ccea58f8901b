// The period style that follows each language's CLDR plural rules, against ICU's own unit
// formatting done directly.
//
// - plural period first text: the first text in a locale never seen (the style makes and
//   keeps an ICU unit formatter), against making ICU's unit formatter and formatting once.
// - plural period warm: a text in the current locale with its formatter kept, against one
//   ready ICU formatter formatting the same number and unit into UTF-8.
//
// Each pair runs interleaved and is timed by hand (see `interleaved` in ratio_reporter.h).

#include <unicode/measunit.h>
#include <unicode/numberformatter.h>

#include <chrono>
#include <string>

#include "ratio_reporter.h"
#include "velquist/foundation/locale.h"
#include "velquist/storekit/formatting/plural_period_format_style.h"

namespace {

using velquist::foundation::Locale;
using Period = velquist::storekit::Product::SubscriptionPeriod;
using Style = Period::PluralFormatStyle;

icu::number::LocalizedNumberFormatter icuDayFormatter(const std::string& identifier) {
  return icu::number::NumberFormatter::withLocale(icu::Locale(identifier.c_str()))
      .unit(icu::MeasureUnit::getDay())
      .unitWidth(UNUM_UNIT_WIDTH_FULL_NAME);
}

std::string icuFormat(const icu::number::LocalizedNumberFormatter& formatter, std::int64_t count) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::UnicodeString text = formatter.formatInt(count, status).toString(status);
  std::string utf8;
  text.toUTF8String(utf8);
  return utf8;
}

// Every call asks for a locale identifier not seen before (a private-use keyword makes it
// new without changing what ICU loads), so every call makes a formatter.
std::string freshIdentifier() {
  static int counter = 0;
  return "ru_RU@x=n" + std::to_string(++counter);
}

void firstText(benchmark::State& state) {
  const Style style = Style().valueDisplayStrategy(velquist::storekit::formatting::ValueDisplayStrategy::always);
  velquist::bench::interleaved(
      state, 1, [&] { benchmark::DoNotOptimize(style.format(Period::day(21), Locale(freshIdentifier()))); },
      [] { benchmark::DoNotOptimize(icuFormat(icuDayFormatter(freshIdentifier()), 21)); });
}

void warmText(benchmark::State& state) {
  Locale::setCurrent(Locale("ru_RU"));
  const Style style;
  const auto formatter = icuDayFormatter("ru_RU");
  for (int i = 0; i < 10; ++i) {  // both past ICU's first, uncompiled calls
    benchmark::DoNotOptimize(style.format(Period::day(21)));
    benchmark::DoNotOptimize(icuFormat(formatter, 21));
  }
  velquist::bench::interleaved(
      state, 200, [&] { benchmark::DoNotOptimize(style.format(Period::day(21))); },
      [&] { benchmark::DoNotOptimize(icuFormat(formatter, 21)); });
  Locale::setCurrent(std::nullopt);
}

BENCHMARK(warmText)->Name("plural period warm");
BENCHMARK(firstText)->Name("plural period first text")->Iterations(3000);

}  // namespace

int main(int argc, char** argv) {
  return velquist::bench::runWithRatios(argc, argv,
                                        {
                                            {"plural period warm", 1.5, true},
                                            {"plural period first text", 1.2, true},
                                        });
}
