#include <gtest/gtest.h>

#include <thread>

#include "velquist/foundation/bundle.h"
#include "velquist/storekit/formatting/shared_formatters.h"
#include "velquist/storekit/product/product.h"

namespace velquist::storekit {
namespace {

using foundation::FloatingPointRoundingRule;
using Period = Product::SubscriptionPeriod;
using Unit = Period::Unit;
using Rule = FloatingPointRoundingRule;

Decimal dec(const char* text) { return *Decimal::fromString(text); }

Product product(const char* price, std::optional<Period> period, const char* locale = "en_US") {
  std::optional<Product::SubscriptionInfo> subscription;
  if (period) subscription = Product::SubscriptionInfo{.subscriptionGroupID = "g", .subscriptionPeriod = *period};
  return Product(Product::ID("p"), "", "", dec(price), Locale(locale), "", subscription);
}

TEST(ConvertPrice, MatchesThePlatformDigitForDigit) {
  const struct {
    Unit from, to;
    const char* perUnit;    // 9.99 charged per 1 unit
    const char* perThree;   // 4.99 charged per 3 units, restated for 1 unit
  } cases[] = {
      {Unit::day, Unit::week, "69.93", "11.64333333333333673984"},
      {Unit::day, Unit::month, "303.8658300000000511488", "50.593610000000008516266666666666666666"},
      {Unit::day, Unit::year, "3649.347", "607.61566666666666666666666666666666666"},
      {Unit::week, Unit::day, "1.4271428571428566167552", "0.2376190476190477188096"},
      {Unit::week, Unit::month, "43.40654999999998977024", "7.2271833333333316300799999999999999999"},
      {Unit::week, Unit::year, "521.2642140000001022976", "86.790404666666683699199999999999999999"},
      {Unit::month, Unit::week, "2.4975", "0.4158333333333332141056"},
      {Unit::month, Unit::year, "119.88", "19.96"},
      {Unit::year, Unit::month, "0.8324999999999997613056", "0.1386111111111111054336"},
      {Unit::year, Unit::week, "0.2081249999999999403264", "0.03465277777777777891328"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(description(c.from)) + " to " + std::string(description(c.to)));
    EXPECT_EQ(Period(c.from, 1).convertPrice(dec("9.99"), Period(c.to, 1)).description(), c.perUnit);
    EXPECT_EQ(Period(c.from, 3).convertPrice(dec("4.99"), Period(c.to, 1)).description(), c.perThree);
  }
  // The fixed factor applies per week, whatever the day counts say: not 1.00 x 48.
  EXPECT_EQ(Period::week(1).convertPrice(dec("1.00"), Period::year(1)).description(), "52.17860000000001024");
  EXPECT_EQ(Period::month(1).convertPrice(dec("1.00"), Period::year(1)), Decimal(12));
  EXPECT_EQ(Period::week(1).convertPrice(dec("7.00"), Period::day(1)),
            dec("7.00") * Decimal::fromDouble(1.0 / 7.0));
  EXPECT_EQ(Period::week(1).convertPrice(dec("4.99"), Period::year(2)).description(), "520.7424280000001021952");
  EXPECT_TRUE(Period::week(0).convertPrice(dec("4.99"), Period::year(1)).isNaN());  // decimal division by zero
}

TEST(Discount, ComparesYearlyPricesRoundedBankersToTwoPlaces) {
  const struct {
    Product mine, other;
    const char* expected;
  } cases[] = {
      {product("39.99", Period::year(1)), product("4.99", Period::week(1)), "0.85"},
      {product("59.99", Period::year(1)), product("9.99", Period::month(1)), "0.5"},
      {product("19.99", Period::month(3)), product("7.99", Period::month(1)), "0.17"},
      {product("0.99", Period::week(1)), product("2.99", Period::month(1)), "-0.44"},
      // Without a subscription on either side the plain prices compare; 0.125 rounds to even.
      {product("12.5", std::nullopt), product("100", std::nullopt), "0.88"},
      {product("12.5", Period::year(1)), product("100", std::nullopt), "0.88"},
      {product("0", Period::year(1)), product("4.99", Period::week(1)), "0"},
      {product("39.99", Period::year(1)), product("0", Period::week(1)), "0"},
      {product("-5", std::nullopt), product("10", std::nullopt), "0"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.mine.discount(c.other)->description(), c.expected)
        << c.mine.price.description() << " vs " << c.other.price.description();
  }
}

TEST(DisplayDiscount, FormatsThePercentageInTheCurrentLocale) {
  foundation::Locale::setCurrent(Locale("en_US"));
  EXPECT_EQ(product("39.99", Period::year(1)).displayDiscount(product("4.99", Period::week(1))), "85%");
  EXPECT_EQ(product("0", Period::year(1)).displayDiscount(product("4.99", Period::week(1))), "0%");
  EXPECT_EQ(product("0.99", Period::week(1)).displayDiscount(product("2.99", Period::month(1))), "-44%");
  foundation::Locale::setCurrent(std::nullopt);
}

TEST(DisplayPrice, RoundingRulesMapToFormatterModesIncludingTheOddRows) {
  const struct {
    Rule rule;
    std::string at985;
    std::string at975;  // a tie that half down and half even round apart
    std::string at987;
    std::string at981;
  } cases[] = {
      {Rule::toNearestOrAwayFromZero, "$9.99", "$9.98", "$9.99", "$9.98"},
      {Rule::toNearestOrEven, "$9.98", "$9.98", "$9.99", "$9.98"},
      {Rule::up, "$9.99", "$9.98", "$9.99", "$9.99"},
      {Rule::down, "$9.98", "$9.97", "$9.98", "$9.98"},
      {Rule::towardZero, "$9.98", "$9.97", "$9.99", "$9.98"},  // half down, not truncation
      {Rule::awayFromZero, "$9.99", "$9.98", "$9.99", "$9.99"},
      {static_cast<Rule>(99), "$9.99", "$9.98", "$9.99", "$9.99"},  // a rule not listed rounds up
  };
  const Locale us("en_US");
  for (const auto& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.rule));
    EXPECT_EQ(displayPrice(dec("9.985"), us, c.rule), c.at985);
    EXPECT_EQ(displayPrice(dec("9.975"), us, c.rule), c.at975);
    EXPECT_EQ(displayPrice(dec("9.987"), us, c.rule), c.at987);
    EXPECT_EQ(displayPrice(dec("9.981"), us, c.rule), c.at981);
  }
  // Each call leaves its own settings on the shared formatter for the next one to replace.
  EXPECT_EQ(displayPrice(dec("9.99"), Locale("de_DE"), Rule::down), "9,99\u00a0€");
  EXPECT_EQ(priceFormatter().locale(), Locale("de_DE"));
  EXPECT_EQ(displayPrice(dec("9.99"), us, Rule::up), "$9.99");
  EXPECT_EQ(priceFormatter().roundingMode(), PriceFormatter::RoundingMode::up);
  EXPECT_EQ(displayPrice(Decimal::nan(), us, Rule::down), std::nullopt);
}

TEST(PriceFormatter, AppliesTheRegionAndCurrencyChoices) {
  using Mode = PriceFormatter::RoundingMode;
  const struct {
    const char* locale;
    const char* price;
    const char* expected;
  } cases[] = {
      {"en_US", "9.99", "$9.99"},
      {"en_US", "-9.99", "-$9.99"},
      {"en_US", "1234.5", "$1234.50"},
      {"ru_RU", "199.5", "199,5₽"},  // the pattern's "." is the locale's decimal separator
      {"ru_RU", "-199.5", "-199,5₽"},
      {"en_RU", "199.5", "199.5₽"},
      {"ja_JP", "1000", "￥1,000"},
      {"en_IN", "10.5", "₹10.5"},
      {"en_IN", "1234567", "₹12,34,567"},
      {"de_DE", "10", "10,00\u00a0€"},
      {"fr_FR", "1234.5", "1\u202f234,50\u00a0€"},
      {"tr_TR", "9.99", "₺9,99"},
      {"en_PT@currency=EUR", "4.99", "€4.99"},
      {"de", "10", "10,00\u00a0XXX"},  // no region: two digits, and no currency to name
  };
  for (const auto& c : cases) {
    EXPECT_EQ(PriceFormatter(Locale(c.locale), Mode::down).string(dec(c.price)), c.expected) << c.locale;
  }
  const auto& first = PriceFormatter::formatter(Locale("en_US"), Mode::down);
  EXPECT_EQ(&first, &PriceFormatter::formatter(Locale("en_US"), Mode::down));
  EXPECT_NE(&first, &PriceFormatter::formatter(Locale("en_US"), Mode::halfEven));
  EXPECT_NE(&first, &PriceFormatter::formatter(Locale("en_GB"), Mode::down));
}

TEST(PriceFormatter, ReplacesTheLiraSignOnlyInsideTheSolvaneApplication) {
  const PriceFormatter lira(Locale("tr_TR"), PriceFormatter::RoundingMode::down);
  const struct {
    std::optional<foundation::JsonValue> info;
    const char* expected;
  } cases[] = {
      {foundation::parseJson(R"({"CFBundleIdentifier": "solvaneapp"})"), "TRY9,99"},
      {foundation::parseJson(R"({"CFBundleIdentifier": "SolvaneApp"})"), "₺9,99"},
      {std::nullopt, "₺9,99"},
  };
  for (const auto& c : cases) {
    foundation::Bundle::setMainInfoDictionary(c.info);
    EXPECT_EQ(lira.string(dec("9.99")), c.expected);
  }
  foundation::Bundle::setMainInfoDictionary(foundation::parseJson(R"({"CFBundleIdentifier": "solvaneapp"})"));
  EXPECT_EQ(PriceFormatter(Locale("en_US"), PriceFormatter::RoundingMode::down).string(dec("9.99")), "$9.99");
  foundation::Bundle::setMainInfoDictionary(std::nullopt);
}

TEST(PriceFormatter, SharedFormatterIsSafeToUseFromManyThreads) {
  // The settings of the shared formatter are not set and used atomically, so a thread may
  // format with another thread's locale; every text must still be one of the valid ones and
  // no access may race.
  const std::vector<std::pair<const char*, std::string>> locales = {
      {"en_US", "$4.99"}, {"de_DE", "4,99\u00a0€"}, {"ja_JP", "￥4"}, {"ru_RU", "4,99₽"}};
  std::vector<std::thread> threads;
  std::atomic<int> invalid = 0;
  for (const auto& [locale, ignored] : locales) {
    threads.emplace_back([&, id = std::string(locale)] {
      for (int i = 0; i < 200; ++i) {
        const auto text = displayPrice(dec("4.99"), Locale(id), Rule::down);
        const bool known = std::any_of(locales.begin(), locales.end(), [&](const auto& l) { return l.second == text; });
        if (!known) ++invalid;
        (void)PriceFormatter::formatter(Locale(id), PriceFormatter::RoundingMode::up).string(dec("1"));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(invalid.load(), 0);
}

}  // namespace
}  // namespace velquist::storekit
