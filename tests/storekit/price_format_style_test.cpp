#include "velquist/storekit/formatting/price_format_style.h"

#include <gtest/gtest.h>

#include <functional>
#include <type_traits>

#include "common/hash_testing.h"
#include "velquist/coreui/l10n.h"
#include "velquist/storekit/formatting/offer_format_style.h"

namespace velquist::storekit {
namespace {

using foundation::FloatingPointRoundingRule;
using foundation::Locale;
using formatting::UnitStyle;
using Period = Product::SubscriptionPeriod;
using Price = Product::FormatStyle::Price;
using Separator = Price::Separator;
using PeriodStyle = Price::SubscriptionPeriodStyle;
using Offer = Product::SubscriptionOffer;
using PaymentMode = Offer::PaymentMode;
namespace W = coreui::L10n::Product::SubscriptionPeriod::Unit;
namespace OfferWords = coreui::L10n::Product::SubscriptionOffer;

static_assert(!std::is_default_constructible_v<Product::FormatStyle>, "a namespace only");

Product product(Decimal price, std::optional<Period> period) {
  std::optional<Product::SubscriptionInfo> subscription;
  if (period) {
    subscription = Product::SubscriptionInfo{.introductoryOffer = std::nullopt,
                                             .subscriptionGroupID = "g",
                                             .subscriptionPeriod = *period,
                                             .promotionalOffers = {},
                                             .isEligibleForIntroOffer = false};
  }
  return Product(Product::ID("p"), "", "", price, Locale("en_US"), "", subscription);
}

Decimal dec(const char* text) { return *Decimal::fromString(text); }

// The period words are English here; the price is always in the product's en_US locale.
class PriceFormatStyle : public ::testing::Test {
 protected:
  void SetUp() override { Locale::setCurrent(Locale("en_US")); }
  void TearDown() override { Locale::setCurrent(std::nullopt); }
};

TEST_F(PriceFormatStyle, JoinsThePresentPartsByTheSeparatorAndUnitStyle) {
  const Product weekly = product(dec("4.99"), Period::week(1));
  const Product quarterly = product(dec("19.99"), Period::month(3));
  const Product lifetime = product(dec("9.99"), std::nullopt);
  const Product unpriced = product(Decimal::nan(), Period::week(1));  // no price text
  const Price price = Product::FormatStyle::price();
  const struct {
    const char* name;
    Product product;
    Price style;
    std::function<std::string()> expected;
  } cases[] = {
      {"no subscription: price alone", lifetime, price, [] { return std::string("$9.99"); }},
      {"no subscription, shortened", lifetime, price.subscriptionPeriodUnitStyle(UnitStyle::shortened),
       [] { return std::string("$9.99"); }},
      {"no subscription, no price", product(Decimal::nan(), std::nullopt), price, [] { return std::string(); }},
      {"slash", weekly, price, [] { return "$4.99 / " + W::week(); }},
      {"slash, shortened", weekly, price.subscriptionPeriodUnitStyle(UnitStyle::shortened),
       [] { return "$4.99/" + W::Week::compactName(); }},
      {"slash, recurrent", weekly, price.subscriptionPeriodUnitStyle(UnitStyle::recurrent),
       [] { return "$4.99 / " + W::Week::recurrent(); }},
      {"omitted, recurrent", weekly,
       price.separator(Separator::omitted).subscriptionPeriodUnitStyle(UnitStyle::recurrent),
       [] { return "$4.99 " + W::Week::recurrent(); }},
      {"omitted, shortened", weekly,
       price.separator(Separator::omitted).subscriptionPeriodUnitStyle(UnitStyle::shortened),
       [] { return "$4.99 " + W::Week::compactName(); }},
      {"several units", quarterly, price, [] { return "$19.99 / 3 " + W::Month::plural(); }},
      {"period omitted", weekly, price.subscriptionPeriodStyle(PeriodStyle::omitted),
       [] { return std::string("$4.99"); }},
      // 4.99 x 52.1786 = 260.371214..., rounded by the style's rule.
      {"restated per year", weekly, Product::FormatStyle::price(Period::year(1)),
       [] { return "$260.37 / " + W::year(); }},
      {"restated, rounding up", weekly, Product::FormatStyle::price(Period::year(1)).roundingRule(FloatingPointRoundingRule::up),
       [] { return "$260.38 / " + W::year(); }},
      {"restated per month", quarterly, Product::FormatStyle::price(Period::month(1)),
       [] { return "$6.66 / " + W::month(); }},
      {"no price text: period alone", unpriced, price, [] { return W::week(); }},
      {"no price text, period omitted", unpriced, price.subscriptionPeriodStyle(PeriodStyle::omitted),
       [] { return std::string(); }},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.style.format(c.product), c.expected()) << c.name;
    EXPECT_EQ(c.product.formatted(c.style), c.expected()) << c.name;
  }
}

TEST(PriceFormatStyleWords, LiteralTextsInEnglishAndRussian) {
  const Product weekly = product(dec("4.99"), Period::week(1));
  const Price price = Product::FormatStyle::price();
  const struct {
    const char* language;
    Price style;
    const char* expected;
  } cases[] = {
      {"en_US", price, "$4.99 / week"},
      {"en_US", price.subscriptionPeriodUnitStyle(UnitStyle::shortened), "$4.99/wk"},
      {"en_US", price.separator(Separator::omitted).subscriptionPeriodUnitStyle(UnitStyle::recurrent),
       "$4.99 weekly"},
      {"ru_RU", price, "$4.99 / неделя"},  // the words follow the current language, the price its own locale
  };
  for (const auto& c : cases) {
    Locale::setCurrent(Locale(c.language));
    EXPECT_EQ(c.style.format(weekly), c.expected) << c.language;
  }
  Locale::setCurrent(std::nullopt);
}

TEST(PriceFormatStyleValue, FactoryModifiersAndLocale) {
  const Price price = Product::FormatStyle::price();
  EXPECT_EQ(price, Price(FloatingPointRoundingRule::down, Separator::slash, std::nullopt, PeriodStyle::automatic,
                         UnitStyle::complete));
  EXPECT_EQ(Product::FormatStyle::price(Period::month(1)).subscriptionPeriod(), Period::month(1));
  EXPECT_EQ(price.roundingRule(FloatingPointRoundingRule::up).roundingRule(), FloatingPointRoundingRule::up);
  EXPECT_EQ(price.separator(Separator::omitted).separator(), Separator::omitted);
  EXPECT_EQ(price.subscriptionPeriodStyle(PeriodStyle::omitted).subscriptionPeriodStyle(), PeriodStyle::omitted);
  EXPECT_EQ(price.subscriptionPeriodUnitStyle(UnitStyle::recurrent).subscriptionPeriodUnitStyle(),
            UnitStyle::recurrent);
  // Each modifier leaves the other fields alone.
  EXPECT_EQ(price.separator(Separator::omitted).separator(Separator::slash), price);
  EXPECT_EQ(price.locale(Locale("de_DE")), price);

  testing::expectHashAgreesWithEquality<Price>({
      price,
      Product::FormatStyle::price(std::nullopt),
      Product::FormatStyle::price(Period::year(1)),
      Product::FormatStyle::price(Period::day(336)),
      price.roundingRule(FloatingPointRoundingRule::toNearestOrEven),
      price.separator(Separator::omitted),
      price.subscriptionPeriodStyle(PeriodStyle::omitted),
      price.subscriptionPeriodUnitStyle(UnitStyle::shortened),
  });
}

TEST(SeparatorAndPeriodStyle, RawValuesAreExact) {
  EXPECT_EQ(rawValue(Separator::slash), "/");
  EXPECT_EQ(rawValue(Separator::omitted), "");
  EXPECT_EQ(support::fromRawValue<Separator>(std::string_view("")), Separator::omitted);
  EXPECT_EQ(support::fromRawValue<Separator>(std::string_view(" / ")), std::nullopt);
  EXPECT_EQ(support::fromRawValue<PeriodStyle>(std::string_view("omitted")), PeriodStyle::omitted);
  EXPECT_EQ(support::fromRawValue<PeriodStyle>(std::string_view("Automatic")), std::nullopt);
}

class OfferFormatStyle : public ::testing::Test {
 protected:
  void SetUp() override { Locale::setCurrent(Locale("ru_RU")); }  // plural and plural2 differ
  void TearDown() override { Locale::setCurrent(std::nullopt); }
};

TEST_F(OfferFormatStyle, OnlyFreeTrialsHaveALine) {
  const auto offer = [](PaymentMode mode, Period period) {
    return Offer{.id = std::nullopt,
                 .type = Offer::OfferType::introductory,
                 .price = Decimal(0),
                 .priceLocale = Locale("en_US"),
                 .displayPrice = "$0.00",
                 .period = period,
                 .paymentMode = mode};
  };
  const struct {
    Offer offer;
    std::function<std::string()> expected;
  } cases[] = {
      {offer(PaymentMode::payAsYouGo, Period::day(3)), [] { return std::string(); }},
      {offer(PaymentMode::payUpFront, Period::day(3)), [] { return std::string(); }},
      {offer(PaymentMode::freeTrial, Period::day(3)), [] { return OfferWords::freeTrial(3, W::Day::plural()); }},
      {offer(PaymentMode::freeTrial, Period::day(7)), [] { return OfferWords::freeTrial(7, W::Day::plural2()); }},
      {offer(PaymentMode::freeTrial, Period::week(1)), [] { return OfferWords::freeTrial(1, W::week()); }},
      {offer(PaymentMode::freeTrial, Period::month(0)), [] { return OfferWords::freeTrial(0, W::month()); }},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Offer::FormatStyle().format(c.offer), c.expected()) << c.offer.period.analyticsValue();
    EXPECT_EQ(c.offer.formatted(), c.expected());
    EXPECT_EQ(c.offer.formatted(Offer::FormatStyle()), c.expected());
  }
  Locale::setCurrent(Locale("en_US"));
  EXPECT_EQ(offer(PaymentMode::freeTrial, Period::day(3)).formatted(), "3 days free");
}

TEST_F(OfferFormatStyle, PaymentModeNames) {
  const struct {
    PaymentMode mode;
    std::string (*expected)();
  } cases[] = {
      {PaymentMode::payAsYouGo, OfferWords::PaymentMode::payAsYouGo},
      {PaymentMode::payUpFront, OfferWords::PaymentMode::payUpFront},
      {PaymentMode::freeTrial, OfferWords::PaymentMode::freeTrial},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Offer::PaymentModeFormatStyle().format(c.mode), c.expected());
    EXPECT_EQ(formatted(c.mode), c.expected());
    EXPECT_EQ(formatted(c.mode, Offer::PaymentModeFormatStyle()), c.expected());
  }
  testing::expectHashAgreesWithEquality<Offer::FormatStyle>({Offer::FormatStyle(), Offer::FormatStyle()});
  testing::expectHashAgreesWithEquality<Offer::PaymentModeFormatStyle>(
      {Offer::PaymentModeFormatStyle(), Offer::PaymentModeFormatStyle()});
}

}  // namespace
}  // namespace velquist::storekit
