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

// A product priced in en_US; an empty price is NaN, which has no price text.
Product product(const char* price, std::optional<Period> period) {
  std::optional<Product::SubscriptionInfo> subscription;
  if (period) subscription = Product::SubscriptionInfo{std::nullopt, "group", *period, {}, false};
  const Decimal amount = *price ? *Decimal::fromString(price) : Decimal::nan();
  return Product(Product::ID("p"), "", "", amount, Locale("en_US"), "", subscription);
}

// Sets the language of the words; prices always use the product's own locale.
class PriceFormatStyle : public ::testing::Test {
 protected:
  void use(const char* locale) { Locale::setCurrent(Locale(locale)); }
  void TearDown() override { Locale::setCurrent(std::nullopt); }
};

TEST_F(PriceFormatStyle, JoinsThePresentPartsByTheSeparatorAndUnitStyle) {
  use("ru_RU");
  const Product weekly = product("4.99", Period::week(1));
  const Price price = Product::FormatStyle::price();
  const Price omitted = price.separator(Price::Separator::omitted);
  const Price noPeriod = price.subscriptionPeriodStyle(Price::SubscriptionPeriodStyle::omitted);
  const auto perYear = Product::FormatStyle::price(Period::year(1));
  // The text holds the price part and the joint; the word, if any, is the period part.
  const struct { Product product; Price style; const char* text; Word word; } cases[] = {
      {product("9.99", std::nullopt), price, "$9.99", nullptr},
      {product("", std::nullopt), price, "", nullptr},
      {weekly, price, "$4.99 / ", W::week},
      {weekly, price.subscriptionPeriodUnitStyle(UnitStyle::shortened), "$4.99/", W::Week::compactName},
      {weekly, price.subscriptionPeriodUnitStyle(UnitStyle::recurrent), "$4.99 / ", W::Week::recurrent},
      {weekly, omitted.subscriptionPeriodUnitStyle(UnitStyle::recurrent), "$4.99 ", W::Week::recurrent},
      {weekly, omitted.subscriptionPeriodUnitStyle(UnitStyle::shortened), "$4.99 ", W::Week::compactName},
      {product("19.99", Period::month(3)), price, "$19.99 / 3 ", W::Month::plural},
      {weekly, noPeriod, "$4.99", nullptr},
      // Restated: 4.99 x 52.1786 = 260.371214..., rounded by the style's rule.
      {weekly, perYear, "$260.37 / ", W::year},
      {weekly, perYear.roundingRule(FloatingPointRoundingRule::up), "$260.38 / ", W::year},
      {product("", Period::week(1)), price, "", W::week},
      {product("", Period::week(1)), noPeriod, "", nullptr},
  };
  for (const auto& [p, style, text, word] : cases) EXPECT_EQ(p.formatted(style), text + (word ? word() : "")) << text;
  EXPECT_EQ(weekly.formatted(omitted.subscriptionPeriodUnitStyle(UnitStyle::recurrent)), "$4.99 еженедельно");
}

TEST(PriceFormatStyleValue, FactoryModifiersLocaleAndHashing) {
  const Price price = Product::FormatStyle::price();
  EXPECT_EQ(price, Price(FloatingPointRoundingRule::down, Price::Separator::slash, std::nullopt,
                         Price::SubscriptionPeriodStyle::automatic, UnitStyle::complete));
  EXPECT_EQ(price.locale(Locale("de_DE")), price);
  testing::expectHashAgreesWithEquality<Price>({price, Product::FormatStyle::price(std::nullopt),
                                                price.roundingRule(FloatingPointRoundingRule::up)});
}

TEST_F(PriceFormatStyle, OnlyFreeTrialsHaveAnOfferLineAndPaymentModesHaveNames) {
  use("ru_RU");  // plural and plural2 differ
  const auto offer = [](PaymentMode mode, Period period) {
    return Offer{std::nullopt, Offer::OfferType::introductory, Decimal(0), Locale("en_US"), "$0.00", period, mode};
  };
  // The unit word handed to the free-trial sentence; none: the empty text.
  const std::pair<Offer, Word> cases[] = {
      {offer(PaymentMode::payAsYouGo, Period::day(3)), nullptr},
      {offer(PaymentMode::payUpFront, Period::day(3)), nullptr},
      {offer(PaymentMode::freeTrial, Period::day(3)), W::Day::plural},
      {offer(PaymentMode::freeTrial, Period::day(7)), W::Day::plural2},
      {offer(PaymentMode::freeTrial, Period::week(1)), W::week},
  };
  for (const auto& [o, word] : cases) {
    const std::string expected = word ? OfferWords::freeTrial(o.period.value, word()) : "";
    EXPECT_EQ(o.formatted(), expected) << o.period.analyticsValue();
    EXPECT_EQ(o.formatted(Offer::FormatStyle()), expected);
  }
  namespace Mode = OfferWords::PaymentMode;
  for (const auto& [mode, name] : {std::pair{PaymentMode::payAsYouGo, &Mode::payAsYouGo},
                                   std::pair{PaymentMode::payUpFront, &Mode::payUpFront},
                                   std::pair{PaymentMode::freeTrial, &Mode::freeTrial}}) {
    EXPECT_EQ(formatted(mode), name());
    EXPECT_EQ(formatted(mode, Offer::PaymentModeFormatStyle()), name());
  }
}

}  // namespace
}  // namespace velquist::storekit
