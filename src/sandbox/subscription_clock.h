#pragma once

// How long subscription periods last on the sandbox store's clock, and how fast that clock
// runs when it follows a configuration's time rate.

#include <chrono>
#include <cstdint>
#include <optional>

#include "velquist/sandbox/storekit_configuration.h"

namespace velquist::sandbox::detail {

using Date = std::chrono::system_clock::time_point;

/// How a time rate (`_timeRate`) moves the store's clock along with real time.
struct TimeRate {
  /// Store time that passes per unit of real time: 1 for real time, 86400 for one day per
  /// second, 720 for a month (30 days) per hour.
  std::int64_t speed = 1;
  /// For the rates that renew every subscription after a fixed time whatever its period
  /// (1000 to 1005): that time, in store time. Absent for the others.
  std::optional<std::chrono::seconds> fixedPeriod;

  friend bool operator==(const TimeRate&, const TimeRate&) = default;
};

/// The time rate with this raw value; an unknown value runs in real time.
TimeRate timeRateNamed(std::int64_t rawValue);

/// `date` moved on by `count` periods of `period` in the calendar (UTC): days and weeks
/// are fixed lengths, months and years keep the day of the month, moved back to the
/// month's last day where it has fewer (31 January + 1 month = 28 or 29 February).
Date addPeriods(Date date, const Period& period, std::int64_t count);

/// When a period of `period` that starts at `start` ends under `rate` (its fixed period when
/// the rate has one).
Date periodEnd(Date start, const Period& period, std::int64_t count, const std::optional<TimeRate>& rate);

}  // namespace velquist::sandbox::detail
