#include "subscription_clock.h"

namespace velquist::sandbox::detail {
namespace {

using namespace std::chrono;

constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kMonth = 30 * kDay;

}  // namespace

TimeRate timeRateNamed(std::int64_t rawValue) {
  switch (rawValue) {
    case 1: return {.speed = kDay / 3600};      // one hour is one day
    case 2: return {.speed = kDay / 1800};      // thirty minutes are one day
    case 3: return {.speed = kDay / 300};       // five minutes are one day
    case 4: return {.speed = kDay / 60};        // one minute is one day
    case 5: return {.speed = kDay / 30};        // thirty seconds are one day
    case 6: return {.speed = kDay};             // one second is one day
    case 10: return {.speed = kMonth / 3600};   // a monthly renewal every hour
    case 11: return {.speed = kMonth / 1800};   // ... every thirty minutes
    case 12: return {.speed = kMonth / 900};    // ... every fifteen minutes
    case 13: return {.speed = kMonth / 300};    // ... every five minutes
    case 15: return {.speed = kMonth / 30};     // ... every thirty seconds
    case 1000: return {.fixedPeriod = seconds(15 * 60)};
    case 1001: return {.fixedPeriod = seconds(5 * 60)};
    case 1002: return {.fixedPeriod = seconds(60)};
    case 1003: return {.fixedPeriod = seconds(30)};
    case 1004: return {.fixedPeriod = seconds(10)};
    case 1005: return {.fixedPeriod = seconds(2)};
    default: return {};
  }
}

Date addPeriods(Date date, const Period& period, std::int64_t count) {
  const std::int64_t amount = count * period.count;
  switch (period.unit) {
    case Period::Unit::day: return date + days(amount);
    case Period::Unit::week: return date + weeks(amount);
    case Period::Unit::month:
    case Period::Unit::year: break;
  }
  const months shift = period.unit == Period::Unit::year ? months(amount * 12) : months(amount);
  const auto day = floor<days>(date);
  const auto timeOfDay = date - day;
  year_month_day calendar{day};
  calendar += shift;
  if (!calendar.ok()) calendar = calendar.year() / calendar.month() / last;
  return sys_days{calendar} + timeOfDay;
}

Date periodEnd(Date start, const Period& period, std::int64_t count, const std::optional<TimeRate>& rate) {
  if (rate && rate->fixedPeriod) return start + *rate->fixedPeriod * count;
  return addPeriods(start, period, count);
}

}  // namespace velquist::sandbox::detail
