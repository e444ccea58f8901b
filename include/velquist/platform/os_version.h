#pragma once

#include "velquist/export.h"
#include <compare>

VELQUIST_API_BEGIN
namespace velquist::platform {

/// A version of the operating system the host runs on, compared part by part.
struct OperatingSystemVersion {
  int majorVersion = 0;
  int minorVersion = 0;
  int patchVersion = 0;

  friend auto operator<=>(const OperatingSystemVersion&, const OperatingSystemVersion&) = default;
};

/// The version of the running system as the host declared it; 0.0.0 (older than any
/// system the library checks for) until the host sets it.
/// Thread-safety: read and set from any thread.
OperatingSystemVersion operatingSystemVersion();
void setOperatingSystemVersion(OperatingSystemVersion version);

/// Whether the running system is `version` or later: with 16.2.0 declared,
/// isOperatingSystemAtLeast({16, 0, 0}) is true and isOperatingSystemAtLeast({17, 0, 0})
/// false.
bool isOperatingSystemAtLeast(OperatingSystemVersion version);

}  // namespace velquist::platform
VELQUIST_API_END
