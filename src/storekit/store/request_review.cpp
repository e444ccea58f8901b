#include "velquist/storekit/store/request_review.h"

#include <memory>
#include <utility>

#include "velquist/platform/environment_values.h"
#include "velquist/platform/os_version.h"
#include "velquist/platform/store_review_controller.h"
#include "velquist/platform/ui_application.h"
#include "velquist/support/async_stream.h"
#include "velquist/support/main_queue.h"
#include "velquist/support/task.h"
#include "velquist/support/test_failure.h"

namespace velquist::storekit {
namespace {

using Answer = support::AsyncStream<bool>;

// On the main actor: asks for the prompt the way the running system supports and yields
// whether it could.
void askOnMainActor(const Answer::Continuation& answer) {
  if (platform::isOperatingSystemAtLeast({16, 0, 0})) {
    platform::EnvironmentValues().requestReview();
    answer.yield(true);
    answer.finish();
    return;
  }
  for (const auto& scene : platform::UIApplication::shared().connectedScenes()) {
    if (scene->activationState() != platform::SceneActivationState::foregroundActive) continue;
    if (auto windowScene = std::dynamic_pointer_cast<platform::UIWindowScene>(scene)) {
      platform::SKStoreReviewController::requestReview(std::move(windowScene));
      answer.yield(true);
      answer.finish();
      return;
    }
  }
  answer.yield(false);
  answer.finish();
}

bool requestReviewLive(std::stop_token stop) {
  Answer answer([](Answer::Continuation continuation) {
    support::Task task(support::MainQueue::shared(), [continuation] { askOnMainActor(continuation); });
    continuation.onTermination([task] { task.cancel(); });
  });
  // Waiting here on the main actor would hold up the very queue the answer comes from.
  if (support::isOnMainActor()) support::MainQueue::shared().drain();
  return answer.next(std::move(stop)).value_or(false);
}

}  // namespace

bool RequestReviewAction::operator()(std::stop_token stop) const {
  return handler ? handler(std::move(stop)) : false;
}

const RequestReviewAction& RequestReviewKey::liveValue() {
  static const RequestReviewAction value{requestReviewLive};
  return value;
}

const RequestReviewAction& RequestReviewKey::testValue() {
  static const RequestReviewAction value{[](std::stop_token) {
    support::reportTestFailure("Unimplemented: @Dependency(\\.requestReview)");
    return false;
  }};
  return value;
}

const RequestReviewAction& RequestReviewKey::previewValue() { return liveValue(); }

RequestReviewAction requestReview(const support::DependencyValues& values) {
  return values.get<RequestReviewKey>();
}

void setRequestReview(support::DependencyValues& values, RequestReviewAction action) {
  values.set<RequestReviewKey>(std::move(action));
}

}  // namespace velquist::storekit
