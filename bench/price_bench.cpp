// Price display and price arithmetic against doing the same work directly.
//
// - displayPrice warm: formatting through the shared price formatter and its cache, against
//   one pre-built ICU formatter formatting the same decimal text.
// - displayPrice new locale: the first price for a locale never seen (the cache makes and
//   configures a formatter), against building and configuring the ICU formatter directly.
//
// Each pair runs interleaved and is timed by hand (see `interleaved` in ratio_reporter.h).
// - convertPrice and discount: a weekly price restated per year and the saving of a yearly
//   plan against it, against the same arithmetic in Boost's cpp_dec_float_50.

#include <unicode/decimfmt.h>
#include <unicode/locid.h>
#include <unicode/numfmt.h>

#include <chrono>
#include <memory>
#include <string>

#include "ratio_reporter.h"
#include "velquist/storekit/product/product.h"

#if VELQUIST_HAVE_BOOST
#include <boost/multiprecision/cpp_dec_float.hpp>
#endif

namespace {

using velquist::foundation::Decimal;
using velquist::foundation::FloatingPointRoundingRule;
using velquist::foundation::Locale;
using velquist::storekit::Product;

std::unique_ptr<icu::DecimalFormat> makeIcuFormatter(const std::string& identifier) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::NumberFormat> format(
      icu::NumberFormat::createInstance(icu::Locale(identifier.c_str()), UNUM_CURRENCY, status));
  auto* decimal = dynamic_cast<icu::DecimalFormat*>(format.get());
  if (U_FAILURE(status) || decimal == nullptr) std::abort();
  format.release();
  decimal->setRoundingMode(icu::DecimalFormat::kRoundDown);
  decimal->setMinimumFractionDigits(2);
  return std::unique_ptr<icu::DecimalFormat>(decimal);
}

std::string icuFormat(const icu::DecimalFormat& format, const std::string& number) {
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString text;
  format.format(icu::StringPiece(number.c_str()), text, nullptr, status);
  std::string utf8;
  text.toUTF8String(utf8);
  return utf8;
}

const Decimal& samplePrice() {
  static const Decimal price = *Decimal::fromString("1234.99");
  return price;
}

void displayPriceWarm(benchmark::State& state) {
  const Locale locale("de_DE");
  const auto format = makeIcuFormatter("de_DE");
  velquist::storekit::displayPrice(samplePrice(), locale, FloatingPointRoundingRule::down);
  velquist::bench::interleaved(
      state, 200,
      [&] {
        benchmark::DoNotOptimize(
            velquist::storekit::displayPrice(samplePrice(), locale, FloatingPointRoundingRule::down));
      },
      [&] { benchmark::DoNotOptimize(icuFormat(*format, samplePrice().description())); });
}

// Every call asks for a locale identifier not seen before (a private-use keyword makes it
// new without changing what ICU loads), so every call builds a formatter.
std::string freshIdentifier() {
  static int counter = 0;
  return "de_DE@x=n" + std::to_string(++counter);
}

void displayPriceNewLocale(benchmark::State& state) {
  velquist::bench::interleaved(
      state, 1,
      [] {
        benchmark::DoNotOptimize(velquist::storekit::displayPrice(samplePrice(), Locale(freshIdentifier()),
                                                                  FloatingPointRoundingRule::down));
      },
      [] {
        const auto format = makeIcuFormatter(freshIdentifier());
        benchmark::DoNotOptimize(icuFormat(*format, samplePrice().description()));
      });
}

#if VELQUIST_HAVE_BOOST
using BoostDecimal = boost::multiprecision::cpp_dec_float_50;

// Half to even at two places.
BoostDecimal roundBankers2(const BoostDecimal& value) {
  const BoostDecimal scaled = value * 100;
  BoostDecimal whole = floor(scaled);
  const BoostDecimal fraction = scaled - whole;
  if (fraction > BoostDecimal("0.5") || (fraction == BoostDecimal("0.5") && fmod(whole, 2) != 0)) whole += 1;
  return whole / 100;
}

void convertAndDiscount(benchmark::State& state) {
  const Product weekly(Product::ID("weekly"), "", "", *Decimal::fromString("4.99"), Locale("en_US"), "",
                       Product::SubscriptionInfo{.subscriptionPeriod = Product::SubscriptionPeriod::week(1)});
  const Product yearly(Product::ID("yearly"), "", "", *Decimal::fromString("39.99"), Locale("en_US"), "",
                       Product::SubscriptionInfo{.subscriptionPeriod = Product::SubscriptionPeriod::year(1)});
  const BoostDecimal weeklyPrice("4.99");
  const BoostDecimal yearlyPrice("39.99");
  const BoostDecimal weeksPerYear(52.1786);
  const BoostDecimal one(1);
  velquist::bench::interleaved(
      state, 200,
      [&] {
        benchmark::DoNotOptimize(weekly.subscription->subscriptionPeriod.convertPrice(
            weekly.price, Product::SubscriptionPeriod::year(1)));
        benchmark::DoNotOptimize(yearly.discount(weekly));
      },
      [&] {
        // The weekly price per year (as convertPrice), then the yearly plan's saving (as
        // discount: both restated per year, the yearly one by the day-count ratio 336 / 336).
        const BoostDecimal weeklyPerYear = weeklyPrice / 1 * weeksPerYear * 1;
        benchmark::DoNotOptimize(weeklyPerYear);
        const BoostDecimal yearlyPerYear = yearlyPrice * BoostDecimal(336.0 / 336.0);
        const BoostDecimal otherPerYear = weeklyPrice / 1 * weeksPerYear * 1;
        benchmark::DoNotOptimize(one - roundBankers2(yearlyPerYear / otherPerYear));
      });
}
BENCHMARK(convertAndDiscount)->Name("convertPrice and discount");
#endif

BENCHMARK(displayPriceWarm)->Name("displayPrice warm cache");
BENCHMARK(displayPriceNewLocale)->Name("displayPrice new locale")->Iterations(3000);

}  // namespace

int main(int argc, char** argv) {
  return velquist::bench::runWithRatios(argc, argv,
                                        {
                                            {"displayPrice warm cache", 1.3, true},
                                            {"displayPrice new locale", 1.1, true},
                                            {"convertPrice and discount", 5.0, false},
                                        });
}
