#include "velquist/platform/store_review_controller.h"

#include <utility>

#include "velquist/support/mutex.h"

namespace velquist::platform {
namespace {

struct Record {
  support::Mutex mutex;
  std::vector<std::shared_ptr<UIWindowScene>> requests VELQUIST_GUARDED_BY(mutex);
  SKStoreReviewController::Handler handler VELQUIST_GUARDED_BY(mutex);
};

Record& record() {
  static Record instance;
  return instance;
}

}  // namespace

void SKStoreReviewController::requestReview(std::shared_ptr<UIWindowScene> scene) {
  if (!scene) return;
  Record& state = record();
  Handler handler;
  {
    support::LockGuard lock(state.mutex);
    state.requests.push_back(scene);
    handler = state.handler;
  }
  if (handler) handler(scene);
}

std::vector<std::shared_ptr<UIWindowScene>> SKStoreReviewController::requests() {
  Record& state = record();
  support::LockGuard lock(state.mutex);
  return state.requests;
}

void SKStoreReviewController::setHandler(Handler handler) {
  Record& state = record();
  support::LockGuard lock(state.mutex);
  state.handler = std::move(handler);
}

void SKStoreReviewController::reset() {
  Record& state = record();
  support::LockGuard lock(state.mutex);
  state.requests.clear();
  state.handler = nullptr;
}

}  // namespace velquist::platform
