#include "velquist/storekit/product/product_from_store.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace velquist::storekit {
namespace {

using platform::SKProduct;
using platform::SKProductDiscount;
using platform::SKProductPeriodUnit;
using Offer = Product::SubscriptionOffer;
using Period = Product::SubscriptionPeriod;
using PaymentMode = platform::SKProductDiscountPaymentMode;
using DiscountType = platform::SKProductDiscountType;
using enum Period::Unit;
using enum Offer::PaymentMode;
using enum Offer::OfferType;

TEST(ProductFromStore, EnumerationMappingsAreTotalWithTheirOwnFallbacks) {
  const std::vector<std::pair<std::int64_t, Period::Unit>> units = {
      {0, day}, {1, week}, {2, month}, {3, year}, {4, year}, {9, year}, {-1, year}};
  for (const auto& [value, unit] : units) EXPECT_EQ(makeUnit(SKProductPeriodUnit{value}), unit) << value;
  const std::vector<std::pair<std::int64_t, Offer::PaymentMode>> modes = {
      {0, payAsYouGo}, {1, payUpFront}, {2, freeTrial}, {3, freeTrial}, {7, freeTrial}};
  for (const auto& [value, mode] : modes) EXPECT_EQ(makePaymentMode(PaymentMode{value}), mode) << value;
  const std::vector<std::pair<std::int64_t, Offer::OfferType>> types = {
      {0, introductory}, {1, promotional}, {5, promotional}};
  for (const auto& [value, type] : types) EXPECT_EQ(makeOfferType(DiscountType{value}), type) << value;
}

SKProductDiscount discount(std::optional<std::string> id, std::int64_t type, std::int64_t mode) {
  return {.price = Decimal(199, -2), .priceLocale = Locale("en_US"), .identifier = std::move(id),
          .subscriptionPeriod = {7, SKProductPeriodUnit::day}, .numberOfPeriods = 3,
          .paymentMode = PaymentMode{mode}, .type = DiscountType{type}};
}

SKProduct monthly() {
  return {.productIdentifier = "pro.monthly", .localizedTitle = "Pro", .localizedDescription = "Everything",
          .price = Decimal(4999, -3), .priceLocale = Locale("en_US"),
          .subscriptionPeriod = {{1, SKProductPeriodUnit::month}}, .subscriptionGroupIdentifier = "pro"};
}

TEST(ProductFromStore, ProductWithItsSubscriptionPartAndOffers) {
  SKProduct nonRenewing = monthly();
  nonRenewing.subscriptionGroupIdentifier.reset();
  SKProduct withoutPeriod = monthly();
  withoutPeriod.subscriptionPeriod.reset();
  EXPECT_EQ(makeProduct(nonRenewing).subscription, std::nullopt);
  EXPECT_EQ(makeProduct(withoutPeriod).subscription, std::nullopt);
  const Product expected(Product::ID("pro.monthly"), "Pro", "Everything", Decimal(4999, -3), Locale("en_US"), "$4.99",
                         Product::SubscriptionInfo{.subscriptionGroupID = "pro",
                                                   .subscriptionPeriod = Period::month(1),
                                                   .isEligibleForIntroOffer = true});
  EXPECT_EQ(makeProduct(monthly()), expected);

  SKProduct offers = monthly();
  offers.introductoryPrice = discount("winback", 1, 7);  // the type is not forced to introductory
  offers.discounts = {discount("c", 1, 0), discount(std::nullopt, 0, 1), discount("b", 5, 2)};
  const auto info = makeProduct(offers).subscription;
  ASSERT_TRUE(info);
  EXPECT_EQ(info->introductoryOffer, (Offer{.id = Offer::ID("winback"), .type = promotional, .price = Decimal(199, -2),
                                            .priceLocale = Locale("en_US"), .displayPrice = "$1.99",
                                            .period = Period::day(7), .paymentMode = freeTrial}));
  std::vector<std::pair<std::optional<Offer::ID>, Offer::OfferType>> seen;
  for (const auto& offer : info->promotionalOffers) seen.emplace_back(offer.id, offer.type);
  EXPECT_EQ(seen, (decltype(seen){{Offer::ID("c"), promotional}, {std::nullopt, introductory},
                                  {Offer::ID("b"), promotional}}));
  EXPECT_TRUE(info->isEligibleForIntroOffer);
}

TEST(ProductFromStore, TextForms) {
  const SKProduct lifetime{.productIdentifier = "pro.lifetime", .price = Decimal(2999, -2)};
  EXPECT_EQ(description(monthly()),
            "<SKProduct productIdentifier: pro.monthly, subscriptionPeriod: "
            "<SKProductSubscriptionPeriod numberOfUnits: 1, unit: month>, price: 4.999>");
  EXPECT_EQ(description(lifetime), "<SKProduct productIdentifier: pro.lifetime, price: 29.99>");
  const std::vector<std::string_view> units = {"day", "week", "month", "year", "unknown"};
  for (std::int64_t value = 0; value < 5; ++value) EXPECT_EQ(description(SKProductPeriodUnit{value}), units[value]);
}

}  // namespace
}  // namespace velquist::storekit
