// Price arithmetic of the product records: restating a price for another period, the
// saving of one product over another, and the display texts of prices and discounts.

#include "velquist/storekit/formatting/shared_formatters.h"
#include "velquist/storekit/product/product.h"

namespace velquist::storekit {

using foundation::NumberFormatter;
using Period = Product::SubscriptionPeriod;
using Unit = Period::Unit;

Decimal Period::convertPrice(const Decimal& amount, const SubscriptionPeriod& period) const {
  // Calendar factors written as double literals and converted as the platform converts
  // them: 52.1786 becomes 52.17860000000001024. They disagree with `numberOfDays` (a year
  // is 365.3 days here but 336 there) on purpose.
  static const Decimal daysPerMonth = Decimal::fromDouble(30.417);
  static const Decimal daysPerYear = Decimal::fromDouble(365.3);
  static const Decimal weeksPerMonth = Decimal::fromDouble(4.345);
  static const Decimal weeksPerYear = Decimal::fromDouble(52.1786);

  const Decimal* factor = nullptr;
  if (unit == Unit::day && period.unit == Unit::month) factor = &daysPerMonth;
  if (unit == Unit::day && period.unit == Unit::year) factor = &daysPerYear;
  if (unit == Unit::week && period.unit == Unit::month) factor = &weeksPerMonth;
  if (unit == Unit::week && period.unit == Unit::year) factor = &weeksPerYear;
  if (factor != nullptr) {
    // Left to right, exactly in this order: the rounding of each step is part of the result.
    return amount / Decimal(value) * *factor * Decimal(period.value);
  }
  // Every other pair goes through the ratio of day counts, computed in double.
  const double ratio = static_cast<double>(period.numberOfDays()) / static_cast<double>(numberOfDays());
  return amount * Decimal::fromDouble(ratio);
}

std::optional<Decimal> Product::discount(const Product& other) const {
  Decimal amount = price;
  Decimal otherAmount = other.price;
  if (subscription && other.subscription) {
    amount = subscription->subscriptionPeriod.convertPrice(price, SubscriptionPeriod::year(1));
    otherAmount = other.subscription->subscriptionPeriod.convertPrice(other.price, SubscriptionPeriod::year(1));
  }
  if (!(Decimal(0) < amount && Decimal(0) < otherAmount)) return Decimal(0);
  return Decimal(1) - (amount / otherAmount).rounded(2, Decimal::RoundingMode::bankers);
}

std::optional<std::string> Product::displayDiscount(const Product& other) const {
  const auto saving = discount(other);
  if (!saving) return std::nullopt;
  return discountFormatter().string(*saving);
}

std::optional<std::string> displayPrice(const Decimal& price, const Locale& priceLocale,
                                        FloatingPointRoundingRule roundingRule) {
  PriceFormatter& formatter = priceFormatter();
  formatter.setLocale(priceLocale);
  formatter.setRoundingMode(roundingMode(roundingRule));
  return formatter.string(price);
}

PriceFormatter::RoundingMode roundingMode(FloatingPointRoundingRule rule) {
  using Mode = PriceFormatter::RoundingMode;
  switch (rule) {
    case FloatingPointRoundingRule::toNearestOrAwayFromZero: return Mode::halfUp;
    case FloatingPointRoundingRule::toNearestOrEven: return Mode::halfEven;
    case FloatingPointRoundingRule::up: return Mode::up;
    case FloatingPointRoundingRule::down: return Mode::down;
    case FloatingPointRoundingRule::towardZero: return Mode::halfDown;
    case FloatingPointRoundingRule::awayFromZero: return Mode::up;
  }
  return Mode::up;
}

NumberFormatter& discountFormatter() {
  static auto* const formatter = [] {
    auto* percent = new NumberFormatter();
    percent->setNumberStyle(NumberFormatter::Style::percent);
    return percent;
  }();
  return *formatter;
}

PriceFormatter& priceFormatter() {
  static auto* const formatter =
      new PriceFormatter(foundation::Locale::autoupdatingCurrent(), PriceFormatter::RoundingMode::down);
  return *formatter;
}

}  // namespace velquist::storekit
