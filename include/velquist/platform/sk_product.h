#pragma once

#include "velquist/export.h"
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "velquist/foundation/decimal.h"
#include "velquist/foundation/locale.h"

VELQUIST_API_BEGIN
namespace velquist::platform {

/// The calendar unit of a store period, with the store's integer values 0...3. A store may
/// send values outside that range; they are representable (`static_cast<SKProductPeriodUnit>(9)`)
/// and whoever reads the unit decides what they mean.
enum class SKProductPeriodUnit : std::int64_t { day = 0, week = 1, month = 2, year = 3 };

/// A subscription's renewal period, or an offer's period, as the store describes it:
/// `numberOfUnits` times `unit`, exactly as given (seven days stay seven days).
///
/// A plain value; safe to share between threads for reading.
struct SKProductSubscriptionPeriod {
  std::int64_t numberOfUnits = 0;
  SKProductPeriodUnit unit = SKProductPeriodUnit::day;

  /// The store's own text of the period: the count, then the unit by name, or by number
  /// when the store sent a value outside 0...3.
  ///
  ///     <SKProductSubscriptionPeriod numberOfUnits: 3, unit: month>
  ///     <SKProductSubscriptionPeriod numberOfUnits: 1, unit: 9>
  std::string description() const;

  friend bool operator==(const SKProductSubscriptionPeriod&, const SKProductSubscriptionPeriod&) = default;
};

/// Whether a discount is the product's introductory offer or one of its promotional
/// ("subscription") offers; the store's values 0 and 1, others representable.
enum class SKProductDiscountType : std::int64_t { introductory = 0, subscription = 1 };

/// How the customer pays during an offer; the store's values 0...2, others representable.
enum class SKProductDiscountPaymentMode : std::int64_t { payAsYouGo = 0, payUpFront = 1, freeTrial = 2 };

/// One offer of a subscription as the store describes it: `numberOfPeriods` repetitions of
/// `subscriptionPeriod` at `price` each (or once in total for pay up front).
///
/// A plain value; safe to share between threads for reading.
struct SKProductDiscount {
  foundation::Decimal price;
  foundation::Locale priceLocale;
  std::optional<std::string> identifier;  ///< absent for an introductory offer
  SKProductSubscriptionPeriod subscriptionPeriod;
  std::int64_t numberOfPeriods = 1;
  SKProductDiscountPaymentMode paymentMode = SKProductDiscountPaymentMode::payAsYouGo;
  SKProductDiscountType type = SKProductDiscountType::introductory;

  friend bool operator==(const SKProductDiscount&, const SKProductDiscount&) = default;
};

/// A purchasable item as the store describes it in answer to a products request. A
/// product is an auto-renewing subscription when it has both a `subscriptionPeriod` and a
/// `subscriptionGroupIdentifier`; a non-renewing one has no group.
///
/// A plain value copied out of the store's answer; safe to share between threads for
/// reading. Its text form lives with the library's conversions (storekit's
/// `description(const SKProduct&)`).
struct SKProduct {
  std::string productIdentifier;
  std::string localizedTitle;
  std::string localizedDescription;
  foundation::Decimal price;  ///< in the currency of `priceLocale`
  foundation::Locale priceLocale;
  std::optional<SKProductSubscriptionPeriod> subscriptionPeriod;
  std::optional<std::string> subscriptionGroupIdentifier;
  std::optional<SKProductDiscount> introductoryPrice;
  std::vector<SKProductDiscount> discounts;  ///< the promotional offers, in the store's order

  friend bool operator==(const SKProduct&, const SKProduct&) = default;
};

}  // namespace velquist::platform
VELQUIST_API_END
