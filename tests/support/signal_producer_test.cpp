#include "velquist/support/signal_producer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "common/signal_recorder.h"
#include "velquist/support/queue_scheduler.h"
#include "velquist/support/thread_pool.h"

namespace velquist::support {
namespace {

using Producer = SignalProducer<int>;
using Observer = Producer::Observer;
using Recorder = testing::SignalRecorder<int>;
using Events = std::vector<std::string>;

std::string text(const int& value) { return std::to_string(value); }

TEST(SignalProducer, EachStartRunsAgainAndNothingFollowsTheTerminalEvent) {
  const auto boom = std::make_exception_ptr(std::runtime_error("boom"));
  struct Example {
    std::function<void(const Observer&)> send;
    Events heard;  // after the value the start-up sends first: the start's number
    bool ends = true;
  };
  const std::vector<Example> examples = {
      {[](const Observer& o) { o.sendCompleted(); o.send(2); o.sendFailed(nullptr); }, {"completed"}},
      {[&](const Observer& o) { o.sendFailed(boom); o.sendCompleted(); }, {"failed: boom"}},
      {[](const Observer& o) { o.sendInterrupted(); o.send(2); o.sendInterrupted(); }, {"interrupted"}},
      {[](const Observer&) { throw std::logic_error("start-up broke"); }, {"failed: start-up broke"}},
      {[](const Observer&) {}, {}, false},
  };
  for (const auto& example : examples) {
    int starts = 0, cleanUps = 0;
    const Producer producer([&](Observer observer, Lifetime lifetime) {
      lifetime.observeEnded([&] { ++cleanUps; });
      observer.send(++starts);
      example.send(observer);
    });
    EXPECT_EQ(starts, 0);  // cold: nothing before a start
    for (int start = 1; start <= 2; ++start) {
      Recorder recorder(text);
      const Disposable subscription = producer.start(recorder.handlers());
      Events heard = {text(start)};
      heard.insert(heard.end(), example.heard.begin(), example.heard.end());
      EXPECT_EQ(recorder.events(), heard);
      EXPECT_EQ(cleanUps, example.ends ? start : start - 1);
      EXPECT_EQ(subscription.isDisposed(), example.ends);
      subscription.dispose();  // ends it if it has not ended, and never runs a clean-up twice
      EXPECT_EQ(cleanUps, start);
    }
  }
}

TEST(SignalProducer, DisposingSilencesTheSubscriberEvenFromItsOwnHandler) {
  std::vector<Observer> observers;
  int cleanUps = 0;
  const Producer producer([&](Observer observer, Lifetime lifetime) {
    lifetime.observeEnded([&] { ++cleanUps; });
    observers.push_back(observer);
  });
  Recorder outside(text), inside(text);
  const Disposable first = producer.start(outside.handlers());
  Disposable second;
  auto handlers = inside.handlers();
  handlers.value = [&, record = handlers.value](int value) {
    record(value);
    second.dispose();
  };
  second = producer.start(handlers);
  for (const Observer& observer : observers) observer.send(1);
  first.dispose();
  for (const Observer& observer : observers) {
    observer.send(2);
    observer.sendCompleted();
  }
  EXPECT_EQ(outside.events(), Events{"1"});
  EXPECT_EQ(inside.events(), Events{"1"});
  EXPECT_EQ(cleanUps, 2);
}

TEST(SignalProducer, EventsFromManyThreadsReachTheSubscriberOneAtATimeInOrder) {
  constexpr int threads = 4, perThread = 2000;
  std::promise<Observer> started;
  std::atomic<int> inHandler = 0;
  std::atomic<bool> overlapped = false;
  std::vector<int> next(threads, 0);  // plain data: only the serialized handler touches it
  bool inOrder = true;
  Recorder recorder([](const int&) { return ""; });
  auto handlers = recorder.handlers();
  handlers.value = [&](int value) {
    if (++inHandler > 1) overlapped = true;
    inOrder = inOrder && value % perThread == next[value / perThread]++;
    std::this_thread::yield();  // a wider window for another thread to break in
    --inHandler;
  };
  Producer([&](Observer observer, Lifetime) { started.set_value(observer); }).start(handlers);
  const Observer observer = started.get_future().get();
  {
    std::vector<std::jthread> senders;
    for (int t = 0; t < threads; ++t) {
      senders.emplace_back([&observer, t] {
        for (int i = 0; i < perThread; ++i) observer.send(t * perThread + i);
      });
    }
  }
  observer.sendCompleted();
  recorder.waitForEnd();
  EXPECT_FALSE(overlapped);
  EXPECT_TRUE(inOrder);
  EXPECT_EQ(next, std::vector<int>(threads, perThread));
}

TEST(SignalProducer, ObserveOnAndStartOnMoveTheWorkOntoTheScheduler) {
  const QueueScheduler scheduler("test.scheduler");
  std::atomic<bool> startedOnScheduler = false;
  const Producer numbers([&](Observer observer, Lifetime) {
    startedOnScheduler = scheduler.isCurrent();
    for (int i = 0; i < 300; ++i) observer.send(i);
    observer.sendCompleted();
  });
  Events heard;  // touched only by jobs of the scheduler
  bool allOnScheduler = true;
  Recorder end([](const int&) { return ""; });
  auto handlers = end.handlers();
  handlers.value = [&](int value) {
    allOnScheduler = allOnScheduler && scheduler.isCurrent();
    heard.push_back(text(value));
  };
  numbers.observeOn(scheduler).start(handlers);
  end.waitForEnd();
  EXPECT_TRUE(allOnScheduler);
  EXPECT_FALSE(startedOnScheduler);
  ASSERT_EQ(heard.size(), 300u);
  for (int i = 0; i < 300; ++i) EXPECT_EQ(heard[i], text(i));

  // Disposed while its start waits behind a busy job: never starts.
  std::promise<void> release;
  scheduler.schedule([busy = release.get_future().share()] { busy.wait(); });
  Recorder disposed(text), started(text);
  numbers.startOn(scheduler).start(disposed.handlers()).dispose();
  release.set_value();
  numbers.startOn(scheduler).start(started.handlers());
  EXPECT_EQ(started.waitForEnd().back(), "completed");
  EXPECT_TRUE(startedOnScheduler);
  EXPECT_EQ(disposed.events(), Events{});
}

TEST(QueueScheduler, SchedulersSharingTwoWorkersEachRunTheirJobsOneAtATimeInOrder) {
  constexpr int lanes = 6, jobs = 300;
  std::vector<std::vector<int>> ran(lanes);  // each touched only by its scheduler's jobs
  std::atomic<int> running[lanes] = {};
  std::atomic<bool> overlapped = false;
  {
    ThreadPool pool(2);
    std::vector<QueueScheduler> schedulers;
    for (int lane = 0; lane < lanes; ++lane) schedulers.emplace_back("lane " + text(lane), pool);
    for (int job = 0; job < jobs; ++job) {
      for (int lane = 0; lane < lanes; ++lane) {
        schedulers[lane].schedule([&, lane, job] {
          if (++running[lane] > 1) overlapped = true;
          ran[lane].push_back(job);
          --running[lane];
        });
      }
    }
  }  // the pool runs every queued job before its workers stop
  EXPECT_FALSE(overlapped);
  std::vector<int> inOrder(jobs);
  for (int job = 0; job < jobs; ++job) inOrder[job] = job;
  for (const auto& lane : ran) EXPECT_EQ(lane, inOrder);
}

}  // namespace
}  // namespace velquist::support
