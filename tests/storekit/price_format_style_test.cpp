#include "velquist/storekit/formatting/price_format_style.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "common/hash_testing.h"
#include "velquist/coreui/l10n.h"
#include "velquist/storekit/formatting/offer_format_style.h"

namespace velquist::storekit {
namespace {

using formatting::UnitStyle;
using foundation::FloatingPointRoundingRule;
using foundation::Locale;
using Period = Product::SubscriptionPeriod;
using Price = Product::FormatStyle::Price;
using Offer = Product::SubscriptionOffer;
using PaymentMode = Offer::PaymentMode;
using Word = std::string (*)();
namespace W = coreui::L10n::Product::SubscriptionPeriod::Unit;
namespace OfferWords = coreui::L10n::Product::SubscriptionOffer;

static_assert(!std::is_default_constructible_v<Product::FormatStyle>, "a namespace only");

Product product(const char* price, std::optional<Period> period) {
  std::optional<Product::SubscriptionInfo> subscription;
  if (period) subscription = Product::SubscriptionInfo{std::nullopt, "group", *period, {}, false};
  const Decimal amount = *price ? *Decimal::fromString(price) : Decimal::nan();  // NaN has no price text
  return Product(Product::ID("p"), "", "", amount, Locale("en_US"), "", subscription);
}

// Sets the language of the words for one test; prices always use the product's en_US.
class WithLanguage : public ::testing::Test {
 protected:
  void use(const char* locale) { Locale::setCurrent(Locale(locale)); }
  void TearDown() override { Locale::setCurrent(std::nullopt); }
};
using PriceFormatStyle = WithLanguage;
using OfferFormatStyle = WithLanguage;

TEST_F(PriceFormatStyle, JoinsThePresentPartsByTheSeparatorAndUnitStyle) {
  use("en_US");
  const Product weekly = product("4.99", Period::week(1));
  const Price price = Product::FormatStyle::price();
  const Price omitted = price.separator(Price::Separator::omitted);
  const auto perYear = Product::FormatStyle::price(Period::year(1));
  const struct {
    Product product;
    Price style;
    const char* text;  // the price part and the joint
    Word word;         // the period part, if any
  } cases[] = {
      {product("9.99", std::nullopt), price, "$9.99", nullptr},
      {product("9.99", std::nullopt), omitted.subscriptionPeriodUnitStyle(UnitStyle::shortened), "$9.99", nullptr},
      {product("", std::nullopt), price, "", nullptr},
      {weekly, price, "$4.99 / ", W::week},
      {weekly, price.subscriptionPeriodUnitStyle(UnitStyle::shortened), "$4.99/", W::Week::compactName},
      {weekly, price.subscriptionPeriodUnitStyle(UnitStyle::recurrent), "$4.99 / ", W::Week::recurrent},
      {weekly, omitted.subscriptionPeriodUnitStyle(UnitStyle::recurrent), "$4.99 ", W::Week::recurrent},
      {weekly, omitted.subscriptionPeriodUnitStyle(UnitStyle::shortened), "$4.99 ", W::Week::compactName},
      {product("19.99", Period::month(3)), price, "$19.99 / 3 ", W::Month::plural},
      {weekly, price.subscriptionPeriodStyle(Price::SubscriptionPeriodStyle::omitted), "$4.99", nullptr},
      // Restated: 4.99 x 52.1786 = 260.371214..., rounded by the style's rule.
      {weekly, perYear, "$260.37 / ", W::year},
      {weekly, perYear.roundingRule(FloatingPointRoundingRule::up), "$260.38 / ", W::year},
      {product("19.99", Period::month(3)), Product::FormatStyle::price(Period::month(1)), "$6.66 / ", W::month},
      // Without a price text the period stands alone.
      {product("", Period::week(1)), price, "", W::week},
      {product("", Period::week(1)), price.subscriptionPeriodStyle(Price::SubscriptionPeriodStyle::omitted), "",
       nullptr},
  };
  for (const auto& c : cases) {
    const std::string expected = c.text + (c.word ? c.word() : "");
    EXPECT_EQ(c.product.formatted(c.style), expected);
  }
  // Literal rows, and the words following the current language.
  EXPECT_EQ(weekly.formatted(price), "$4.99 / week");
  EXPECT_EQ(weekly.formatted(price.subscriptionPeriodUnitStyle(UnitStyle::shortened)), "$4.99/wk");
  use("ru_RU");
  EXPECT_EQ(weekly.formatted(omitted.subscriptionPeriodUnitStyle(UnitStyle::recurrent)), "$4.99 еженедельно");
}

TEST(PriceFormatStyleValue, FactoryModifiersLocaleAndHashing) {
  const Price price = Product::FormatStyle::price();
  EXPECT_EQ(price, Price(FloatingPointRoundingRule::down, Price::Separator::slash, std::nullopt,
                         Price::SubscriptionPeriodStyle::automatic, UnitStyle::complete));
  EXPECT_EQ(Product::FormatStyle::price(Period::month(1)).subscriptionPeriod(), Period::month(1));
  EXPECT_EQ(price.roundingRule(FloatingPointRoundingRule::up).roundingRule(), FloatingPointRoundingRule::up);
  EXPECT_EQ(price.separator(Price::Separator::omitted).separator(Price::Separator::slash), price);
  EXPECT_EQ(price.locale(Locale("de_DE")), price);

  testing::expectHashAgreesWithEquality<Price>({
      price,
      Product::FormatStyle::price(std::nullopt),
      Product::FormatStyle::price(Period::year(1)),
      Product::FormatStyle::price(Period::day(336)),
      price.roundingRule(FloatingPointRoundingRule::toNearestOrEven),
      price.separator(Price::Separator::omitted),
      price.subscriptionPeriodStyle(Price::SubscriptionPeriodStyle::omitted),
      price.subscriptionPeriodUnitStyle(UnitStyle::shortened),
  });
  testing::expectHashAgreesWithEquality<Offer::FormatStyle>({Offer::FormatStyle(), Offer::FormatStyle()});
  testing::expectHashAgreesWithEquality<Offer::PaymentModeFormatStyle>(
      {Offer::PaymentModeFormatStyle(), Offer::PaymentModeFormatStyle()});
}

TEST_F(OfferFormatStyle, OnlyFreeTrialsHaveALineAndPaymentModesHaveNames) {
  use("ru_RU");  // plural and plural2 differ
  const auto offer = [](PaymentMode mode, Period period) {
    return Offer{std::nullopt, Offer::OfferType::introductory, Decimal(0), Locale("en_US"), "$0.00", period, mode};
  };
  const struct {
    Offer offer;
    Word word;  // the unit word handed to the free-trial sentence; none: the empty text
  } cases[] = {
      {offer(PaymentMode::payAsYouGo, Period::day(3)), nullptr},
      {offer(PaymentMode::payUpFront, Period::day(3)), nullptr},
      {offer(PaymentMode::freeTrial, Period::day(3)), W::Day::plural},
      {offer(PaymentMode::freeTrial, Period::day(7)), W::Day::plural2},
      {offer(PaymentMode::freeTrial, Period::week(1)), W::week},
  };
  for (const auto& c : cases) {
    const std::string expected = c.word ? OfferWords::freeTrial(c.offer.period.value, c.word()) : "";
    EXPECT_EQ(c.offer.formatted(), expected) << c.offer.period.analyticsValue();
    EXPECT_EQ(c.offer.formatted(Offer::FormatStyle()), expected);
  }

  const std::pair<PaymentMode, Word> modes[] = {
      {PaymentMode::payAsYouGo, OfferWords::PaymentMode::payAsYouGo},
      {PaymentMode::payUpFront, OfferWords::PaymentMode::payUpFront},
      {PaymentMode::freeTrial, OfferWords::PaymentMode::freeTrial},
  };
  for (const auto& [mode, name] : modes) {
    EXPECT_EQ(formatted(mode), name());
    EXPECT_EQ(formatted(mode, Offer::PaymentModeFormatStyle()), name());
  }

  use("en_US");
  EXPECT_EQ(offer(PaymentMode::freeTrial, Period::day(3)).formatted(), "3 days free");
}

}  // namespace
}  // namespace velquist::storekit
