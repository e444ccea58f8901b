#include "velquist/storekit/formatting/plural_period_format_style.h"

#include <unicode/measunit.h>
#include <unicode/numberformatter.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "velquist/support/hasher.h"
#include "velquist/support/mutex.h"

namespace velquist::storekit {

using Period = Product::SubscriptionPeriod;
using Unit = Period::Unit;
using Style = Period::PluralFormatStyle;
using Width = Style::Width;
using formatting::ValueDisplayStrategy;

namespace {

using Formatter = icu::number::LocalizedNumberFormatter;

icu::MeasureUnit measureUnit(Unit unit) {
  switch (unit) {
    case Unit::day: return icu::MeasureUnit::getDay();
    case Unit::week: return icu::MeasureUnit::getWeek();
    case Unit::month: return icu::MeasureUnit::getMonth();
    case Unit::year: return icu::MeasureUnit::getYear();
  }
  return icu::MeasureUnit::getDay();  // not a unit at all; any unit beats undefined behaviour
}

// The ICU locale a locale identifier names; one ICU cannot hold formats as the root locale.
icu::Locale icuLocale(const std::string& identifier) {
  if (identifier.find('\0') != std::string::npos) return icu::Locale::getRoot();
  icu::Locale result(identifier.c_str());
  return result.isBogus() ? icu::Locale::getRoot() : result;
}

// One ICU unit formatter per locale, unit and width, made on first use and kept for the
// life of the process. ICU's formatters are immutable and safe to share between threads;
// the map is only touched under the lock. Each thread also remembers the last formatter it
// used, so a run of texts in one language and unit does not take the lock at all.
class FormatterCache {
 public:
  static FormatterCache& shared() {
    static FormatterCache* cache = new FormatterCache();  // never destroyed: formatting may run at exit
    return *cache;
  }

  std::shared_ptr<const Formatter> formatter(const std::string& identifier, Unit unit, Width width) {
    thread_local struct {
      std::string identifier;
      Unit unit = Unit::day;
      Width width = Width::complete;
      std::shared_ptr<const Formatter> formatter;
    } last;
    if (last.formatter && last.unit == unit && last.width == width && last.identifier == identifier) {
      return last.formatter;
    }
    std::string key = identifier;
    key += '\x1f';
    key += static_cast<char>('0' + static_cast<int>(unit));
    key += static_cast<char>('0' + static_cast<int>(width));
    std::shared_ptr<const Formatter> found;
    {
      support::LockGuard guard(mutex_);
      const auto entry = formatters_.find(key);
      if (entry != formatters_.end()) found = entry->second;
    }
    if (!found) {
      // Made outside the lock (making one only records its settings; ICU loads the locale's
      // data on the first format). Two threads may both make one; the first stored wins.
      auto made = std::make_shared<const Formatter>(
          icu::number::NumberFormatter::withLocale(icuLocale(identifier))
              .unit(measureUnit(unit))
              .unitWidth(width == Width::complete ? UNUM_UNIT_WIDTH_FULL_NAME : UNUM_UNIT_WIDTH_SHORT));
      support::LockGuard guard(mutex_);
      found = formatters_.try_emplace(std::move(key), std::move(made)).first->second;
    }
    last.identifier = identifier;
    last.unit = unit;
    last.width = width;
    last.formatter = found;
    return found;
  }

 private:
  support::Mutex mutex_;
  std::unordered_map<std::string, std::shared_ptr<const Formatter>> formatters_ VELQUIST_GUARDED_BY(mutex_);
};

// Space around a number that goes with it when the number is left out: white space
// (including the no-break spaces CLDR puts between number and word) and the direction
// marks of right-to-left languages.
bool isSpaceAroundNumber(UChar32 c) { return u_isUWhiteSpace(c) || c == 0x200E || c == 0x200F || c == 0x061C; }

// The formatted text without its number: the number's characters are cut out, then the
// space on either side of the cut is dropped when that leaves space on the other side or
// the text's edge, so "1 week" gives "week" and "يوم" stays "يوم".
icu::UnicodeString withoutNumber(const icu::number::FormattedNumber& formatted, UErrorCode& status) {
  icu::UnicodeString text = formatted.toString(status);
  icu::ConstrainedFieldPosition position;
  position.constrainCategory(UFIELD_CATEGORY_NUMBER);
  std::vector<std::pair<int32_t, int32_t>> spans;  // the number's parts, in text order
  while (formatted.nextPosition(position, status) && U_SUCCESS(status)) {
    switch (position.getField()) {
      case UNUM_INTEGER_FIELD:
      case UNUM_GROUPING_SEPARATOR_FIELD:
      case UNUM_SIGN_FIELD:
        spans.emplace_back(position.getStart(), position.getLimit());
        break;
      default:  // the unit's own word is a field of this category too
        break;
    }
  }
  if (U_FAILURE(status) || spans.empty()) return text;
  int32_t start = spans.front().first;
  int32_t limit = spans.front().second;
  for (const auto& [spanStart, spanLimit] : spans) {
    start = std::min(start, spanStart);
    limit = std::max(limit, spanLimit);
  }
  const icu::UnicodeString before = icu::UnicodeString(text, 0, start);
  const icu::UnicodeString after = icu::UnicodeString(text, limit);
  auto trimEnd = [](icu::UnicodeString s) {
    while (s.length() > 0 && isSpaceAroundNumber(s.char32At(s.length() - 1))) s.truncate(s.moveIndex32(s.length(), -1));
    return s;
  };
  auto trimStart = [](icu::UnicodeString s) {
    int32_t i = 0;
    while (i < s.length() && isSpaceAroundNumber(s.char32At(i))) i = s.moveIndex32(i, 1);
    return icu::UnicodeString(s, i);
  };
  const icu::UnicodeString head = trimEnd(before);
  const icu::UnicodeString tail = trimStart(after);
  if (head.isEmpty()) return tail;
  if (tail.isEmpty()) return head;
  return icu::UnicodeString(head).append(u' ').append(tail);
}

// The text of `count` units in `identifier`'s locale, with or without its number; nullopt
// when ICU fails.
std::optional<std::string> icuText(std::int64_t count, Unit unit, Width width, const std::string& identifier,
                                   bool writeNumber) {
  const std::shared_ptr<const Formatter> formatter = FormatterCache::shared().formatter(identifier, unit, width);
  UErrorCode status = U_ZERO_ERROR;
  const icu::number::FormattedNumber formatted = formatter->formatInt(count, status);
  const icu::UnicodeString text = writeNumber ? formatted.toString(status) : withoutNumber(formatted, status);
  if (U_FAILURE(status) || text.isEmpty()) return std::nullopt;
  std::string utf8;
  text.toUTF8String(utf8);
  return utf8;
}

bool contains(const std::vector<Unit>& units, Unit unit) {
  return std::find(units.begin(), units.end(), unit) != units.end();
}

}  // namespace

Style Style::width(Width replacement) const {
  Style copy = *this;
  copy.width_ = replacement;
  return copy;
}

Style Style::unitsCollapsed(std::vector<Unit> replacement) const {
  Style copy = *this;
  copy.unitsCollapsed_ = std::move(replacement);
  return copy;
}

Style Style::unitsExpanded(std::vector<Unit> replacement) const {
  Style copy = *this;
  copy.unitsExpanded_ = std::move(replacement);
  return copy;
}

Style Style::valueDisplayStrategy(ValueDisplayStrategy replacement) const {
  Style copy = *this;
  copy.valueDisplayStrategy_ = replacement;
  return copy;
}

std::string Style::format(const Period& period) const { return format(period, foundation::Locale::current()); }

std::string Style::format(const Period& period, const foundation::Locale& locale) const {
  const bool always = valueDisplayStrategy_ == ValueDisplayStrategy::always;
  // The same cases as FormatStyle, first match wins: which count of which unit is written,
  // and whether its number is.
  std::int64_t shownCount = period.value;
  Unit shownUnit = period.unit;
  bool writeNumber = true;
  if (period.unit == Unit::day && period.value == 7 && contains(unitsCollapsed_, Unit::day)) {
    shownCount = 1;
    shownUnit = Unit::week;
    writeNumber = always;
  } else if (period.unit == Unit::month && period.value == 12 && contains(unitsCollapsed_, Unit::month)) {
    shownCount = 1;
    shownUnit = Unit::year;
    writeNumber = always;
  } else if (period.unit == Unit::week && period.value == 1 && contains(unitsExpanded_, Unit::week)) {
    shownCount = 7;
    shownUnit = Unit::day;
  } else if (period.unit == Unit::year && period.value == 1 && contains(unitsExpanded_, Unit::year)) {
    shownCount = 12;
    shownUnit = Unit::month;
  } else if (period.value == 1) {
    writeNumber = always;
  }

  if (auto text = icuText(shownCount, shownUnit, width_, locale.identifier(), writeNumber)) return *std::move(text);
  // ICU could not format (it falls back to its root locale for languages it does not know,
  // so this takes a broken ICU installation): the number and the unit's name still say
  // something true.
  const std::string name(storekit::description(shownUnit));
  return writeNumber ? std::to_string(shownCount) + " " + name : name;
}

std::string pluralUnitWord(Unit unit, std::int64_t count, Width width, const foundation::Locale& locale) {
  return icuText(count, unit, width, locale.identifier(), false).value_or(std::string(description(unit)));
}

}  // namespace velquist::storekit

std::size_t std::hash<velquist::storekit::Product::SubscriptionPeriod::PluralFormatStyle>::operator()(
    const velquist::storekit::Product::SubscriptionPeriod::PluralFormatStyle& style) const {
  return velquist::support::Hasher()
      .combine(style.width())
      .combine(style.unitsCollapsed())
      .combine(style.unitsExpanded())
      .combine(style.valueDisplayStrategy())
      .finalize();
}
