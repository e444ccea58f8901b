#include <cstdint>
#include <limits>
#include <ostream>

#include "command.h"
#include "velquist/storekit/product/iso8601_period.h"

namespace velquist::vsk {

Command periodCommand() {
  return {
      .name = "period",
      .usage = "period <ISO-8601 period>",
      .summary = "unit, value, day count and analytics value of a period such as P1W",
      .details = "The period is one ISO 8601 component: P<n>D, P<n>W, P<n>M or P<n>Y.\n"
                 "Day counts use the library's calendar: a month is 28 days, a year 336.\n"
                 "\n"
                 "Example:\n"
                 "  $ vsk period P1W\n"
                 "  unit: week\n"
                 "  value: 1\n"
                 "  days: 7\n"
                 "  analytics: 7_day\n",
      .run = [](std::span<const std::string> arguments, std::ostream& out, std::ostream& err) -> int {
        if (arguments.size() != 1) {
          err << "vsk period: expected one period, for example P1W (see vsk period --help)\n";
          return badInput;
        }
        const auto period = storekit::parseISO8601Period(arguments[0]);
        if (!period) {
          err << "vsk period: '" << arguments[0]
              << "' is not a period of one component such as P7D, P1W, P3M or P1Y\n";
          return badInput;
        }
        // Day counts of extreme values would overflow; that is a fatal error by design, so
        // refuse them here with a message instead of stopping the tool.
        constexpr std::int64_t limit = std::numeric_limits<std::int64_t>::max() / 336;
        if (period->value > limit) {
          err << "vsk period: " << arguments[0] << " is too long to count in days\n";
          return badInput;
        }
        out << "unit: " << storekit::description(period->unit) << "\n"
            << "value: " << period->value << "\n"
            << "days: " << period->numberOfDays() << "\n"
            << "analytics: " << period->analyticsValue() << "\n";
        return success;
      },
  };
}

}  // namespace velquist::vsk
