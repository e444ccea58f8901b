#include "catalogue.h"

namespace velquist::sandbox::detail {
namespace {

using platform::SKProductDiscount;

std::string_view languageOf(std::string_view localeIdentifier) {
  return localeIdentifier.substr(0, localeIdentifier.find_first_of("_-@"));
}

platform::SKProductDiscountPaymentMode storePaymentMode(PaymentMode mode) {
  switch (mode) {
    case PaymentMode::free: return platform::SKProductDiscountPaymentMode::freeTrial;
    case PaymentMode::payUpFront: return platform::SKProductDiscountPaymentMode::payUpFront;
    case PaymentMode::payAsYouGo: break;
  }
  return platform::SKProductDiscountPaymentMode::payAsYouGo;
}

SKProductDiscount storeDiscount(const Offer& offer, const foundation::Locale& priceLocale,
                                std::optional<std::string> identifier, platform::SKProductDiscountType type) {
  return SKProductDiscount{
      .price = offer.price,
      .priceLocale = priceLocale,
      .identifier = std::move(identifier),
      .subscriptionPeriod = storePeriod(offer.period),
      .numberOfPeriods = offer.numberOfPeriods,
      .paymentMode = storePaymentMode(offer.paymentMode),
      .type = type,
  };
}

}  // namespace

std::optional<CatalogueEntry> findEntry(const StoreKitConfiguration& configuration, std::string_view productID) {
  for (const auto& group : configuration.subscriptionGroups) {
    for (const auto& subscription : group.subscriptions) {
      if (subscription.productID == productID) {
        return CatalogueEntry{.product = &subscription, .subscription = &subscription, .group = &group};
      }
    }
  }
  if (const Product* product = configuration.findProduct(productID)) return CatalogueEntry{.product = product};
  return std::nullopt;
}

std::vector<std::string> catalogueIdentifiers(const StoreKitConfiguration& configuration) {
  std::vector<std::string> identifiers;
  for (const auto& product : configuration.products) identifiers.push_back(product.productID);
  for (const auto& product : configuration.nonRenewingSubscriptions) identifiers.push_back(product.productID);
  for (const auto& group : configuration.subscriptionGroups) {
    for (const auto& subscription : group.subscriptions) identifiers.push_back(subscription.productID);
  }
  return identifiers;
}

const Localization* localizationFor(const std::vector<Localization>& localizations, std::string_view localeIdentifier) {
  for (const auto& localization : localizations) {
    if (localization.locale == localeIdentifier) return &localization;
  }
  const std::string_view language = languageOf(localeIdentifier);
  for (const auto& localization : localizations) {
    if (languageOf(localization.locale) == language) return &localization;
  }
  for (const auto& localization : localizations) {
    if (localization.locale == "en_US") return &localization;
  }
  return localizations.empty() ? nullptr : &localizations.front();
}

platform::SKProductSubscriptionPeriod storePeriod(const Period& period) {
  using Unit = platform::SKProductPeriodUnit;
  Unit unit = Unit::day;
  switch (period.unit) {
    case Period::Unit::day: unit = Unit::day; break;
    case Period::Unit::week: unit = Unit::week; break;
    case Period::Unit::month: unit = Unit::month; break;
    case Period::Unit::year: unit = Unit::year; break;
  }
  return {.numberOfUnits = period.count, .unit = unit};
}

platform::SKProduct makeStoreProduct(const CatalogueEntry& entry, std::string_view localeIdentifier,
                                     const foundation::Locale& priceLocale) {
  platform::SKProduct product{
      .productIdentifier = entry.product->productID,
      .price = entry.product->price,
      .priceLocale = priceLocale,
  };
  if (const Localization* localization = localizationFor(entry.product->localizations, localeIdentifier)) {
    product.localizedTitle = localization->displayName;
    product.localizedDescription = localization->description;
  }
  if (const Subscription* subscription = entry.subscription) {
    product.subscriptionPeriod = storePeriod(subscription->recurringSubscriptionPeriod);
    product.subscriptionGroupIdentifier = subscription->subscriptionGroupID;
    if (subscription->introductoryOffer) {
      product.introductoryPrice = storeDiscount(*subscription->introductoryOffer, priceLocale, std::nullopt,
                                                platform::SKProductDiscountType::introductory);
    }
    for (const auto& offer : subscription->promotionalOffers) {
      product.discounts.push_back(
          storeDiscount(offer, priceLocale, offer.offerID, platform::SKProductDiscountType::subscription));
    }
  }
  return product;
}

}  // namespace velquist::sandbox::detail
