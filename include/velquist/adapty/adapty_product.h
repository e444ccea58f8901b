#pragma once

#include "velquist/export.h"
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "velquist/foundation/decimal.h"
#include "velquist/platform/sk_product.h"

VELQUIST_API_BEGIN
namespace velquist::adapty {

// The subscription SDK's product records. The SDK sells through the platform store: each of
// its products wraps the store's own product object (`SKProduct`) and adds its own view of
// the price, period and introductory discount. These types carry that view as plain values;
// the library's conversions (storekit/product/product_from_adapty.h) read them.
//
// Every type here is a value type (AdaptyProduct is an interface whose implementations should
// be too): distinct objects may be used from different threads freely, and one object may be
// read from several threads at once.

/// The calendar unit of a period as the SDK reports it. The SDK reports `unknown` for a unit
/// it cannot name; any value outside day...year is treated the same way by the library.
enum class AdaptyPeriodUnit : std::int64_t { day = 0, week = 1, month = 2, year = 3, unknown = 4 };

/// A subscription's renewal period or a discount's period: `numberOfUnits` times `unit`.
struct AdaptyProductSubscriptionPeriod {
  AdaptyPeriodUnit unit = AdaptyPeriodUnit::day;
  std::int64_t numberOfUnits = 0;

  friend bool operator==(const AdaptyProductSubscriptionPeriod&, const AdaptyProductSubscriptionPeriod&) = default;
};

/// A discount of a subscription as the SDK reports it. It has no locale of its own: its price
/// is in the currency of the product it belongs to.
struct AdaptyProductDiscount {
  /// How the customer pays during the discount; `unknown` when the SDK cannot tell.
  enum class PaymentMode : std::int64_t { payAsYouGo = 0, payUpFront = 1, freeTrial = 2, unknown = 3 };

  std::optional<std::string> identifier;  ///< absent for an introductory discount
  foundation::Decimal price;
  AdaptyProductSubscriptionPeriod subscriptionPeriod;
  PaymentMode paymentMode = PaymentMode::payAsYouGo;

  friend bool operator==(const AdaptyProductDiscount&, const AdaptyProductDiscount&) = default;
};

/// What the SDK tells about any product it sells: its identifier, the store product it wraps,
/// and its own reading of title, price, subscription group, period and introductory discount.
/// The wrapped store product supplies what the SDK does not restate: the price locale and the
/// promotional discounts.
class AdaptyProduct {
 public:
  virtual ~AdaptyProduct() = default;

  /// The store's product identifier, e.g. "com.example.pro.weekly".
  virtual std::string productIdentifier() const = 0;
  /// The store's product object this product stands for.
  virtual const platform::SKProduct& skProduct() const = 0;

  virtual std::string localizedTitle() const = 0;
  virtual std::string localizedDescription() const = 0;
  /// In the currency of `skProduct().priceLocale`.
  virtual foundation::Decimal price() const = 0;
  /// Absent for a product that does not renew.
  virtual std::optional<std::string> subscriptionGroupIdentifier() const = 0;
  virtual std::optional<AdaptyProductSubscriptionPeriod> subscriptionPeriod() const = 0;
  virtual std::optional<AdaptyProductDiscount> introductoryDiscount() const = 0;

 protected:
  AdaptyProduct() = default;
  AdaptyProduct(const AdaptyProduct&) = default;
  AdaptyProduct& operator=(const AdaptyProduct&) = default;
};

/// A product as it appears in a paywall's product list: every member stored as given.
///
///     AdaptyPaywallProduct product(AdaptyPaywallProduct::fieldsFrom(storeProduct));
///     product.localizedTitle();  // the store product's title
class AdaptyPaywallProduct final : public AdaptyProduct {
 public:
  /// The stored members, in the order of the interface.
  struct Fields {
    std::string productIdentifier;
    platform::SKProduct skProduct;
    std::string localizedTitle;
    std::string localizedDescription;
    foundation::Decimal price;
    std::optional<std::string> subscriptionGroupIdentifier;
    std::optional<AdaptyProductSubscriptionPeriod> subscriptionPeriod;
    std::optional<AdaptyProductDiscount> introductoryDiscount;

    friend bool operator==(const Fields&, const Fields&) = default;
  };

  explicit AdaptyPaywallProduct(Fields fields) : fields_(std::move(fields)) {}

  /// The members as the SDK derives them from a store product alone: identifier, texts,
  /// price, group, period and introductory discount copied over, with store units and payment
  /// modes it cannot name read as `unknown`.
  static Fields fieldsFrom(platform::SKProduct storeProduct);

  const Fields& fields() const { return fields_; }

  std::string productIdentifier() const override { return fields_.productIdentifier; }
  const platform::SKProduct& skProduct() const override { return fields_.skProduct; }
  std::string localizedTitle() const override { return fields_.localizedTitle; }
  std::string localizedDescription() const override { return fields_.localizedDescription; }
  foundation::Decimal price() const override { return fields_.price; }
  std::optional<std::string> subscriptionGroupIdentifier() const override {
    return fields_.subscriptionGroupIdentifier;
  }
  std::optional<AdaptyProductSubscriptionPeriod> subscriptionPeriod() const override {
    return fields_.subscriptionPeriod;
  }
  std::optional<AdaptyProductDiscount> introductoryDiscount() const override { return fields_.introductoryDiscount; }

  friend bool operator==(const AdaptyPaywallProduct& lhs, const AdaptyPaywallProduct& rhs) {
    return lhs.fields_ == rhs.fields_;
  }

 private:
  Fields fields_;
};

/// The SDK's unit for a store unit: the same unit for day...year, `unknown` for anything else.
AdaptyPeriodUnit makeAdaptyPeriodUnit(platform::SKProductPeriodUnit unit);
/// The SDK's payment mode for a store one: the same mode for the three the store defines,
/// `unknown` for anything else.
AdaptyProductDiscount::PaymentMode makeAdaptyPaymentMode(platform::SKProductDiscountPaymentMode mode);

}  // namespace velquist::adapty
VELQUIST_API_END
