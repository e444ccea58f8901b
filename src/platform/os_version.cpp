#include "velquist/platform/os_version.h"

#include "velquist/support/mutex.h"

namespace velquist::platform {
namespace {

support::Mutex mutex;
OperatingSystemVersion declaredVersion VELQUIST_GUARDED_BY(mutex);

}  // namespace

OperatingSystemVersion operatingSystemVersion() {
  support::LockGuard lock(mutex);
  return declaredVersion;
}

void setOperatingSystemVersion(OperatingSystemVersion version) {
  support::LockGuard lock(mutex);
  declaredVersion = version;
}

bool isOperatingSystemAtLeast(OperatingSystemVersion version) { return operatingSystemVersion() >= version; }

}  // namespace velquist::platform
