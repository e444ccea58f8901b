#include "velquist/storekit/product/product_from_store.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace velquist::storekit {
namespace {

using platform::SKProduct;
using platform::SKProductDiscount;
using platform::SKProductDiscountPaymentMode;
using platform::SKProductDiscountType;
using platform::SKProductPeriodUnit;
using Offer = Product::SubscriptionOffer;
using Period = Product::SubscriptionPeriod;

template <class Store>
Store raw(std::int64_t value) {
  return static_cast<Store>(value);
}

TEST(ProductFromStore, EnumerationMappingsAreTotalWithTheirOwnFallbacks) {
  using enum Period::Unit;
  const std::vector<std::pair<std::int64_t, Period::Unit>> units = {
      {0, day}, {1, week}, {2, month}, {3, year}, {4, year}, {9, year}, {-1, year}};
  for (const auto& [value, unit] : units) EXPECT_EQ(makeUnit(raw<SKProductPeriodUnit>(value)), unit) << value;

  using enum Offer::PaymentMode;
  const std::vector<std::pair<std::int64_t, Offer::PaymentMode>> modes = {
      {0, payAsYouGo}, {1, payUpFront}, {2, freeTrial}, {3, freeTrial}, {7, freeTrial}};
  for (const auto& [value, mode] : modes) {
    EXPECT_EQ(makePaymentMode(raw<SKProductDiscountPaymentMode>(value)), mode) << value;
  }

  using enum Offer::OfferType;
  const std::vector<std::pair<std::int64_t, Offer::OfferType>> types = {
      {0, introductory}, {1, promotional}, {5, promotional}};
  for (const auto& [value, type] : types) EXPECT_EQ(makeOfferType(raw<SKProductDiscountType>(value)), type) << value;
}

SKProductDiscount discount(std::optional<std::string> id, std::int64_t type, std::int64_t mode) {
  return {.price = Decimal(199, -2),
          .priceLocale = Locale("en_US"),
          .identifier = std::move(id),
          .subscriptionPeriod = {7, SKProductPeriodUnit::day},
          .numberOfPeriods = 3,
          .paymentMode = raw<SKProductDiscountPaymentMode>(mode),
          .type = raw<SKProductDiscountType>(type)};
}

SKProduct monthly() {
  return {.productIdentifier = "pro.monthly",
          .localizedTitle = "Pro",
          .localizedDescription = "Everything",
          .price = Decimal(4999, -3),
          .priceLocale = Locale("en_US"),
          .subscriptionPeriod = {{1, SKProductPeriodUnit::month}},
          .subscriptionGroupIdentifier = "pro"};
}

TEST(ProductFromStore, OfferKeepsWhatTheStoreSaidExceptTheCountOfPeriods) {
  const Offer offer = makeSubscriptionOffer(discount("winback", 1, 7));
  const Offer expected{.id = Offer::ID("winback"),
                       .type = Offer::OfferType::promotional,
                       .price = Decimal(199, -2),
                       .priceLocale = Locale("en_US"),
                       .displayPrice = "$1.99",
                       .period = Period::day(7),
                       .paymentMode = Offer::PaymentMode::freeTrial};
  EXPECT_EQ(offer, expected);
  EXPECT_EQ(makeSubscriptionOffer(discount(std::nullopt, 0, 0)).id, std::nullopt);
}

TEST(ProductFromStore, SubscriptionPartOnlyWithGroupAndPeriod) {
  SKProduct nonRenewing = monthly();
  nonRenewing.subscriptionGroupIdentifier.reset();
  SKProduct withoutPeriod = monthly();
  withoutPeriod.subscriptionPeriod.reset();
  EXPECT_EQ(makeProduct(nonRenewing).subscription, std::nullopt);
  EXPECT_EQ(makeProduct(withoutPeriod).subscription, std::nullopt);

  Product expected(Product::ID("pro.monthly"), "Pro", "Everything", Decimal(4999, -3), Locale("en_US"),
                   "$4.99",  // rounded down, never $5.00
                   Product::SubscriptionInfo{.subscriptionGroupID = "pro",
                                             .subscriptionPeriod = Period::month(1),
                                             .isEligibleForIntroOffer = true});
  EXPECT_EQ(makeProduct(monthly()), expected);

  SKProduct offers = monthly();
  offers.introductoryPrice = discount(std::nullopt, 1, 2);  // the type is not forced to introductory
  offers.discounts = {discount("c", 1, 0), discount("a", 0, 1), discount("b", 5, 2)};
  const auto info = makeProduct(offers).subscription;
  ASSERT_TRUE(info);
  EXPECT_EQ(info->introductoryOffer->type, Offer::OfferType::promotional);
  std::vector<std::string> ids;
  std::vector<Offer::OfferType> types;
  for (const auto& offer : info->promotionalOffers) {
    ids.push_back(offer.id->rawValue);
    types.push_back(offer.type);
  }
  EXPECT_EQ(ids, (std::vector<std::string>{"c", "a", "b"}));
  using enum Offer::OfferType;
  EXPECT_EQ(types, (std::vector<Offer::OfferType>{promotional, introductory, promotional}));
  EXPECT_TRUE(info->isEligibleForIntroOffer);
}

TEST(ProductFromStore, TextForms) {
  SKProduct lifetime = monthly();
  lifetime.productIdentifier = "pro.lifetime";
  lifetime.subscriptionPeriod.reset();
  lifetime.price = Decimal(2999, -2);
  const std::vector<std::pair<std::string, std::string>> examples = {
      {description(monthly()),
       "<SKProduct productIdentifier: pro.monthly, subscriptionPeriod: <SKProductSubscriptionPeriod numberOfUnits: 1, "
       "unit: month>, price: 4.999>"},
      {description(lifetime), "<SKProduct productIdentifier: pro.lifetime, price: 29.99>"},
      {std::string(description(SKProductPeriodUnit::day)), "day"},
      {std::string(description(SKProductPeriodUnit::year)), "year"},
      {std::string(description(raw<SKProductPeriodUnit>(4))), "unknown"},
  };
  for (const auto& [actual, expected] : examples) EXPECT_EQ(actual, expected);
}

}  // namespace
}  // namespace velquist::storekit
