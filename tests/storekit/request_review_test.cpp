#include "velquist/storekit/store/request_review.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "common/deadline.h"
#include "common/reported_failures.h"
#include "velquist/platform/environment_values.h"
#include "velquist/platform/os_version.h"
#include "velquist/platform/store_review_controller.h"
#include "velquist/platform/ui_application.h"
#include "velquist/support/main_queue.h"
#include "velquist/support/task.h"

namespace velquist::storekit {
namespace {

using platform::EnvironmentValues;
using platform::SKStoreReviewController;
using support::MainQueue;

const std::string unimplemented = testing::reportedFailure("Unimplemented: @Dependency(\\.requestReview)");

class RequestReview : public ::testing::Test {
 protected:
  void SetUp() override { reset({16, 0, 0}); }
  void TearDown() override { reset({}); }

  static void reset(platform::OperatingSystemVersion version) {
    MainQueue::shared().drain();
    EnvironmentValues::reset();
    SKStoreReviewController::reset();
    platform::UIApplication::shared().setConnectedScenes({});
    platform::setOperatingSystemVersion(version);
  }
};

TEST_F(RequestReview, LiveValueChoosesByVersionAndScene) {
  using enum platform::SceneActivationState;
  using Scenes = std::vector<std::shared_ptr<platform::UIScene>>;
  using Example = std::tuple<platform::OperatingSystemVersion, Scenes, std::string>;
  const auto window = [](auto name, auto state) { return std::make_shared<platform::UIWindowScene>(name, state); };
  const auto plain = [](auto name, auto state) { return std::make_shared<platform::UIScene>(name, state); };
  // The outcome: the answer, how often the environment's review action was called, and the scenes asked in.
  for (const auto& [version, scenes, expected] : std::vector<Example>{
           {{16, 0, 0}, {}, "yes env 1"},
           {{17, 2, 1}, {window("w", foregroundActive)}, "yes env 1"},  // later systems never look at scenes
           {{15, 9, 9}, {window("w", background)}, "no env 0"},
           {{15, 0, 0}, {}, "no env 0"},
           {{15, 0, 0}, {window("inactive", foregroundInactive), window("unattached", unattached)}, "no env 0"},
           // Passes over the active scene that is not a window scene; asks the first active window scene only.
           {{14, 5, 0}, {window("back", background), plain("plain", foregroundActive), window("one", foregroundActive),
                         window("two", foregroundActive)}, "yes env 0 one"}}) {
    reset(version);
    platform::UIApplication::shared().setConnectedScenes(scenes);
    std::atomic<int> offMainActor = 0;  // the system is only asked on the main actor
    EnvironmentValues::setRequestReviewHandler([&] { offMainActor += !support::isOnMainActor(); });
    SKStoreReviewController::setHandler([&](const auto&) { offMainActor += !support::isOnMainActor(); });
    // Asks from another thread while this one runs the main queue, as a host would.
    std::optional<std::string> outcome;  // written by a main-queue job, read here: one thread
    std::jthread worker([&] {
      const bool answer = RequestReviewKey::liveValue()();
      MainQueue::shared().enqueue([&outcome, answer] { outcome = answer ? "yes" : "no"; });
    });
    testing::Deadline deadline("the answer of a review requested from another thread");
    MainQueue::shared().runUntil([&] { return outcome.has_value(); }, deadline.token());
    ASSERT_FALSE(deadline.expired());
    *outcome += " env " + std::to_string(EnvironmentValues::requestReviewCount());
    for (const auto& scene : SKStoreReviewController::requests()) *outcome += " " + scene->identifier();
    EXPECT_EQ(outcome, expected);
    EXPECT_EQ(offMainActor, 0);
  }
}

TEST_F(RequestReview, CalledOnTheMainActorItselfDoesNotWaitForItself) {
  std::optional<bool> answer;
  MainQueue::shared().enqueue([&] { answer = RequestReviewKey::liveValue()(); });
  MainQueue::shared().drain();
  EXPECT_EQ(answer, true);
  EXPECT_EQ(EnvironmentValues::requestReviewCount(), 1u);
}

TEST_F(RequestReview, CancellingTheCallerEndsTheWaitAndCancelsTheMainActorTask) {
  std::stop_source stop;
  std::optional<bool> answer;
  testing::GuardedThread caller([&] { answer = RequestReviewKey::liveValue()(stop.get_token()); });
  stop.request_stop();  // nobody runs the main queue meanwhile
  caller.join("the stopped review request to return");
  EXPECT_EQ(answer, false);
  std::optional<bool> taskCancelled;
  EnvironmentValues::setRequestReviewHandler([&] { taskCancelled = support::Task::isCurrentCancelled(); });
  EXPECT_EQ(MainQueue::shared().drain(), 1u);  // the task still runs, cancelled, and its answer is dropped
  EXPECT_EQ(taskCancelled, true);
}

TEST_F(RequestReview, TestValueFailsPreviewValueIsLiveAndEmptyActionAnswersFalse) {
  std::optional<bool> answer;
  EXPECT_EQ(testing::failuresDuring([&] { answer = requestReview()(); }), std::vector<std::string>{unimplemented});
  EXPECT_EQ(answer, false);
  EXPECT_EQ(EnvironmentValues::requestReviewCount(), 0u);
  EXPECT_EQ(&RequestReviewKey::previewValue(), &RequestReviewKey::liveValue());  // previews use the live value
  EXPECT_FALSE(RequestReviewAction{}());  // an empty action answers false
}

TEST_F(RequestReview, AnOverrideReachesEveryCallerInItsScopeAndNoneOutside) {
  std::atomic<int> overrideCalls = 0;
  std::vector<bool> answers;  // written by this thread, by a thread it joins and by main-queue jobs run here
  const auto failures = testing::failuresDuring([&] {
    const auto replace = [&](support::DependencyValues& values) {
      setRequestReview(values, RequestReviewAction{[&](std::stop_token) { return ++overrideCalls > 0; }});
    };
    support::withDependencies(replace, [&] {
      answers.push_back(requestReview()());
      std::thread([&] { answers.push_back(requestReview()()); }).join();  // not started as a Task: outside
      for (int i = 0; i < 3; ++i) support::Task(MainQueue::shared(), [&] { answers.push_back(requestReview()()); });
    });
    MainQueue::shared().drain();  // the Tasks run after the scope has ended
    answers.push_back(requestReview()());
  });
  EXPECT_EQ(answers, (std::vector<bool>{true, false, true, true, true, false}));
  EXPECT_EQ(overrideCalls, 4);
  EXPECT_EQ(failures, std::vector<std::string>(2, unimplemented));
  EXPECT_EQ(EnvironmentValues::requestReviewCount() + SKStoreReviewController::requests().size(), 0u);
}

}  // namespace
}  // namespace velquist::storekit
