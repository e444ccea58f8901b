#pragma once

// The format styles of subscription periods and of their units. Every word comes from the
// localisation catalogue (coreui/l10n.h) for the current language; these styles choose
// the entry and join it with the number.
//
// Both styles are small values: the fields are read through accessors of the same name,
// and each modifier of the same name with one argument returns a copy with that one field
// replaced (the style itself never changes):
//
//     const auto style = Product::SubscriptionPeriod::FormatStyle().unitStyle(UnitStyle::shortened);
//     style.unitStyle()  ->  UnitStyle::shortened
//
// Thread-safety: values; one object may be read (and used to format) from many threads.

#include "velquist/export.h"
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "velquist/storekit/formatting/style_options.h"
#include "velquist/storekit/product/product.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// Names one unit: the full word in the chosen grammatical number (`complete`), the compact
/// name (`shortened`) or the adjective of recurrence (`recurrent`); the last two ignore the
/// number. In English:
///
///     UnitFormatStyle(UnitStyle::complete, GrammaticalNumber::pluralTwo).format(Unit::month)  ->  "months"
///     UnitFormatStyle(UnitStyle::shortened).format(Unit::month)                               ->  "mo"
///     UnitFormatStyle(UnitStyle::recurrent).format(Unit::month)                               ->  "monthly"
struct Product::SubscriptionPeriod::UnitFormatStyle {
  using UnitStyle = formatting::UnitStyle;
  using GrammaticalNumber = formatting::GrammaticalNumber;

  explicit UnitFormatStyle(UnitStyle style = UnitStyle::complete,
                           GrammaticalNumber number = GrammaticalNumber::singular)
      : style_(style), number_(number) {}

  UnitStyle style() const { return style_; }
  GrammaticalNumber number() const { return number_; }
  [[nodiscard]] UnitFormatStyle style(UnitStyle replacement) const { return UnitFormatStyle(replacement, number_); }
  [[nodiscard]] UnitFormatStyle number(GrammaticalNumber replacement) const {
    return UnitFormatStyle(style_, replacement);
  }

  /// The unit's word, exactly as the catalogue gives it.
  std::string format(Unit which) const;

  friend bool operator==(const UnitFormatStyle&, const UnitFormatStyle&) = default;

 private:
  UnitStyle style_;
  GrammaticalNumber number_;
};

/// Names a whole period as a number and a unit word, joined by one space; the number 1 is
/// left out under `ValueDisplayStrategy::automatic`. Two restatements are opt-in per unit:
/// exactly 7 days read as a week and exactly 12 months as a year when `day` / `month` are
/// in `unitsCollapsed`; exactly 1 week reads as "7" days and exactly 1 year as "12" months
/// when `week` / `year` are in `unitsExpanded`. Other members of the lists have no effect.
/// The number is written in ASCII digits without grouping, "-" before a negative one. In
/// English:
///
///     FormatStyle().format(month(3))                                       ->  "3 months"
///     FormatStyle().format(week(1))                                        ->  "week"
///     FormatStyle().valueDisplayStrategy(ValueDisplayStrategy::always).format(week(1))  ->  "1 week"
///     FormatStyle().unitsCollapsed({Unit::day}).format(day(7))             ->  "week"
///     FormatStyle(UnitStyle::shortened, {}, {Unit::year}).format(year(1))  ->  "12 mo"
///
/// A period whose value is the most negative 64-bit integer has no grammatical number and
/// stops the process (see `grammaticalNumber`).
struct Product::SubscriptionPeriod::FormatStyle {
  using UnitStyle = formatting::UnitStyle;
  using ValueDisplayStrategy = formatting::ValueDisplayStrategy;

  explicit FormatStyle(UnitStyle unitStyle = UnitStyle::complete, std::vector<Unit> unitsCollapsed = {},
                       std::vector<Unit> unitsExpanded = {},
                       ValueDisplayStrategy valueDisplayStrategy = ValueDisplayStrategy::automatic)
      : unitStyle_(unitStyle),
        unitsCollapsed_(std::move(unitsCollapsed)),
        unitsExpanded_(std::move(unitsExpanded)),
        valueDisplayStrategy_(valueDisplayStrategy) {}

  UnitStyle unitStyle() const { return unitStyle_; }
  const std::vector<Unit>& unitsCollapsed() const { return unitsCollapsed_; }
  const std::vector<Unit>& unitsExpanded() const { return unitsExpanded_; }
  ValueDisplayStrategy valueDisplayStrategy() const { return valueDisplayStrategy_; }

  // Modifiers, one per field. `unitsCollapsed(list)` and `unitsExpanded(list)` replace the
  // list whole; they do not merge.
  [[nodiscard]] FormatStyle unitStyle(UnitStyle replacement) const;
  [[nodiscard]] FormatStyle unitsCollapsed(std::vector<Unit> replacement) const;
  [[nodiscard]] FormatStyle unitsExpanded(std::vector<Unit> replacement) const;
  [[nodiscard]] FormatStyle valueDisplayStrategy(ValueDisplayStrategy replacement) const;

  std::string format(const SubscriptionPeriod& period) const;

  friend bool operator==(const FormatStyle&, const FormatStyle&) = default;

 private:
  UnitStyle unitStyle_;
  std::vector<Unit> unitsCollapsed_;
  std::vector<Unit> unitsExpanded_;
  ValueDisplayStrategy valueDisplayStrategy_;
};

}  // namespace velquist::storekit

template <>
struct std::hash<velquist::storekit::Product::SubscriptionPeriod::UnitFormatStyle> {
  std::size_t operator()(const velquist::storekit::Product::SubscriptionPeriod::UnitFormatStyle& style) const;
};
template <>
struct std::hash<velquist::storekit::Product::SubscriptionPeriod::FormatStyle> {
  std::size_t operator()(const velquist::storekit::Product::SubscriptionPeriod::FormatStyle& style) const;
};
VELQUIST_API_END
