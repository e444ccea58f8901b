#pragma once

#include "velquist/export.h"
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "velquist/foundation/decimal.h"
#include "velquist/foundation/locale.h"
#include "velquist/foundation/rounding_rule.h"
#include "velquist/storekit/formatting/style_options.h"
#include "velquist/support/dump.h"
#include "velquist/support/raw_value.h"
#include "velquist/support/tagged.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

using foundation::Decimal;
using foundation::FloatingPointRoundingRule;
using foundation::Locale;
using support::Tagged;

/// The library's own, store-independent picture of one purchasable item: a one-off
/// purchase, or an auto-renewing subscription when `subscription` is present. A plain value:
/// copying a product copies everything, and nothing refers back to the store object it was
/// built from.
///
/// Equality and hashing go over all eight fields in declaration order, so two products with
/// the same `id` but a different `displayPrice` are unequal although they name the same item.
/// Identity (`id`) and equality are different questions on purpose.
///
/// A value type: distinct objects are safe on different threads; one object is safe to read
/// from many threads.
struct Product {
  struct SubscriptionOffer;
  /// The namespace of the product's own format styles (`Product::FormatStyle::Price`),
  /// defined in storekit/formatting/price_format_style.h.
  struct FormatStyle;
  using ID = Tagged<Product, std::string>;

  /// A subscription's renewal period or an offer's period: `value` units of `unit`.
  ///
  /// Equality is field-wise, but ordering compares day counts (`numberOfDays`), so one week
  /// and seven days are unequal while neither is less than the other.
  struct SubscriptionPeriod {
    /// A calendar unit; integer raw values 0...3, ordered by raw value.
    enum class Unit : std::int64_t { day = 0, week = 1, month = 2, year = 3 };

    Unit unit = Unit::day;
    std::int64_t value = 0;

    SubscriptionPeriod() = default;
    SubscriptionPeriod(Unit unit, std::int64_t value) : unit(unit), value(value) {}
    /// The store's vocabulary: the count first, then the unit.
    SubscriptionPeriod(std::int64_t numberOfUnits, Unit unit) : unit(unit), value(numberOfUnits) {}

    static SubscriptionPeriod day(std::int64_t count) { return {Unit::day, count}; }
    static SubscriptionPeriod week(std::int64_t count) { return {Unit::week, count}; }
    static SubscriptionPeriod month(std::int64_t count) { return {Unit::month, count}; }
    static SubscriptionPeriod year(std::int64_t count) { return {Unit::year, count}; }

    std::int64_t numberOfUnits() const { return value; }

    /// The length in days by the library's fixed calendar: a week is 7 days, a month 4
    /// weeks (28 days) and a year 12 such months (336 days). Overflow of the 64-bit product
    /// is a programming error and stops the process.
    std::int64_t numberOfDays() const;

    /// The analytics key: count, "_", singular unit name, e.g. `1_month`, `3_month`,
    /// `2_week`. A single week alone is reported as seven days: `7_day`.
    std::string analyticsValue() const;

    /// The price charged for this period restated for `period`. Days to months and years and
    /// weeks to months and years use the fixed factors 30.417, 365.3, 4.345 and 52.1786 (as
    /// converted from doubles); every other pair multiplies by the ratio of day counts,
    /// computed in double (a receiver of zero days makes that ratio infinite, which stops the
    /// process as the platform's conversion of an infinity does).
    ///
    ///     month(1).convertPrice(9.99, year(1))  ->  119.88
    ///     week(1).convertPrice(4.99, year(1))   ->  260.3712140000000510976
    Decimal convertPrice(const Decimal& price, const SubscriptionPeriod& period) const;

    /// Format styles of periods and units, in storekit/formatting/period_format_style.h.
    struct FormatStyle;
    struct UnitFormatStyle;
    /// The style that follows each language's CLDR plural rules, in
    /// storekit/formatting/plural_period_format_style.h.
    struct PluralFormatStyle;

    /// The period as text by a style built from the arguments: "3 months", "week".
    std::string formatted(formatting::UnitStyle unitStyle, std::vector<Unit> unitsCollapsed,
                          std::vector<Unit> unitsExpanded,
                          formatting::ValueDisplayStrategy valueDisplayStrategy) const;
    /// The period as text by any style whose input is a period.
    template <class Style>
    auto formatted(const Style& style) const {
      return style.format(*this);
    }

    friend bool operator==(const SubscriptionPeriod&, const SubscriptionPeriod&) = default;
    friend bool operator<(const SubscriptionPeriod& lhs, const SubscriptionPeriod& rhs) {
      return lhs.numberOfDays() < rhs.numberOfDays();
    }
    friend bool operator>(const SubscriptionPeriod& lhs, const SubscriptionPeriod& rhs) { return rhs < lhs; }
    friend bool operator<=(const SubscriptionPeriod& lhs, const SubscriptionPeriod& rhs) { return !(rhs < lhs); }
    friend bool operator>=(const SubscriptionPeriod& lhs, const SubscriptionPeriod& rhs) { return !(lhs < rhs); }
  };

  /// An introductory or promotional offer of a subscription.
  struct SubscriptionOffer {
    using ID = Tagged<SubscriptionOffer, std::string>;

    /// Text raw values "introductory" and "promotional".
    enum class OfferType { introductory, promotional };
    /// Text raw values "pay_as_you_go", "pay_up_front" and "free_trial".
    enum class PaymentMode { payAsYouGo, payUpFront, freeTrial };

    /// Format styles of offers and payment modes, in storekit/formatting/offer_format_style.h.
    struct FormatStyle;
    struct PaymentModeFormatStyle;

    std::optional<ID> id;  ///< absent when the store gives none
    OfferType type = OfferType::introductory;
    Decimal price;
    Locale priceLocale;
    std::string displayPrice;
    SubscriptionPeriod period;
    PaymentMode paymentMode = PaymentMode::payAsYouGo;

    /// The free-trial line of the offer; empty unless it is a free trial.
    std::string formatted() const;
    template <class Style>
    auto formatted(const Style& style) const {
      return style.format(*this);
    }

    friend bool operator==(const SubscriptionOffer&, const SubscriptionOffer&) = default;
  };

  /// What makes a product an auto-renewing subscription.
  struct SubscriptionInfo {
    std::optional<SubscriptionOffer> introductoryOffer;
    std::string subscriptionGroupID;
    SubscriptionPeriod subscriptionPeriod;
    std::vector<SubscriptionOffer> promotionalOffers;  ///< in the store's order
    bool isEligibleForIntroOffer = false;

    friend bool operator==(const SubscriptionInfo&, const SubscriptionInfo&) = default;
  };

  /// The first seven fields; `promotionalOfferID` starts absent and is only ever set by
  /// assignment afterwards.
  Product(ID id, std::string displayName, std::string description, Decimal price, Locale priceLocale,
          std::string displayPrice, std::optional<SubscriptionInfo> subscription)
      : id(std::move(id)),
        displayName(std::move(displayName)),
        description(std::move(description)),
        price(price),
        priceLocale(std::move(priceLocale)),
        displayPrice(std::move(displayPrice)),
        subscription(std::move(subscription)) {}

  ID id;  ///< the store's product identifier
  std::string displayName;
  std::string description;
  Decimal price;  ///< in the currency of `priceLocale`
  Locale priceLocale;
  std::string displayPrice;
  std::optional<SubscriptionInfo> subscription;
  std::optional<SubscriptionOffer::ID> promotionalOfferID;

  // The store product's own property names, so code written against it reads the same.
  const std::string& localizedTitle() const { return displayName; }
  const std::string& localizedDescription() const { return description; }
  std::optional<SubscriptionPeriod> subscriptionPeriod() const;
  std::optional<SubscriptionOffer> introductoryPrice() const;

  /// This product's saving against `other` as a fraction with at most two digits (0.85 is
  /// 85 % cheaper; negative when this one is dearer). Subscriptions compare prices per year;
  /// otherwise the plain prices are compared. Zero when either amount is not positive.
  std::optional<Decimal> discount(const Product& other) const;
  /// The discount formatted as a percentage in the current locale: "85%".
  std::optional<std::string> displayDiscount(const Product& other) const;

  /// The product as text by any style whose input is a product.
  template <class Style>
  auto formatted(const Style& style) const {
    return style.format(*this);
  }

  friend bool operator==(const Product&, const Product&) = default;
};

/// A price as currency text in `priceLocale`, rounded by `roundingRule`, through the shared
/// price formatter: "$9.99", "9,99 €". Absent when the formatter produces no text. (The
/// product's own `displayPrice` field holds this text for its price; C++ cannot give a
/// static function the name of a field, so the operation lives beside the record.)
std::optional<std::string> displayPrice(const Decimal& price, const Locale& priceLocale,
                                        FloatingPointRoundingRule roundingRule);

/// The grammatical number of a count, by its absolute value alone (21 is `pluralTwo`). The
/// most negative 64-bit integer has no absolute value and stops the process.
formatting::GrammaticalNumber grammaticalNumber(std::int64_t count);

/// A unit's word by style and grammatical number: "months", "mo", "monthly".
std::string formatted(Product::SubscriptionPeriod::Unit unit, formatting::UnitStyle style,
                      formatting::GrammaticalNumber number);
/// The payment mode's localised name.
std::string formatted(Product::SubscriptionOffer::PaymentMode mode);
template <class Style>
auto formatted(Product::SubscriptionOffer::PaymentMode mode, const Style& style) {
  return style.format(mode);
}

// Raw values and names of the enumerations.
std::string_view rawValue(Product::SubscriptionOffer::OfferType type);
std::string_view rawValue(Product::SubscriptionOffer::PaymentMode mode);
std::int64_t rawValue(Product::SubscriptionPeriod::Unit unit);
/// The lower-case unit name: "day", "week", "month", "year".
std::string_view description(Product::SubscriptionPeriod::Unit unit);

// Dump shapes (`Product.SubscriptionPeriod(unit: .month, value: 1)` and so on).
support::DumpValue customDumpValue(const Product& product);
support::DumpValue customDumpValue(const Product::SubscriptionInfo& info);
support::DumpValue customDumpValue(const Product::SubscriptionOffer& offer);
support::DumpValue customDumpValue(const Product::SubscriptionPeriod& period);
support::DumpValue customDumpValue(Product::SubscriptionOffer::OfferType type);
support::DumpValue customDumpValue(Product::SubscriptionOffer::PaymentMode mode);
support::DumpValue customDumpValue(Product::SubscriptionPeriod::Unit unit);

}  // namespace velquist::storekit

template <>
struct velquist::support::CaseList<velquist::storekit::Product::SubscriptionOffer::OfferType> {
  using E = velquist::storekit::Product::SubscriptionOffer::OfferType;
  static constexpr std::array all{E::introductory, E::promotional};
};
template <>
struct velquist::support::CaseList<velquist::storekit::Product::SubscriptionOffer::PaymentMode> {
  using E = velquist::storekit::Product::SubscriptionOffer::PaymentMode;
  static constexpr std::array all{E::payAsYouGo, E::payUpFront, E::freeTrial};
};
template <>
struct velquist::support::CaseList<velquist::storekit::Product::SubscriptionPeriod::Unit> {
  using E = velquist::storekit::Product::SubscriptionPeriod::Unit;
  static constexpr std::array all{E::day, E::week, E::month, E::year};
};

template <>
struct std::hash<velquist::storekit::Product::SubscriptionPeriod> {
  std::size_t operator()(const velquist::storekit::Product::SubscriptionPeriod& period) const;
};
template <>
struct std::hash<velquist::storekit::Product::SubscriptionOffer> {
  std::size_t operator()(const velquist::storekit::Product::SubscriptionOffer& offer) const;
};
template <>
struct std::hash<velquist::storekit::Product::SubscriptionInfo> {
  std::size_t operator()(const velquist::storekit::Product::SubscriptionInfo& info) const;
};
template <>
struct std::hash<velquist::storekit::Product> {
  std::size_t operator()(const velquist::storekit::Product& product) const;
};
VELQUIST_API_END
