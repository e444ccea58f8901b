#include "velquist/support/main_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "common/deadline.h"
#include "velquist/support/task.h"

namespace velquist::support {
namespace {

TEST(MainQueue, DrainRunsJobsInOrderAndAThrowingJobLeavesTheRestQueued) {
  MainQueue queue;
  std::vector<std::string> log;
  queue.enqueue([&] { log.push_back("a"); queue.enqueue([&] { log.push_back("c"); }); });
  queue.enqueue([&] { log.push_back(queue.isCurrentThreadDraining() ? "b on queue" : "b elsewhere"); });
  EXPECT_EQ(queue.drain(), 3u);
  queue.enqueue([] { throw std::runtime_error("job failed"); });
  queue.enqueue([&] { log.push_back("d"); });
  EXPECT_THROW(queue.drain(), std::runtime_error);
  EXPECT_FALSE(queue.isCurrentThreadDraining());
  EXPECT_EQ(queue.drain(), 1u);
  EXPECT_EQ(log, (std::vector<std::string>{"a", "b on queue", "c", "d"}));
}

TEST(MainQueue, RunUntilWaitsForJobsFromOtherThreadsAndStopsOnItsToken) {
  MainQueue queue;
  int received = 0;  // only touched by jobs, so only by this thread
  std::jthread sender([&] { for (int i = 0; i < 100; ++i) queue.enqueue([&] { ++received; }); });
  testing::Deadline deadline("100 jobs enqueued by another thread");
  queue.runUntil([&] { return received == 100; }, deadline.token());
  EXPECT_FALSE(deadline.expired());
  EXPECT_EQ(received, 100);
  std::stop_source stop;
  std::jthread stopper([&] { stop.request_stop(); });
  queue.runUntil([] { return false; }, stop.get_token());  // returns once stopped
}

TEST(MainQueue, TwoThreadsDrainingNeverRunJobsAtTheSameTime) {
  MainQueue queue;
  std::atomic<int> active = 0, overlaps = 0;
  for (int i = 0; i < 400; ++i) queue.enqueue([&] { overlaps += ++active > 1; std::this_thread::yield(); --active; });
  std::size_t ranThere = 0;
  std::jthread other([&] { ranThere = queue.drain(); });
  const std::size_t ranHere = queue.drain();
  other.join();
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(ranHere + ranThere, 400u);
}

// That Tasks carry their dependencies is tested with the review action.
TEST(Task, CancellationIsVisibleToTheRunningWorkOnly) {
  MainQueue queue;
  std::vector<bool> cancelledInside;
  const auto record = [&] { cancelledInside.push_back(Task::isCurrentCancelled()); };
  Task cancelled(queue, record), running(queue, record);
  cancelled.cancel();
  EXPECT_TRUE(cancelled.isCancelled() && !running.isCancelled());
  queue.drain();
  EXPECT_EQ(cancelledInside, (std::vector<bool>{true, false}));
  EXPECT_FALSE(Task::isCurrentCancelled() || Task::currentStopToken().stop_possible());
}

}  // namespace
}  // namespace velquist::support
