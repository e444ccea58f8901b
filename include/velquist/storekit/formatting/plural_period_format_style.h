#pragma once

// A period format style that writes the number and the unit exactly as CLDR does for a
// locale, through ICU's unit formatting: the language's own plural categories (zero, one,
// two, few, many, other), its own digits and grouping, its own order of number and word.
//
// It stands beside `Product::SubscriptionPeriod::FormatStyle`, which keeps its fixed
// three-form rule (1 / 2 to 4 / 5 and more) and its catalogue words; this one is for hosts
// that want grammatical texts in every language:
//
//                                       FormatStyle     PluralFormatStyle
//     ru_RU, 21 days                    "21 дней"       "21 день"
//     ru_RU, 22 days                    "22 дня"        "22 дня"
//     pl_PL, 5 months                   "5 miesięcy"    "5 miesięcy"
//     ar_EG, 3 weeks                    "3 أسابيع"      "٣ أسابيع"
//     en_US, 1 week (automatic)         "week"          "week"
//     en_US, 1 week, shortened, always  "1 wk"          "1 wk"
//
// The options mean what they mean for `FormatStyle`: exactly 7 days read as a week and
// exactly 12 months as a year when `day` / `month` are in `unitsCollapsed`; exactly 1 week
// reads as 7 days and exactly 1 year as 12 months when `week` / `year` are in
// `unitsExpanded` (the number then always written); under `ValueDisplayStrategy::automatic`
// the number 1 is left out, leaving the word CLDR uses with it ("week", "неделя").
// Where CLDR writes one as a word alone (Arabic "أسبوع"), that word is the text either way.
//
// Thread-safety: a value; one object may format from many threads at once. The ICU
// formatters behind it are made once per locale, unit and width and shared by all threads.

#include "velquist/export.h"
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "velquist/foundation/locale.h"
#include "velquist/storekit/formatting/style_options.h"
#include "velquist/storekit/product/product.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

struct Product::SubscriptionPeriod::PluralFormatStyle {
  /// How long the unit's name is: CLDR's long name ("3 weeks", "3 недели") or its short one
  /// ("3 wks", "3 нед."). Case order is fixed: it is part of the serial form.
  enum class Width { complete, shortened };
  using ValueDisplayStrategy = formatting::ValueDisplayStrategy;

  explicit PluralFormatStyle(Width width = Width::complete, std::vector<Unit> unitsCollapsed = {},
                             std::vector<Unit> unitsExpanded = {},
                             ValueDisplayStrategy valueDisplayStrategy = ValueDisplayStrategy::automatic)
      : width_(width),
        unitsCollapsed_(std::move(unitsCollapsed)),
        unitsExpanded_(std::move(unitsExpanded)),
        valueDisplayStrategy_(valueDisplayStrategy) {}

  Width width() const { return width_; }
  const std::vector<Unit>& unitsCollapsed() const { return unitsCollapsed_; }
  const std::vector<Unit>& unitsExpanded() const { return unitsExpanded_; }
  ValueDisplayStrategy valueDisplayStrategy() const { return valueDisplayStrategy_; }

  // Modifiers, one per field, each returning a copy; the lists are replaced whole.
  [[nodiscard]] PluralFormatStyle width(Width replacement) const;
  [[nodiscard]] PluralFormatStyle unitsCollapsed(std::vector<Unit> replacement) const;
  [[nodiscard]] PluralFormatStyle unitsExpanded(std::vector<Unit> replacement) const;
  [[nodiscard]] PluralFormatStyle valueDisplayStrategy(ValueDisplayStrategy replacement) const;

  /// The period's text in the current locale (`foundation::Locale::current()`).
  std::string format(const SubscriptionPeriod& period) const;
  /// The period's text in `locale`. Every 64-bit value is written (grouped, in the locale's
  /// digits, "-" as the locale writes it); nothing stops the process.
  std::string format(const SubscriptionPeriod& period, const foundation::Locale& locale) const;

  friend bool operator==(const PluralFormatStyle&, const PluralFormatStyle&) = default;

 private:
  Width width_;
  std::vector<Unit> unitsCollapsed_;
  std::vector<Unit> unitsExpanded_;
  ValueDisplayStrategy valueDisplayStrategy_;
};

/// The word CLDR writes with `count` of `unit` in `locale`, without the number: "дня" for
/// 3 days in Russian, "dni" for 5 days in Polish, "يوم" for 1 day in Arabic (where CLDR writes
/// no number at all). The catalogue generator takes the library's three forms from here.
/// Thread-safe.
std::string pluralUnitWord(Product::SubscriptionPeriod::Unit unit, std::int64_t count,
                           Product::SubscriptionPeriod::PluralFormatStyle::Width width,
                           const foundation::Locale& locale);

}  // namespace velquist::storekit

template <>
struct std::hash<velquist::storekit::Product::SubscriptionPeriod::PluralFormatStyle> {
  std::size_t operator()(const velquist::storekit::Product::SubscriptionPeriod::PluralFormatStyle& style) const;
};
VELQUIST_API_END
