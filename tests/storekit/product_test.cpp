#include "velquist/storekit/product/product.h"

#include <gtest/gtest.h>

#include <limits>
#include <type_traits>

#include "common/hash_testing.h"
#include "velquist/support/dump.h"

namespace velquist::storekit {
namespace {

using Period = Product::SubscriptionPeriod;
using Unit = Period::Unit;
using Offer = Product::SubscriptionOffer;
using OfferType = Offer::OfferType;
using PaymentMode = Offer::PaymentMode;
using support::fromRawValue;

static_assert(!std::is_convertible_v<Product::ID, Offer::ID> && !std::is_convertible_v<Offer::ID, Product::ID> &&
              !std::is_convertible_v<std::string, Product::ID>, "identifiers are named explicitly and never mix");

Offer freeWeek() {
  return Offer{.id = std::nullopt,
               .type = OfferType::introductory,
               .price = Decimal(0),
               .priceLocale = Locale("en_US"),
               .displayPrice = "$0.00",
               .period = Period::week(1),
               .paymentMode = PaymentMode::freeTrial};
}

Product monthly() {
  return Product(Product::ID("pro.monthly"), "Pro Monthly", "All features, billed monthly", Decimal(999, -2),
                 Locale("en_US"), "$9.99",
                 Product::SubscriptionInfo{.introductoryOffer = freeWeek(),
                                           .subscriptionGroupID = "pro",
                                           .subscriptionPeriod = Period::month(1),
                                           .promotionalOffers = {},
                                           .isEligibleForIntroOffer = true});
}

Product lifetime() {
  return Product(Product::ID("pro.lifetime"), "Pro Forever", "Pay once", Decimal(4999, -2), Locale("de_DE"),
                 "49,99 €", std::nullopt);
}

TEST(SubscriptionPeriod, AnalyticsValueUsesSingularUnitAndRewritesOnlyASingleWeek) {
  const std::pair<Period, const char*> cases[] = {
      {Period::week(1), "7_day"},   {Period::week(2), "2_week"}, {Period::day(7), "7_day"},
      {Period::month(1), "1_month"}, {Period::month(3), "3_month"}, {Period::year(1), "1_year"},
      {Period::year(0), "0_year"},   {Period::day(-1), "-1_day"},  {Period::week(-1), "-1_week"},
  };
  for (const auto& [period, expected] : cases) EXPECT_EQ(period.analyticsValue(), expected) << expected;
}

TEST(SubscriptionPeriod, NumberOfDaysCountsFourWeekMonthsAndTwelveMonthYears) {
  constexpr auto max = std::numeric_limits<std::int64_t>::max();
  const std::pair<Period, std::int64_t> cases[] = {
      {Period::day(30), 30},     {Period::week(2), 14},     {Period::month(1), 28},
      {Period::month(3), 84},    {Period::year(1), 336},    {Period::week(-1), -7},
      {Period::day(max), max},   {Period::year(max / 336), max / 336 * 336},
  };
  for (const auto& [period, days] : cases) EXPECT_EQ(period.numberOfDays(), days) << period.analyticsValue();
}

TEST(SubscriptionPeriodDeathTest, NumberOfDaysOverflowStopsTheProcess) {
  const auto huge = std::numeric_limits<std::int64_t>::max() / 336 + 1;
  EXPECT_DEATH(Period::year(huge).numberOfDays(), "Fatal error: arithmetic overflow");
  EXPECT_DEATH(Period::week(std::numeric_limits<std::int64_t>::min()).numberOfDays(), "overflow");
  // Comparing periods counts days, so it traps as well.
  EXPECT_DEATH((void)(Period::month(huge * 12) < Period::day(1)), "overflow");
}

TEST(SubscriptionPeriod, OrderingComparesDaysWhileEqualityComparesFields) {
  const struct {
    Period a, b;
    bool equal, less, greater;
  } cases[] = {
      // Same length, different fields.
      {Period::week(1), Period::day(7), false, false, false},
      {Period::month(12), Period::year(1), false, false, false},
      // A month is 28 days and a year 336, so these come out shorter.
      {Period::month(1), Period::day(30), false, true, false},
      {Period::year(1), Period::day(365), false, true, false},
      {Period::year(2), Period::month(13), false, false, true},
      {Period::month(3), Period(3, Unit::month), true, false, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.a.analyticsValue() + " vs " + c.b.analyticsValue());
    EXPECT_EQ(c.a == c.b, c.equal);
    EXPECT_EQ(c.a < c.b, c.less);
    EXPECT_EQ(c.a > c.b, c.greater);
    EXPECT_EQ(c.a <= c.b, !c.greater);
    EXPECT_EQ(c.a >= c.b, !c.less);
  }
}

// Raw values are read back by exact, case-sensitive lookup (the decoding tests show more).
TEST(RawValues, LookupIsExactAndCaseSensitive) {
  EXPECT_EQ(fromRawValue<OfferType>(std::string_view("promotional")), OfferType::promotional);
  EXPECT_EQ(fromRawValue<PaymentMode>(std::string_view("free_trial ")), std::nullopt);
  EXPECT_EQ(fromRawValue<Unit>(std::int64_t{4}), std::nullopt);
}

TEST(Product, DerivedPropertiesFollowTheSubscription) {
  EXPECT_EQ(monthly().subscriptionPeriod(), Period::month(1));
  EXPECT_EQ(monthly().introductoryPrice(), freeWeek());
  Product withoutIntro = monthly();
  withoutIntro.subscription->introductoryOffer.reset();
  EXPECT_EQ(withoutIntro.introductoryPrice(), std::nullopt);
  EXPECT_EQ(lifetime().subscriptionPeriod(), std::nullopt);
  EXPECT_EQ(lifetime().introductoryPrice(), std::nullopt);
}

// Equality is field by field (a price at another scale is the same amount); the identifier
// alone does not make two products equal. The hash follows.
TEST(Product, EqualityIsFieldWiseAndHashAgrees) {
  Product withOffer = monthly();
  withOffer.promotionalOfferID = Offer::ID("winback");
  Product emptyOffer = monthly();
  emptyOffer.promotionalOfferID = Offer::ID("");
  Product otherScale = monthly();
  otherScale.price = Decimal::fromParts(false, 999000, -5);
  EXPECT_NE(withOffer, monthly());
  EXPECT_EQ(otherScale, monthly());
  testing::expectHashAgreesWithEquality(
      std::vector<Product>{monthly(), lifetime(), withOffer, emptyOffer, otherScale, monthly()});
  // An absent optional and a present empty one differ, in equality and in hash.
  EXPECT_NE(std::hash<Product>{}(monthly()), std::hash<Product>{}(emptyOffer));

  Offer zeroAtScale = freeWeek();
  zeroAtScale.price = Decimal::fromParts(false, 0, -2);
  Offer promotional = freeWeek();
  promotional.id = Offer::ID("winback");
  testing::expectHashAgreesWithEquality(std::vector<Offer>{freeWeek(), promotional, zeroAtScale});
  auto withPromotions = *monthly().subscription;
  withPromotions.promotionalOffers = {promotional, promotional};
  testing::expectHashAgreesWithEquality(std::vector<Product::SubscriptionInfo>{*monthly().subscription, withPromotions});
  testing::expectHashAgreesWithEquality(std::vector<Period>{Period::week(1), Period::day(7), Period(1, Unit::week)});
}

TEST(Product, DumpShowsEveryFieldWithNestedTypeNames) {
  Product product = monthly();
  product.promotionalOfferID = Offer::ID("winback");
  EXPECT_EQ(support::customDump(product), R"(Product(
  id: Tagged(rawValue: "pro.monthly"),
  displayName: "Pro Monthly",
  description: "All features, billed monthly",
  price: 9.99,
  priceLocale: Locale(en_US),
  displayPrice: "$9.99",
  subscription: Product.SubscriptionInfo(
    introductoryOffer: Product.SubscriptionOffer(
      id: nil,
      type: .introductory,
      price: 0,
      priceLocale: Locale(en_US),
      displayPrice: "$0.00",
      period: Product.SubscriptionPeriod(
        unit: .week,
        value: 1
      ),
      paymentMode: .freeTrial
    ),
    subscriptionGroupID: "pro",
    subscriptionPeriod: Product.SubscriptionPeriod(
      unit: .month,
      value: 1
    ),
    promotionalOffers: [],
    isEligibleForIntroOffer: true
  ),
  promotionalOfferID: Tagged(rawValue: "winback")
))");
  EXPECT_EQ(support::customDump(Unit::year), "Product.SubscriptionPeriod.Unit.year");
  EXPECT_EQ(support::customDump(PaymentMode::payUpFront), "Product.SubscriptionOffer.PaymentMode.payUpFront");
}

}  // namespace
}  // namespace velquist::storekit
