#include "velquist/storekit/product/product_from_adapty.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "velquist/storekit/product/product_from_store.h"

namespace velquist::storekit {
namespace {

using adapty::AdaptyPaywallProduct;
using adapty::AdaptyPeriodUnit;
using adapty::AdaptyProductDiscount;
using Offer = Product::SubscriptionOffer;
using Period = Product::SubscriptionPeriod;
using AdaptyMode = AdaptyProductDiscount::PaymentMode;
using enum Period::Unit;
using enum Offer::PaymentMode;

TEST(ProductFromAdapty, UnknownUnitsAndPaymentModesMapToNothing) {
  const std::vector<std::pair<std::int64_t, std::optional<Period::Unit>>> units = {
      {0, day}, {1, week}, {2, month}, {3, year}, {4, std::nullopt}, {-1, std::nullopt}};
  for (const auto& [value, unit] : units) {
    EXPECT_EQ(makeUnit(AdaptyPeriodUnit{value}), unit) << value;
    EXPECT_EQ(makeSubscriptionPeriod({AdaptyPeriodUnit{value}, 6}), unit ? std::optional(Period(*unit, 6)) : std::nullopt);
  }
  const std::vector<std::pair<std::int64_t, std::optional<Offer::PaymentMode>>> modes = {
      {0, payAsYouGo}, {1, payUpFront}, {2, freeTrial}, {3, std::nullopt}, {7, std::nullopt}};
  for (const auto& [value, mode] : modes) EXPECT_EQ(makePaymentMode(AdaptyMode{value}), mode) << value;
}

platform::SKProductDiscount storeDiscount(std::string id, std::int64_t mode, std::int64_t type) {
  return {.price = Decimal(99, -2), .priceLocale = Locale("en_GB"), .identifier = std::move(id),
          .subscriptionPeriod = {1, platform::SKProductPeriodUnit::month},
          .paymentMode = platform::SKProductDiscountPaymentMode{mode}, .type = platform::SKProductDiscountType{type}};
}

// The SDK view differs from its store product wherever the two can, so each value shows its source.
AdaptyPaywallProduct::Fields monthly() {
  return {.productIdentifier = "pro.monthly",
          .skProduct = {.productIdentifier = "pro.monthly.store", .localizedTitle = "Store title",
                        .price = Decimal(999, -2), .priceLocale = Locale("de_DE"),
                        .subscriptionPeriod = {{1, platform::SKProductPeriodUnit::year}},
                        .subscriptionGroupIdentifier = "store-group",
                        .introductoryPrice = storeDiscount("store-intro", 2, 0),
                        .discounts = {storeDiscount("winback", 7, 1), storeDiscount("loyalty", 0, 5)}},
          .localizedTitle = "Pro", .localizedDescription = "Everything", .price = Decimal(4999, -3),
          .subscriptionGroupIdentifier = "pro",
          .subscriptionPeriod = adapty::AdaptyProductSubscriptionPeriod{AdaptyPeriodUnit::month, 1},
          .introductoryDiscount = AdaptyProductDiscount{"intro", Decimal(199, -2), {AdaptyPeriodUnit::week, 2},
                                                        AdaptyMode::payAsYouGo}};
}

TEST(ProductFromAdapty, ProductReadsTheSdkValuesAndTheStoreLocaleAndOffers) {
  const Offer intro{.id = Offer::ID("intro"), .type = Offer::OfferType::introductory, .price = Decimal(199, -2),
                    .priceLocale = Locale("de_DE"), .displayPrice = "1,99\u00a0€", .period = Period::week(2),
                    .paymentMode = payAsYouGo};
  // Promotional offers are the store conversion's, its fallbacks included.
  const std::vector<Offer> promotional = {makeSubscriptionOffer(monthly().skProduct.discounts[0]),
                                          makeSubscriptionOffer(monthly().skProduct.discounts[1])};
  const Product expected(Product::ID("pro.monthly"), "Pro", "Everything", Decimal(4999, -3), Locale("de_DE"),
                         "4,99\u00a0€",
                         Product::SubscriptionInfo{.introductoryOffer = intro, .subscriptionGroupID = "pro",
                                                   .subscriptionPeriod = Period::month(1),
                                                   .promotionalOffers = promotional, .isEligibleForIntroOffer = true});
  EXPECT_EQ(makeProduct(AdaptyPaywallProduct(monthly())), expected);
  // Whatever the discount, it is the introductory offer, priced in the store product's locale.
  const AdaptyProductDiscount trial{std::nullopt, Decimal(0), {AdaptyPeriodUnit::day, 3}, AdaptyMode::freeTrial};
  EXPECT_EQ(makeIntroductoryOffer(trial, AdaptyPaywallProduct(monthly())),
            (Offer{std::nullopt, Offer::OfferType::introductory, Decimal(0), Locale("de_DE"), "0,00\u00a0€",
                   Period::day(3), freeTrial}));
}

TEST(ProductFromAdapty, UnknownValuesRemoveTheOfferOrTheSubscriptionPart) {
  const Product full = makeProduct(AdaptyPaywallProduct(monthly()));
  ASSERT_TRUE(full.subscription && full.subscription->introductoryOffer);
  Product::SubscriptionInfo withoutIntro = *full.subscription, withoutPromotional = *full.subscription;
  withoutIntro.introductoryOffer.reset();
  withoutPromotional.promotionalOffers.clear();

  using Change = std::function<void(AdaptyPaywallProduct::Fields&)>;
  const struct { const char* name; Change change; std::optional<Product::SubscriptionInfo> expected; } cases[] = {
      {"no group", [](auto& f) { f.subscriptionGroupIdentifier.reset(); }, std::nullopt},
      {"no period", [](auto& f) { f.subscriptionPeriod.reset(); }, std::nullopt},
      {"unknown period unit", [](auto& f) { f.subscriptionPeriod->unit = AdaptyPeriodUnit::unknown; }, std::nullopt},
      {"no introductory discount", [](auto& f) { f.introductoryDiscount.reset(); }, withoutIntro},
      {"unknown payment mode", [](auto& f) { f.introductoryDiscount->paymentMode = AdaptyMode::unknown; }, withoutIntro},
      {"unknown discount unit",
       [](auto& f) { f.introductoryDiscount->subscriptionPeriod.unit = AdaptyPeriodUnit::unknown; }, withoutIntro},
      // The store's own period, group and introductory price play no part.
      {"store product without subscription", [](auto& f) { f.skProduct = {.priceLocale = Locale("de_DE")}; },
       withoutPromotional},
  };
  for (const auto& c : cases) {
    AdaptyPaywallProduct::Fields fields = monthly();
    c.change(fields);
    const Product product = makeProduct(AdaptyPaywallProduct(fields));
    EXPECT_EQ(product.subscription, c.expected) << c.name;
    EXPECT_EQ(product.displayPrice, full.displayPrice) << c.name;  // the product itself is always made
  }
}

}  // namespace
}  // namespace velquist::storekit
