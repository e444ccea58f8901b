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

static_assert(!std::is_convertible_v<Product::ID, Offer::ID>, "product and offer identifiers must not mix");
static_assert(!std::is_convertible_v<Offer::ID, Product::ID>, "product and offer identifiers must not mix");
static_assert(!std::is_assignable_v<Product::ID&, Offer::ID>, "product and offer identifiers must not mix");
static_assert(!std::is_convertible_v<std::string, Product::ID>, "an identifier is named explicitly");

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
  const struct {
    Period period;
    const char* expected;
  } cases[] = {
      {Period::week(1), "7_day"},    {Period::week(2), "2_week"},   {Period::day(7), "7_day"},
      {Period::month(1), "1_month"}, {Period::month(3), "3_month"}, {Period::year(1), "1_year"},
      {Period::year(0), "0_year"},   {Period::day(-1), "-1_day"},   {Period::week(-1), "-1_week"},
      {Period::week(0), "0_week"},   {Period::day(1), "1_day"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.period.analyticsValue(), c.expected) << support::customDump(c.period);
  }
}

TEST(SubscriptionPeriod, NumberOfDaysCountsFourWeekMonthsAndTwelveMonthYears) {
  const struct {
    Period period;
    std::int64_t days;
  } cases[] = {
      {Period::day(1), 1},     {Period::day(30), 30},    {Period::week(1), 7},
      {Period::week(2), 14},   {Period::month(1), 28},   {Period::month(3), 84},
      {Period::month(12), 336}, {Period::year(1), 336},  {Period::year(2), 672},
      {Period::year(0), 0},    {Period::week(-1), -7},
      {Period::day(std::numeric_limits<std::int64_t>::max()), std::numeric_limits<std::int64_t>::max()},
      {Period::year(std::numeric_limits<std::int64_t>::max() / 336),
       std::numeric_limits<std::int64_t>::max() / 336 * 336},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.period.numberOfDays(), c.days) << support::customDump(c.period);
  }
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
      // Seven days and one week: different fields, same length.
      {Period::week(1), Period::day(7), false, false, false},
      {Period::month(12), Period::year(1), false, false, false},
      {Period::month(1), Period::week(4), false, false, false},
      // A month is 28 days and a year 336, so these come out shorter.
      {Period::month(1), Period::day(30), false, true, false},
      {Period::year(1), Period::day(365), false, true, false},
      {Period::week(1), Period::month(1), false, true, false},
      {Period::year(2), Period::month(13), false, false, true},
      {Period::month(3), Period::month(3), true, false, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(support::customDump(c.a) + " vs " + support::customDump(c.b));
    EXPECT_EQ(c.a == c.b, c.equal);
    EXPECT_EQ(c.a != c.b, !c.equal);
    EXPECT_EQ(c.a < c.b, c.less);
    EXPECT_EQ(c.a > c.b, c.greater);
    EXPECT_EQ(c.b < c.a, c.greater);
    EXPECT_EQ(c.a <= c.b, !c.greater);
    EXPECT_EQ(c.a >= c.b, !c.less);
  }
}

TEST(SubscriptionPeriod, ConstructorsAndShorthandsAgree) {
  const Period storeForm(3, Unit::month);
  EXPECT_EQ(storeForm, Period(Unit::month, 3));
  EXPECT_EQ(storeForm, Period::month(3));
  EXPECT_EQ(storeForm.numberOfUnits(), 3);
  EXPECT_EQ(storeForm.unit, Unit::month);
  EXPECT_EQ(Period::day(5), Period(Unit::day, 5));
  EXPECT_EQ(Period::week(5), Period(Unit::week, 5));
  EXPECT_EQ(Period::year(5), Period(Unit::year, 5));
  EXPECT_NE(Period::week(5), Period::day(5));
}

TEST(Unit, RawValuesNamesAndOrder) {
  const struct {
    Unit unit;
    std::int64_t raw;
    const char* name;
  } cases[] = {{Unit::day, 0, "day"}, {Unit::week, 1, "week"}, {Unit::month, 2, "month"}, {Unit::year, 3, "year"}};
  for (const auto& c : cases) {
    EXPECT_EQ(rawValue(c.unit), c.raw);
    EXPECT_EQ(description(c.unit), c.name);
    EXPECT_EQ(fromRawValue<Unit>(c.raw), c.unit);
  }
  EXPECT_EQ(fromRawValue<Unit>(std::int64_t{4}), std::nullopt);
  EXPECT_EQ(fromRawValue<Unit>(std::int64_t{-1}), std::nullopt);
  EXPECT_LT(Unit::day, Unit::week);
  EXPECT_LT(Unit::week, Unit::month);
  EXPECT_LT(Unit::month, Unit::year);
}

TEST(Offer, RawValueLookupIsExactAndCaseSensitive) {
  EXPECT_EQ(fromRawValue<OfferType>(std::string_view("introductory")), OfferType::introductory);
  EXPECT_EQ(fromRawValue<OfferType>(std::string_view("promotional")), OfferType::promotional);
  EXPECT_EQ(fromRawValue<PaymentMode>(std::string_view("pay_as_you_go")), PaymentMode::payAsYouGo);
  EXPECT_EQ(fromRawValue<PaymentMode>(std::string_view("pay_up_front")), PaymentMode::payUpFront);
  EXPECT_EQ(fromRawValue<PaymentMode>(std::string_view("free_trial")), PaymentMode::freeTrial);
  for (const char* text : {"Introductory", "INTRODUCTORY", "introductory ", "", "intro"}) {
    EXPECT_EQ(fromRawValue<OfferType>(std::string_view(text)), std::nullopt) << text;
  }
  // The case names are not raw values.
  for (const char* text : {"freeTrial", "payAsYouGo", "Free_Trial", "free-trial"}) {
    EXPECT_EQ(fromRawValue<PaymentMode>(std::string_view(text)), std::nullopt) << text;
  }
}

TEST(Product, DerivedPropertiesFollowTheSubscription) {
  const Product subscription = monthly();
  EXPECT_EQ(subscription.localizedTitle(), "Pro Monthly");
  EXPECT_EQ(subscription.localizedDescription(), "All features, billed monthly");
  EXPECT_EQ(subscription.subscriptionPeriod(), Period::month(1));
  EXPECT_EQ(subscription.introductoryPrice(), freeWeek());

  Product withoutIntro = monthly();
  withoutIntro.subscription->introductoryOffer.reset();
  EXPECT_EQ(withoutIntro.introductoryPrice(), std::nullopt);
  EXPECT_EQ(withoutIntro.subscriptionPeriod(), Period::month(1));

  const Product oneOff = lifetime();
  EXPECT_EQ(oneOff.subscriptionPeriod(), std::nullopt);
  EXPECT_EQ(oneOff.introductoryPrice(), std::nullopt);
  EXPECT_EQ(oneOff.promotionalOfferID, std::nullopt);
}

TEST(Product, EqualityCoversEveryFieldWhileIdentityIsTheIdentifier) {
  const Product original = monthly();
  Product withOffer = original;
  withOffer.promotionalOfferID = Offer::ID("winback");
  EXPECT_NE(withOffer, original);
  EXPECT_EQ(withOffer.id, original.id);

  Product otherText = original;
  otherText.displayPrice = "US$9.99";
  EXPECT_NE(otherText, original);

  Product samePriceOtherScale = original;
  samePriceOtherScale.price = Decimal::fromParts(false, 9990, -3);  // 9.990 is the same amount
  EXPECT_EQ(samePriceOtherScale, original);

  Product otherLocale = original;
  otherLocale.priceLocale = Locale("en_GB");
  EXPECT_NE(otherLocale, original);

  Product noSubscription = original;
  noSubscription.subscription.reset();
  EXPECT_NE(noSubscription, original);
}

TEST(Records, HashAgreesWithEquality) {
  Product withOffer = monthly();
  withOffer.promotionalOfferID = Offer::ID("winback");
  Product emptyOffer = monthly();
  emptyOffer.promotionalOfferID = Offer::ID("");
  Product otherScale = monthly();
  otherScale.price = Decimal::fromParts(false, 999000, -5);
  testing::expectHashAgreesWithEquality(std::vector<Product>{monthly(), lifetime(), withOffer, emptyOffer,
                                                             otherScale, monthly()});

  Offer promotional = freeWeek();
  promotional.id = Offer::ID("winback");
  promotional.type = OfferType::promotional;
  Offer zeroAtScale = freeWeek();
  zeroAtScale.price = Decimal::fromParts(false, 0, -2);
  testing::expectHashAgreesWithEquality(std::vector<Offer>{freeWeek(), promotional, zeroAtScale, freeWeek()});

  const auto info = *monthly().subscription;
  auto withPromotions = info;
  withPromotions.promotionalOffers = {promotional, promotional};
  testing::expectHashAgreesWithEquality(std::vector<Product::SubscriptionInfo>{info, withPromotions, info});

  testing::expectHashAgreesWithEquality(
      std::vector<Period>{Period::week(1), Period::day(7), Period(1, Unit::week), Period::month(12), Period::year(1)});
}

TEST(Records, OptionalFieldsHashAbsentApartFromPresent) {
  Product absent = monthly();
  Product emptyIdentifier = monthly();
  emptyIdentifier.promotionalOfferID = Offer::ID("");
  EXPECT_NE(absent, emptyIdentifier);
  EXPECT_NE(std::hash<Product>{}(absent), std::hash<Product>{}(emptyIdentifier));
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
