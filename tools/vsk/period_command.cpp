#include <cstdint>
#include <limits>
#include <ostream>

#include "command.h"
#include "velquist/foundation/locale.h"
#include "velquist/storekit/formatting/period_format_style.h"
#include "velquist/storekit/formatting/plural_period_format_style.h"
#include "velquist/storekit/product/iso8601_period.h"

namespace velquist::vsk {

Command periodCommand() {
  return {
      .name = "period",
      .usage = "period <ISO-8601 period> [--locale <id>]",
      .summary = "unit, value, day count, analytics value and texts of a period such as P1W",
      .details = "The period is one ISO 8601 component: P<n>D, P<n>W, P<n>M or P<n>Y.\n"
                 "Day counts use the library's calendar: a month is 28 days, a year 336.\n"
                 "The texts are in --locale (default: the current locale): the library's period\n"
                 "style with its complete, shortened and recurrent words, then the style that\n"
                 "follows the language's CLDR plural rules, with the number always written.\n"
                 "\n"
                 "Example:\n"
                 "  $ vsk period P21D --locale ru_RU\n"
                 "  unit: day\n"
                 "  value: 21\n"
                 "  days: 21\n"
                 "  analytics: 21_day\n"
                 "  text: 21 дней\n"
                 "  shortened: 21 день\n"
                 "  recurrent: 21 ежедневно\n"
                 "  cldr: 21 день\n",
      .run = [](std::span<const std::string> arguments, std::ostream& out, std::ostream& err) -> int {
        ParsedArguments parsed;
        try {
          parsed = parseArguments(arguments, {"locale"});
        } catch (const UsageError& error) {
          err << "vsk period: " << error.what() << " (see vsk period --help)\n";
          return badInput;
        }
        if (parsed.positional.size() != 1) {
          err << "vsk period: expected one period, for example P1W (see vsk period --help)\n";
          return badInput;
        }
        const std::string& text = parsed.positional[0];
        const auto period = storekit::parseISO8601Period(text);
        if (!period) {
          err << "vsk period: '" << text << "' is not a period of one component such as P7D, P1W, P3M or P1Y\n";
          return badInput;
        }
        // Day counts of extreme values would overflow; that is a fatal error by design, so
        // refuse them here with a message instead of stopping the tool.
        constexpr std::int64_t limit = std::numeric_limits<std::int64_t>::max() / 336;
        if (period->value > limit) {
          err << "vsk period: " << text << " is too long to count in days\n";
          return badInput;
        }
        if (const auto locale = parsed.option("locale")) foundation::Locale::setCurrent(foundation::Locale(*locale));
        using Style = storekit::Product::SubscriptionPeriod::FormatStyle;
        using PluralStyle = storekit::Product::SubscriptionPeriod::PluralFormatStyle;
        using storekit::formatting::UnitStyle;
        out << "unit: " << storekit::description(period->unit) << "\n"
            << "value: " << period->value << "\n"
            << "days: " << period->numberOfDays() << "\n"
            << "analytics: " << period->analyticsValue() << "\n"
            << "text: " << Style(UnitStyle::complete).format(*period) << "\n"
            << "shortened: " << Style(UnitStyle::shortened).format(*period) << "\n"
            << "recurrent: " << Style(UnitStyle::recurrent).format(*period) << "\n"
            << "cldr: "
            << PluralStyle().valueDisplayStrategy(storekit::formatting::ValueDisplayStrategy::always).format(*period)
            << "\n";
        return success;
      },
  };
}

}  // namespace velquist::vsk
