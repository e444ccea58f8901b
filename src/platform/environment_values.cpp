#include "velquist/platform/environment_values.h"

#include <utility>

#include "velquist/support/mutex.h"

namespace velquist::platform {
namespace {

struct Record {
  support::Mutex mutex;
  std::size_t count VELQUIST_GUARDED_BY(mutex) = 0;
  std::function<void()> handler VELQUIST_GUARDED_BY(mutex);
};

Record& record() {
  static Record instance;
  return instance;
}

}  // namespace

void EnvironmentValues::RequestReviewAction::operator()() const {
  Record& state = record();
  std::function<void()> handler;
  {
    support::LockGuard lock(state.mutex);
    ++state.count;
    handler = state.handler;
  }
  if (handler) handler();
}

std::size_t EnvironmentValues::requestReviewCount() {
  Record& state = record();
  support::LockGuard lock(state.mutex);
  return state.count;
}

void EnvironmentValues::setRequestReviewHandler(std::function<void()> handler) {
  Record& state = record();
  support::LockGuard lock(state.mutex);
  state.handler = std::move(handler);
}

void EnvironmentValues::reset() {
  Record& state = record();
  support::LockGuard lock(state.mutex);
  state.count = 0;
  state.handler = nullptr;
}

}  // namespace velquist::platform
