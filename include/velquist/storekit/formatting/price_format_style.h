#pragma once

// The price format style: a product's price with its subscription period, for paywalls.
//
// Thread-safety: the style is a value; one object may be read from many threads.
// Formatting goes through `displayPrice`, which shares one price formatter across
// the process (see there for what concurrent use means).

#include "velquist/export.h"
#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "velquist/storekit/formatting/period_format_style.h"
#include "velquist/storekit/formatting/style_options.h"
#include "velquist/storekit/product/product.h"
#include "velquist/support/raw_value.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// The namespace of the product format styles; not constructible.
///
///     product.formatted(Product::FormatStyle::price())  ->  "$4.99 / week"
struct Product::FormatStyle {
  FormatStyle() = delete;

  struct Price;

  /// The usual price style: rounding down, a slash between price and period, the period
  /// written in full words. With a period given, the price is restated for that period
  /// (4.99 a week as a price per year) and that period is written.
  static Price price(std::optional<SubscriptionPeriod> subscriptionPeriod = std::nullopt);
};

/// Writes a product's price and, for a subscription, its period: the price first, then the
/// joint, then the period as `SubscriptionPeriod::FormatStyle` writes it with
/// `subscriptionPeriodUnitStyle` (so a one-unit period is the bare word). The joint is
/// " / " for `slash`, "/" for `slash` with the `shortened` unit style, and one space for
/// `omitted`. The price is `displayPrice` in the product's `priceLocale` with
/// `roundingRule`; when it gives no text, the period alone is written. A product without a
/// subscription is its price alone (or the empty text), whatever the style says. In en_US:
///
///     weekly.formatted(Product::FormatStyle::price())                                 ->  "$4.99 / week"
///     weekly.formatted(Product::FormatStyle::price().subscriptionPeriodUnitStyle(UnitStyle::shortened))
///                                                                                      ->  "$4.99/wk"
///     weekly.formatted(Product::FormatStyle::price(SubscriptionPeriod::year(1)))      ->  "$260.37 / year"
///     weekly.formatted(Product::FormatStyle::price().separator(Separator::omitted)
///                          .subscriptionPeriodUnitStyle(UnitStyle::recurrent))         ->  "$4.99 weekly"
///
/// Fields are read through accessors of the same name; the modifiers of the same name with
/// one argument return a copy with that one field replaced.
struct Product::FormatStyle::Price {
  /// What stands between price and period; raw values "/" and "" (empty).
  enum class Separator { slash, omitted };
  /// Whether the period is written; raw values "automatic" and "omitted".
  enum class SubscriptionPeriodStyle { automatic, omitted };
  using UnitStyle = formatting::UnitStyle;

  Price(FloatingPointRoundingRule roundingRule, Separator separator,
        std::optional<SubscriptionPeriod> subscriptionPeriod, SubscriptionPeriodStyle subscriptionPeriodStyle,
        UnitStyle subscriptionPeriodUnitStyle)
      : roundingRule_(roundingRule),
        separator_(separator),
        subscriptionPeriod_(subscriptionPeriod),
        subscriptionPeriodStyle_(subscriptionPeriodStyle),
        subscriptionPeriodUnitStyle_(subscriptionPeriodUnitStyle) {}

  FloatingPointRoundingRule roundingRule() const { return roundingRule_; }
  Separator separator() const { return separator_; }
  /// The period the price is restated for and written with; absent: the product's own.
  const std::optional<SubscriptionPeriod>& subscriptionPeriod() const { return subscriptionPeriod_; }
  SubscriptionPeriodStyle subscriptionPeriodStyle() const { return subscriptionPeriodStyle_; }
  UnitStyle subscriptionPeriodUnitStyle() const { return subscriptionPeriodUnitStyle_; }

  [[nodiscard]] Price roundingRule(FloatingPointRoundingRule replacement) const;
  [[nodiscard]] Price separator(Separator replacement) const;
  [[nodiscard]] Price subscriptionPeriodStyle(SubscriptionPeriodStyle replacement) const;
  [[nodiscard]] Price subscriptionPeriodUnitStyle(UnitStyle replacement) const;
  /// The style unchanged: the price is always written in the product's own `priceLocale`.
  [[nodiscard]] Price locale(const Locale& locale) const;

  std::string format(const Product& product) const;

  friend bool operator==(const Price&, const Price&) = default;

 private:
  FloatingPointRoundingRule roundingRule_;
  Separator separator_;
  std::optional<SubscriptionPeriod> subscriptionPeriod_;
  SubscriptionPeriodStyle subscriptionPeriodStyle_;
  UnitStyle subscriptionPeriodUnitStyle_;
};

std::string_view rawValue(Product::FormatStyle::Price::Separator separator);
std::string_view rawValue(Product::FormatStyle::Price::SubscriptionPeriodStyle style);

}  // namespace velquist::storekit

template <>
struct velquist::support::CaseList<velquist::storekit::Product::FormatStyle::Price::Separator> {
  using E = velquist::storekit::Product::FormatStyle::Price::Separator;
  static constexpr std::array all{E::slash, E::omitted};
};
template <>
struct velquist::support::CaseList<velquist::storekit::Product::FormatStyle::Price::SubscriptionPeriodStyle> {
  using E = velquist::storekit::Product::FormatStyle::Price::SubscriptionPeriodStyle;
  static constexpr std::array all{E::automatic, E::omitted};
};

template <>
struct std::hash<velquist::storekit::Product::FormatStyle::Price> {
  std::size_t operator()(const velquist::storekit::Product::FormatStyle::Price& style) const;
};
VELQUIST_API_END
