#include "velquist/storekit/formatting/period_format_style.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "velquist/coreui/l10n.h"
#include "velquist/support/fatal.h"
#include "velquist/support/hasher.h"

namespace velquist::storekit {

using Period = Product::SubscriptionPeriod;
using Unit = Period::Unit;
using formatting::GrammaticalNumber;
using formatting::UnitStyle;
using formatting::ValueDisplayStrategy;

namespace {

namespace words = coreui::L10n::Product::SubscriptionPeriod::Unit;

// The catalogue entries of one unit.
struct UnitWords {
  std::string (*singular)();
  std::string (*plural)();
  std::string (*plural2)();
  std::string (*compactName)();
  std::string (*recurrent)();
};

const UnitWords& wordsOf(Unit unit) {
  static const UnitWords day{&words::day, &words::Day::plural, &words::Day::plural2, &words::Day::compactName,
                             &words::Day::recurrent};
  static const UnitWords week{&words::week, &words::Week::plural, &words::Week::plural2, &words::Week::compactName,
                              &words::Week::recurrent};
  static const UnitWords month{&words::month, &words::Month::plural, &words::Month::plural2,
                               &words::Month::compactName, &words::Month::recurrent};
  static const UnitWords year{&words::year, &words::Year::plural, &words::Year::plural2, &words::Year::compactName,
                              &words::Year::recurrent};
  switch (unit) {
    case Unit::day: return day;
    case Unit::week: return week;
    case Unit::month: return month;
    case Unit::year: return year;
  }
  return day;  // not a unit at all; any word beats undefined behaviour
}

bool contains(const std::vector<Unit>& units, Unit unit) {
  return std::find(units.begin(), units.end(), unit) != units.end();
}

}  // namespace

GrammaticalNumber grammaticalNumber(std::int64_t count) {
  if (count == std::numeric_limits<std::int64_t>::min()) {
    support::fatalError("arithmetic overflow: the absolute value of " + std::to_string(count) +
                        " does not fit in a signed 64-bit integer (grammaticalNumber)");
  }
  const std::int64_t magnitude = count < 0 ? -count : count;
  if (magnitude <= 1) return GrammaticalNumber::singular;
  if (magnitude <= 4) return GrammaticalNumber::plural;
  return GrammaticalNumber::pluralTwo;
}

std::string formatted(Unit unit, UnitStyle style, GrammaticalNumber number) {
  const UnitWords& entries = wordsOf(unit);
  switch (style) {
    case UnitStyle::complete:
      switch (number) {
        case GrammaticalNumber::singular: return entries.singular();
        case GrammaticalNumber::plural: return entries.plural();
        case GrammaticalNumber::pluralTwo: return entries.plural2();
      }
      return entries.singular();
    case UnitStyle::shortened: return entries.compactName();
    case UnitStyle::recurrent: return entries.recurrent();
  }
  return entries.singular();
}

std::string Period::UnitFormatStyle::format(Unit which) const { return storekit::formatted(which, style_, number_); }

Period::FormatStyle Period::FormatStyle::unitStyle(UnitStyle replacement) const {
  FormatStyle copy = *this;
  copy.unitStyle_ = replacement;
  return copy;
}

Period::FormatStyle Period::FormatStyle::unitsCollapsed(std::vector<Unit> replacement) const {
  FormatStyle copy = *this;
  copy.unitsCollapsed_ = std::move(replacement);
  return copy;
}

Period::FormatStyle Period::FormatStyle::unitsExpanded(std::vector<Unit> replacement) const {
  FormatStyle copy = *this;
  copy.unitsExpanded_ = std::move(replacement);
  return copy;
}

Period::FormatStyle Period::FormatStyle::valueDisplayStrategy(ValueDisplayStrategy replacement) const {
  FormatStyle copy = *this;
  copy.valueDisplayStrategy_ = replacement;
  return copy;
}

std::string Period::FormatStyle::format(const Period& period) const {
  const bool always = valueDisplayStrategy_ == ValueDisplayStrategy::always;
  const std::optional<std::string> oneIfAlways = always ? std::optional<std::string>("1") : std::nullopt;

  // The first matching case decides the word's unit and number and the written value.
  Unit wordUnit = period.unit;
  GrammaticalNumber number = GrammaticalNumber::singular;
  std::optional<std::string> valueText;
  if (period.unit == Unit::day && period.value == 7 && contains(unitsCollapsed_, Unit::day)) {
    wordUnit = Unit::week;
    valueText = oneIfAlways;
  } else if (period.unit == Unit::month && period.value == 12 && contains(unitsCollapsed_, Unit::month)) {
    wordUnit = Unit::year;
    valueText = oneIfAlways;
  } else if (period.unit == Unit::week && period.value == 1 && contains(unitsExpanded_, Unit::week)) {
    // The expansions always pair the fixed numbers 7 and 12 with the second plural form.
    wordUnit = Unit::day;
    number = GrammaticalNumber::pluralTwo;
    valueText = "7";
  } else if (period.unit == Unit::year && period.value == 1 && contains(unitsExpanded_, Unit::year)) {
    wordUnit = Unit::month;
    number = GrammaticalNumber::pluralTwo;
    valueText = "12";
  } else if (period.value == 1) {
    valueText = oneIfAlways;
  } else {
    number = grammaticalNumber(period.value);
    valueText = std::to_string(period.value);  // ASCII digits, no grouping, whatever the locale
  }

  std::string word = storekit::formatted(wordUnit, unitStyle_, number);
  if (!valueText) return word;
  return *valueText + " " + word;
}

std::string Period::formatted(UnitStyle unitStyle, std::vector<Unit> unitsCollapsed, std::vector<Unit> unitsExpanded,
                              ValueDisplayStrategy valueDisplayStrategy) const {
  return FormatStyle(unitStyle, std::move(unitsCollapsed), std::move(unitsExpanded), valueDisplayStrategy)
      .format(*this);
}

}  // namespace velquist::storekit

using velquist::support::Hasher;

std::size_t std::hash<velquist::storekit::Product::SubscriptionPeriod::UnitFormatStyle>::operator()(
    const velquist::storekit::Product::SubscriptionPeriod::UnitFormatStyle& style) const {
  return Hasher().combine(style.style()).combine(style.number()).finalize();
}

std::size_t std::hash<velquist::storekit::Product::SubscriptionPeriod::FormatStyle>::operator()(
    const velquist::storekit::Product::SubscriptionPeriod::FormatStyle& style) const {
  return Hasher()
      .combine(style.unitStyle())
      .combine(style.unitsCollapsed())
      .combine(style.unitsExpanded())
      .combine(style.valueDisplayStrategy())
      .finalize();
}
