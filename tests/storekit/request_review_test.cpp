#include "velquist/storekit/store/request_review.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

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
using platform::SceneActivationState;
using platform::SKStoreReviewController;
using support::MainQueue;

const std::string unimplemented = "Unimplemented: @Dependency(\\.requestReview)";

class RequestReview : public ::testing::Test {
 protected:
  void SetUp() override { reset(); }
  void TearDown() override { reset(); }

  static void reset() {
    MainQueue::shared().drain();
    EnvironmentValues::reset();
    SKStoreReviewController::reset();
    platform::UIApplication::shared().setConnectedScenes({});
    platform::setOperatingSystemVersion({});
  }

  // Calls `action` on another thread while this one runs the main queue, as a host would.
  static bool askFromWorker(const RequestReviewAction& action) {
    std::optional<bool> answer;  // written by a main-queue job, read here: one thread
    std::jthread worker([&] {
      const bool result = action();
      MainQueue::shared().enqueue([&answer, result] { answer = result; });
    });
    MainQueue::shared().runUntil([&] { return answer.has_value(); });
    return *answer;
  }

  static std::vector<std::string> scenesAsked() {
    std::vector<std::string> names;
    for (const auto& scene : SKStoreReviewController::requests()) names.push_back(scene->identifier());
    return names;
  }
};

struct SceneRow {
  std::string name;
  bool windowScene;
  SceneActivationState state;
};

std::vector<std::shared_ptr<platform::UIScene>> makeScenes(const std::vector<SceneRow>& rows) {
  std::vector<std::shared_ptr<platform::UIScene>> scenes;
  for (const auto& row : rows) {
    if (row.windowScene) {
      scenes.push_back(std::make_shared<platform::UIWindowScene>(row.name, row.state));
    } else {
      scenes.push_back(std::make_shared<platform::UIScene>(row.name, row.state));
    }
  }
  return scenes;
}

TEST_F(RequestReview, LiveValueChoosesByVersionAndScene) {
  using enum SceneActivationState;
  struct Example {
    std::string name;
    platform::OperatingSystemVersion version;
    std::vector<SceneRow> scenes;
    bool expected;
    std::size_t environmentCalls;
    std::vector<std::string> scenesAsked;
  };
  const std::vector<Example> examples = {
      {"16.0 asks the environment, no scenes needed", {16, 0, 0}, {}, true, 1, {}},
      {"later systems never look at scenes", {17, 2, 1}, {{"w", true, foregroundActive}}, true, 1, {}},
      {"15.x in the background asks nothing", {15, 9, 9}, {{"w", true, background}}, false, 0, {}},
      {"no scenes at all", {15, 0, 0}, {}, false, 0, {}},
      {"inactive and unattached window scenes do not count", {15, 0, 0},
       {{"inactive", true, foregroundInactive}, {"unattached", true, unattached}}, false, 0, {}},
      {"an active scene that is not a window scene does not count", {15, 0, 0},
       {{"plain", false, foregroundActive}}, false, 0, {}},
      {"passes over the active non-window scene to the active window scene", {15, 0, 0},
       {{"plain", false, foregroundActive}, {"window", true, foregroundActive}}, true, 0, {"window"}},
      {"the first of several active window scenes", {14, 5, 0},
       {{"back", true, background}, {"one", true, foregroundActive}, {"two", true, foregroundActive}}, true, 0,
       {"one"}},
  };
  for (const auto& example : examples) {
    SCOPED_TRACE(example.name);
    reset();
    platform::setOperatingSystemVersion(example.version);
    platform::UIApplication::shared().setConnectedScenes(makeScenes(example.scenes));
    std::atomic<int> offMainActor = 0;
    EnvironmentValues::setRequestReviewHandler([&] { offMainActor += !support::isOnMainActor(); });
    SKStoreReviewController::setHandler([&](const auto&) { offMainActor += !support::isOnMainActor(); });

    EXPECT_EQ(askFromWorker(RequestReviewKey::liveValue()), example.expected);
    EXPECT_EQ(EnvironmentValues::requestReviewCount(), example.environmentCalls);
    EXPECT_EQ(scenesAsked(), example.scenesAsked);
    EXPECT_EQ(offMainActor, 0);
  }
}

TEST_F(RequestReview, CalledOnTheMainActorItselfDoesNotWaitForItself) {
  platform::setOperatingSystemVersion({16, 4, 0});
  std::optional<bool> answer;
  MainQueue::shared().enqueue([&] { answer = RequestReviewKey::liveValue()(); });
  MainQueue::shared().drain();
  EXPECT_EQ(answer, true);
  EXPECT_EQ(EnvironmentValues::requestReviewCount(), 1u);
}

TEST_F(RequestReview, CancellingTheCallerEndsTheWaitAndCancelsTheMainActorTask) {
  platform::setOperatingSystemVersion({16, 0, 0});
  std::stop_source stop;
  std::optional<bool> answer;
  std::jthread caller([&] { answer = RequestReviewKey::liveValue()(stop.get_token()); });
  stop.request_stop();  // nobody runs the main queue meanwhile
  caller.join();
  EXPECT_EQ(answer, false);

  std::optional<bool> taskCancelled;
  EnvironmentValues::setRequestReviewHandler([&] { taskCancelled = support::Task::isCurrentCancelled(); });
  EXPECT_EQ(MainQueue::shared().drain(), 1u);  // the task still runs, cancelled, and its answer is dropped
  EXPECT_EQ(taskCancelled, true);
}

TEST_F(RequestReview, TestValueReportsTheUnimplementedDependencyAndAnswersFalse) {
  platform::setOperatingSystemVersion({16, 0, 0});
  std::optional<bool> answer;
  const auto failures = testing::failuresDuring([&] { answer = requestReview()(); });
  EXPECT_EQ(failures, std::vector<std::string>{testing::reportedFailure(unimplemented)});
  EXPECT_EQ(answer, false);
  EXPECT_EQ(EnvironmentValues::requestReviewCount(), 0u);
}

TEST_F(RequestReview, AnOverrideReachesEveryCallerInItsScopeAndNoneOutside) {
  platform::setOperatingSystemVersion({16, 0, 0});
  std::atomic<int> overrideCalls = 0;
  std::vector<bool> answers;  // written by this thread and by main-queue jobs run here
  bool outsideAnswer = true;
  const auto failures = testing::failuresDuring([&] {
    support::withDependencies(
        [&](support::DependencyValues& values) {
          setRequestReview(values, RequestReviewAction{[&](std::stop_token) { return ++overrideCalls > 0; }});
        },
        [&] {
          answers.push_back(requestReview()());
          for (int i = 0; i < 3; ++i) {
            support::Task(MainQueue::shared(), [&] { answers.push_back(requestReview()()); });
          }
          std::thread([&] { outsideAnswer = requestReview()(); }).join();  // not started as a Task
        });
    MainQueue::shared().drain();  // the Tasks run after the scope has ended
    answers.push_back(requestReview()());
  });
  EXPECT_EQ(answers, (std::vector<bool>{true, true, true, true, false}));
  EXPECT_EQ(overrideCalls, 4);
  EXPECT_FALSE(outsideAnswer);
  EXPECT_EQ(failures, std::vector<std::string>(2, testing::reportedFailure(unimplemented)));
  EXPECT_EQ(EnvironmentValues::requestReviewCount(), 0u);
  EXPECT_TRUE(SKStoreReviewController::requests().empty());
}

TEST_F(RequestReview, PreviewIsTheLiveValueAndAnEmptyActionAnswersFalse) {
  EXPECT_EQ(&RequestReviewKey::previewValue(), &RequestReviewKey::liveValue());
  EXPECT_FALSE(RequestReviewAction{}());
}

}  // namespace
}  // namespace velquist::storekit
