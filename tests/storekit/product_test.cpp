#include "velquist/storekit/product/product.h"

#include "velquist/storekit/product/product_coding.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <type_traits>

#include "common/hash_testing.h"
#include "velquist/support/dump.h"

namespace velquist::storekit {
namespace {

using foundation::decodeFromJsonText;
using foundation::DecodingError;
using foundation::encodeToJsonText;
using Kind = DecodingError::Kind;
using Info = Product::SubscriptionInfo;
using Period = Product::SubscriptionPeriod;
using Unit = Period::Unit;
using Offer = Product::SubscriptionOffer;
using OfferType = Offer::OfferType;
using PaymentMode = Offer::PaymentMode;

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

Offer winback() {
  return {Offer::ID("winback"), OfferType::promotional, *Decimal::fromString("4.99"), Locale("en_US"), "$4.99",
          Period::month(3), PaymentMode::payUpFront};
}

Offer trial() {  // priced in a locale with a keyword
  Offer offer = freeWeek();
  offer.priceLocale = Locale("en_PT@currency=EUR"), offer.displayPrice = "€0.00";
  return offer;
}

Info yearly() {
  return Info{.introductoryOffer = trial(), .subscriptionGroupID = "pro", .subscriptionPeriod = Period::year(1),
              .promotionalOffers = {winback(), winback()}, .isEligibleForIntroOffer = true};
}

TEST(ProductCoding, WritesFieldNamesInDeclarationOrderAndOmitsAbsentOptionals) {
  EXPECT_EQ(encodeToJsonText(Period::week(1)), R"({"unit":1,"value":1})");  // not rewritten to 7 days
  EXPECT_EQ(encodeToJsonText(winback()),
            R"({"id":"winback","type":"promotional","price":4.99,"priceLocale":"en_US","displayPrice":"$4.99",)"
            R"("period":{"unit":2,"value":3},"paymentMode":"pay_up_front"})");
  EXPECT_EQ(encodeToJsonText(trial()),
            R"({"type":"introductory","price":0,"priceLocale":"en_PT@currency=EUR","displayPrice":"€0.00",)"
            R"("period":{"unit":1,"value":1},"paymentMode":"free_trial"})");
  Info bare = yearly();
  bare.introductoryOffer.reset();
  bare.promotionalOffers.clear();
  EXPECT_EQ(encodeToJsonText(bare),
            R"({"subscriptionGroupID":"pro","subscriptionPeriod":{"unit":3,"value":1},"promotionalOffers":[],)"
            R"("isEligibleForIntroOffer":true})");
  EXPECT_EQ(encodeToJsonText(Offer::PaymentMode::payAsYouGo), R"("pay_as_you_go")");
  EXPECT_EQ(encodeToJsonText(Offer::OfferType::introductory), R"("introductory")");
  EXPECT_EQ(encodeToJsonText(Period::Unit::year), "3");
}

template <class T>
void expectRoundTrip(const T& value) {
  const std::string json = encodeToJsonText(value);
  EXPECT_EQ(decodeFromJsonText<T>(json), value) << json;
}

TEST(ProductCoding, EveryTypeRoundTrips) {
  Info bare = yearly();
  bare.introductoryOffer.reset();
  bare.promotionalOffers.clear();
  bare.isEligibleForIntroOffer = false;
  Offer exact = winback();
  exact.price = *Decimal::fromString("260.3712140000000510976");
  Offer emptyID = winback();
  emptyID.id = Offer::ID("");

  for (const Info& info : {yearly(), bare}) expectRoundTrip(info);
  for (const Offer& offer : {winback(), trial(), exact, emptyID}) expectRoundTrip(offer);
  for (const Period& period : {Period::week(1), Period::day(0), Period::month(-3), Period::year(INT64_MAX)}) {
    expectRoundTrip(period);
  }
  for (auto type : support::CaseList<Offer::OfferType>::all) expectRoundTrip(type);
  for (auto mode : support::CaseList<Offer::PaymentMode>::all) expectRoundTrip(mode);
  for (auto unit : support::CaseList<Period::Unit>::all) expectRoundTrip(unit);

  // Exactness is kept to the last digit, not just numerically.
  EXPECT_EQ(decodeFromJsonText<Offer>(encodeToJsonText(exact)).price.description(), "260.3712140000000510976");
}

TEST(ProductCoding, OptionalKeysMayBeMissingOrNullAndUnknownKeysAreIgnored) {
  const auto offerWith = [](const std::string& id) {
    return decodeFromJsonText<Offer>("{" + id + R"("type":"promotional","price":4.99,"priceLocale":"en_US",)" +
                                     R"("displayPrice":"","period":{"unit":2,"value":3},"paymentMode":"pay_up_front",)" +
                                     R"("futureField":{"x":[1,2]}})");
  };
  EXPECT_EQ(offerWith("").id, std::nullopt);
  EXPECT_EQ(offerWith(R"("id":null,)").id, std::nullopt);
  EXPECT_EQ(offerWith(R"("id":"",)").id, Offer::ID(""));

  const Info nullIntro = decodeFromJsonText<Info>(
      R"({"introductoryOffer":null,"subscriptionGroupID":"g","subscriptionPeriod":{"value":1,"unit":0},)"
      R"("promotionalOffers":[],"isEligibleForIntroOffer":false,"extra":1})");
  EXPECT_EQ(nullIntro.introductoryOffer, std::nullopt);
  EXPECT_EQ(nullIntro.subscriptionPeriod, Period::day(1));
}

// Faults of the product records themselves: key names, raw values, required fields and the
// path through nested records. How each JSON type fails in general is the decoder's own business.
TEST(ProductCoding, FaultsAreReportedWithKindAndCodingPath) {
  const std::string offer =
      R"({"id":"w","type":"promotional","price":4.99,"priceLocale":"en_US","displayPrice":"$4.99",)"
      R"("period":{"unit":2,"value":3},"paymentMode":"pay_up_front"})";
  const std::string badMode = std::string(offer).replace(offer.find("pay_up_front"), 12, "freeTrial");
  const std::string withoutPeriod =
      R"({"type":"promotional","price":4.99,"priceLocale":"en_US","displayPrice":"$4.99","paymentMode":"free_trial"})";
  auto info = [](const std::string& offers, const std::string& rest = R"(,"isEligibleForIntroOffer":true)") {
    return R"({"subscriptionGroupID":"pro","subscriptionPeriod":{"unit":3,"value":1},"promotionalOffers":[)" +
           offers + "]" + rest + "}";
  };
  const struct {
    const char* name;
    std::function<void()> decode;
    Kind kind;
    const char *path, *description;  // a part of the description
  } cases[] = {
      {"flag has no default", [&] { decodeFromJsonText<Info>(info(offer, "")); }, Kind::keyNotFound, "",
       "\"isEligibleForIntroOffer\""},
      {"deep raw value", [&] { decodeFromJsonText<Info>(info(offer + "," + offer + "," + badMode)); },
       Kind::dataCorrupted, "promotionalOffers[2].paymentMode",
       "Cannot initialize PaymentMode from invalid String value freeTrial"},
      {"missing key inside an element", [&] { decodeFromJsonText<Info>(info(offer + "," + withoutPeriod)); },
       Kind::keyNotFound, "promotionalOffers[1]", "\"period\""},
      {"capitalised offer type",
       [] {
         decodeFromJsonText<Offer>(R"({"type":"Introductory","price":0,"priceLocale":"en_US","displayPrice":"",)"
                                   R"("period":{"unit":1,"value":1},"paymentMode":"free_trial"})");
       },
       Kind::dataCorrupted, "type", "Cannot initialize OfferType from invalid String value Introductory"},
      {"case name instead of raw value", [] { decodeFromJsonText<Offer::PaymentMode>(R"("payAsYouGo")"); },
       Kind::dataCorrupted, "", "Cannot initialize PaymentMode from invalid String value payAsYouGo"},
      {"raw value and a space", [] { decodeFromJsonText<Offer::PaymentMode>(R"("free_trial ")"); },
       Kind::dataCorrupted, "", "Cannot initialize PaymentMode from invalid String value free_trial "},
      {"unit out of range", [] { decodeFromJsonText<Period>(R"({"unit":4,"value":1})"); }, Kind::dataCorrupted,
       "unit", "Cannot initialize Unit from invalid Int value 4"},
      {"negative unit", [] { decodeFromJsonText<Period>(R"({"unit":-1,"value":1})"); }, Kind::dataCorrupted,
       "unit", "Cannot initialize Unit from invalid Int value -1"},
      {"unit as text", [] { decodeFromJsonText<Period>(R"({"unit":"month","value":1})"); }, Kind::typeMismatch,
       "unit", ""},
      {"period missing value", [] { decodeFromJsonText<Period>(R"({"unit":2})"); }, Kind::keyNotFound, "",
       "\"value\""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      c.decode();
      ADD_FAILURE() << "decoded without an error";
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.kind(), c.kind) << error.what();
      EXPECT_EQ(error.codingPathText(), c.path) << error.what();
      EXPECT_NE(error.debugDescription().find(c.description), std::string::npos) << error.what();
    }
  }
}

}  // namespace
}  // namespace velquist::storekit
