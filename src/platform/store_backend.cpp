#include "velquist/platform/store_backend.h"

#include <utility>

#include "velquist/support/mutex.h"

namespace velquist::platform {
namespace {

support::Mutex mutex;
std::shared_ptr<StoreBackend> current VELQUIST_GUARDED_BY(mutex);

}  // namespace

std::shared_ptr<StoreBackend> defaultStoreBackend() {
  support::LockGuard lock(mutex);
  return current;
}

void setDefaultStoreBackend(std::shared_ptr<StoreBackend> backend) {
  std::shared_ptr<StoreBackend> previous;  // released outside the lock: its destructor may take time
  support::LockGuard lock(mutex);
  previous = std::exchange(current, std::move(backend));
}

}  // namespace velquist::platform
