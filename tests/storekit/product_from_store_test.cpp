#include "velquist/storekit/product/product_from_store.h"

#include "velquist/storekit/product/product_from_adapty.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace velquist::storekit {
namespace {

using adapty::AdaptyPaywallProduct;
using adapty::AdaptyPeriodUnit;
using adapty::AdaptyProductDiscount;
using AdaptyMode = AdaptyProductDiscount::PaymentMode;
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

// The SDK view differs from its store product wherever the two can, so each value shows its source.
AdaptyPaywallProduct::Fields sdkMonthly() {
  return {.productIdentifier = "pro.monthly",
          .skProduct = {.productIdentifier = "pro.monthly.store", .localizedTitle = "Store title",
                        .price = Decimal(999, -2), .priceLocale = Locale("de_DE"),
                        .subscriptionPeriod = {{1, platform::SKProductPeriodUnit::year}},
                        .subscriptionGroupIdentifier = "store-group",
                        .introductoryPrice = discount("store-intro", 0, 2),
                        .discounts = {discount("winback", 1, 7), discount("loyalty", 5, 0)}},
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
  const std::vector<Offer> promotional = {makeSubscriptionOffer(sdkMonthly().skProduct.discounts[0]),
                                          makeSubscriptionOffer(sdkMonthly().skProduct.discounts[1])};
  const Product expected(Product::ID("pro.monthly"), "Pro", "Everything", Decimal(4999, -3), Locale("de_DE"),
                         "4,99\u00a0€",
                         Product::SubscriptionInfo{.introductoryOffer = intro, .subscriptionGroupID = "pro",
                                                   .subscriptionPeriod = Period::month(1),
                                                   .promotionalOffers = promotional, .isEligibleForIntroOffer = true});
  EXPECT_EQ(makeProduct(AdaptyPaywallProduct(sdkMonthly())), expected);
  // Whatever the discount, it is the introductory offer, priced in the store product's locale.
  const AdaptyProductDiscount trial{std::nullopt, Decimal(0), {AdaptyPeriodUnit::day, 3}, AdaptyMode::freeTrial};
  EXPECT_EQ(makeIntroductoryOffer(trial, AdaptyPaywallProduct(sdkMonthly())),
            (Offer{std::nullopt, Offer::OfferType::introductory, Decimal(0), Locale("de_DE"), "0,00\u00a0€",
                   Period::day(3), freeTrial}));
}

TEST(ProductFromAdapty, UnknownValuesRemoveTheOfferOrTheSubscriptionPart) {
  const Product full = makeProduct(AdaptyPaywallProduct(sdkMonthly()));
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
    AdaptyPaywallProduct::Fields fields = sdkMonthly();
    c.change(fields);
    const Product product = makeProduct(AdaptyPaywallProduct(fields));
    EXPECT_EQ(product.subscription, c.expected) << c.name;
    EXPECT_EQ(product.displayPrice, full.displayPrice) << c.name;  // the product itself is always made
  }
}

}  // namespace
}  // namespace velquist::storekit
