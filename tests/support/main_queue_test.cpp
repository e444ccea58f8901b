#include "velquist/support/main_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "velquist/support/task.h"

namespace velquist::support {
namespace {

TEST(MainQueue, DrainRunsJobsInOrderIncludingThoseTheyEnqueue) {
  MainQueue queue;
  std::vector<std::string> log;
  queue.enqueue([&] {
    log.push_back("a");
    queue.enqueue([&] { log.push_back("c"); });
  });
  queue.enqueue([&] { log.push_back(queue.isCurrentThreadDraining() ? "b on queue" : "b elsewhere"); });
  EXPECT_FALSE(queue.isCurrentThreadDraining());
  EXPECT_EQ(queue.drain(), 3u);
  EXPECT_EQ(log, (std::vector<std::string>{"a", "b on queue", "c"}));
  EXPECT_EQ(queue.drain(), 0u);
}

TEST(MainQueue, AThrowingJobLeavesTheRestQueued) {
  MainQueue queue;
  int ran = 0;
  queue.enqueue([] { throw std::runtime_error("job failed"); });
  queue.enqueue([&] { ++ran; });
  EXPECT_THROW(queue.drain(), std::runtime_error);
  EXPECT_FALSE(queue.isCurrentThreadDraining());
  EXPECT_EQ(queue.drain(), 1u);
  EXPECT_EQ(ran, 1);
}

TEST(MainQueue, RunUntilWaitsForJobsFromOtherThreadsAndStopsOnItsToken) {
  MainQueue queue;
  int received = 0;  // only touched by jobs, so only by this thread
  std::jthread sender([&] {
    for (int i = 0; i < 100; ++i) queue.enqueue([&] { ++received; });
  });
  queue.runUntil([&] { return received == 100; });
  EXPECT_EQ(received, 100);

  std::stop_source stop;
  std::jthread stopper([&] { stop.request_stop(); });
  queue.runUntil([] { return false; }, stop.get_token());  // returns once stopped
  EXPECT_EQ(received, 100);
}

TEST(MainQueue, TwoThreadsDrainingNeverRunJobsAtTheSameTime) {
  MainQueue queue;
  std::atomic<int> active = 0;
  std::atomic<bool> overlapped = false;
  std::atomic<int> ran = 0;
  for (int i = 0; i < 400; ++i) {
    queue.enqueue([&] {
      if (++active > 1) overlapped = true;
      std::this_thread::yield();
      --active;
      ++ran;
    });
  }
  std::jthread other([&] { queue.drain(); });
  queue.drain();
  other.join();
  EXPECT_FALSE(overlapped);
  EXPECT_EQ(ran, 400);
}

// That Tasks carry their dependencies is tested with the review action.
TEST(Task, CancellationIsVisibleToTheRunningWorkOnly) {
  MainQueue queue;
  std::vector<bool> cancelledInside;
  const auto record = [&] { cancelledInside.push_back(Task::isCurrentCancelled()); };
  Task cancelled(queue, record);
  Task running(queue, record);
  cancelled.cancel();
  EXPECT_TRUE(cancelled.isCancelled());
  EXPECT_FALSE(running.isCancelled());
  queue.drain();
  EXPECT_EQ(cancelledInside, (std::vector<bool>{true, false}));
  EXPECT_FALSE(Task::isCurrentCancelled());
  EXPECT_FALSE(Task::currentStopToken().stop_possible());
}

}  // namespace
}  // namespace velquist::support
