#include "velquist/support/signal_producer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <memory>
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

TEST(SignalProducer, IsColdAndEachStartRunsItsOwnSubscription) {
  std::atomic<int> starts = 0;
  const Producer producer([&](Observer observer, Lifetime) {
    observer.send(++starts);
    observer.sendCompleted();
  });
  EXPECT_EQ(starts, 0);  // made, not started

  Recorder first(text), second(text);
  producer.start(first.handlers());
  const Disposable disposable = producer.start(second.handlers());
  EXPECT_EQ(first.events(), (Events{"1", "completed"}));
  EXPECT_EQ(second.events(), (Events{"2", "completed"}));
  EXPECT_TRUE(disposable.isDisposed());  // a subscription that ended counts as disposed
}

TEST(SignalProducer, NothingFollowsTheFirstTerminalEventAndTheCleanUpsRunOnce) {
  struct Example {
    std::string name;
    std::function<void(const Observer&)> send;
    Events heard;
    bool ends = true;
  };
  const std::vector<Example> examples = {
      {"values then completed",
       [](const Observer& o) {
         o.send(1);
         o.send(2);
         o.sendCompleted();
         o.send(3);
         o.sendFailed(nullptr);
       },
       {"1", "2", "completed"}},
      {"failed",
       [](const Observer& o) {
         o.send(1);
         o.sendFailed(std::make_exception_ptr(std::runtime_error("boom")));
         o.sendCompleted();
       },
       {"1", "failed: boom"}},
      {"interrupted",
       [](const Observer& o) {
         o.sendInterrupted();
         o.send(1);
         o.sendCompleted();
       },
       {"interrupted"}},
      {"a throwing start-up fails with its exception",
       [](const Observer& o) {
         o.send(1);
         throw std::logic_error("start-up broke");
       },
       {"1", "failed: start-up broke"}},
      {"no terminal event: still going", [](const Observer& o) { o.send(1); }, {"1"}, false},
  };
  for (const auto& example : examples) {
    SCOPED_TRACE(example.name);
    int cleanUps = 0;
    Recorder recorder(text);
    const Disposable subscription = Producer([&](Observer observer, Lifetime lifetime) {
                                      lifetime.observeEnded([&] { ++cleanUps; });
                                      example.send(observer);
                                    }).start(recorder.handlers());
    EXPECT_EQ(recorder.events(), example.heard);
    EXPECT_EQ(cleanUps, example.ends ? 1 : 0);
    subscription.dispose();
    subscription.dispose();
    EXPECT_EQ(cleanUps, 1);
    EXPECT_EQ(recorder.events(), example.heard);
  }
}

TEST(SignalProducer, DisposingEndsTheLifetimeOnceAndSilencesTheSubscriber) {
  std::vector<Observer> observers;
  std::vector<Lifetime> lifetimes;
  int cleanUps = 0;
  const Producer producer([&](Observer observer, Lifetime lifetime) {
    lifetime.observeEnded([&] { ++cleanUps; });
    observers.push_back(observer);
    lifetimes.push_back(lifetime);
  });
  Recorder recorder(text);
  const Disposable subscription = producer.start(recorder.handlers());
  observers[0].send(1);
  EXPECT_FALSE(subscription.isDisposed());

  subscription.dispose();
  EXPECT_TRUE(subscription.isDisposed());
  EXPECT_EQ(cleanUps, 1);
  observers[0].send(2);
  observers[0].sendCompleted();
  subscription.dispose();
  EXPECT_EQ(cleanUps, 1);
  EXPECT_EQ(recorder.events(), Events{"1"});

  int late = 0;
  lifetimes[0].observeEnded([&] { ++late; });  // registered after the end: runs at once
  EXPECT_EQ(late, 1);

  // A subscriber may dispose from its own handler: the event being handled is the last.
  Disposable second;
  Recorder recorder2(text);
  auto handlers = recorder2.handlers();
  handlers.value = [&, record = handlers.value](int value) {
    record(value);
    second.dispose();
  };
  second = producer.start(handlers);
  observers[1].send(7);
  observers[1].send(8);
  EXPECT_EQ(recorder2.events(), Events{"7"});
  EXPECT_EQ(cleanUps, 2);
}

TEST(SignalProducer, EventsFromManyThreadsReachTheSubscriberOneAtATime) {
  constexpr int threads = 4;
  constexpr int perThread = 2000;
  std::promise<Observer> started;
  const Producer producer([&](Observer observer, Lifetime) { started.set_value(observer); });

  std::atomic<int> inHandler = 0;
  std::atomic<bool> overlapped = false;
  std::vector<int> lastFrom(threads, -1);  // plain data: only the serialized handler touches it
  bool inOrder = true;
  int received = 0;
  std::promise<void> completed;
  producer.start({
      .value =
          [&](int value) {
            if (++inHandler > 1) overlapped = true;
            const int thread = value / perThread;
            inOrder = inOrder && value % perThread == lastFrom[thread] + 1;
            lastFrom[thread] = value % perThread;
            ++received;
            --inHandler;
          },
      .completed = [&] { completed.set_value(); },
  });
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
  completed.get_future().wait();
  EXPECT_FALSE(overlapped);
  EXPECT_TRUE(inOrder);
  EXPECT_EQ(received, threads * perThread);
}

TEST(SignalProducer, ObserveOnDeliversInOrderOnTheScheduler) {
  const QueueScheduler scheduler("test.observe");
  const Producer numbers([](Observer observer, Lifetime) {
    for (int i = 0; i < 500; ++i) observer.send(i);
    observer.sendCompleted();
  });
  Events heard;
  bool allOnScheduler = true;
  std::promise<void> done;
  numbers.observeOn(scheduler).start({
      .value =
          [&](int value) {
            allOnScheduler = allOnScheduler && scheduler.isCurrent();
            heard.push_back(text(value));
          },
      .completed =
          [&] {
            allOnScheduler = allOnScheduler && scheduler.isCurrent();
            heard.push_back("completed");
            done.set_value();
          },
  });
  done.get_future().wait();
  EXPECT_TRUE(allOnScheduler);
  ASSERT_EQ(heard.size(), 501u);
  for (int i = 0; i < 500; ++i) EXPECT_EQ(heard[i], text(i));
  EXPECT_EQ(heard.back(), "completed");
  EXPECT_FALSE(scheduler.isCurrent());
}

TEST(SignalProducer, StartOnRunsTheStartUpOnTheSchedulerUnlessDisposedFirst) {
  const QueueScheduler scheduler("test.start");
  std::atomic<int> startUps = 0;
  std::atomic<bool> onScheduler = false;
  const Producer producer = Producer([&](Observer observer, Lifetime) {
                              ++startUps;
                              onScheduler = scheduler.isCurrent();
                              observer.send(1);
                              observer.sendCompleted();
                            }).startOn(scheduler);

  // Keep the scheduler busy while one subscription is made and disposed.
  std::promise<void> release;
  scheduler.schedule([wait = release.get_future().share()] { wait.wait(); });
  Recorder disposedEarly(text);
  producer.start(disposedEarly.handlers()).dispose();
  release.set_value();

  Recorder recorder(text);
  producer.start(recorder.handlers());
  EXPECT_EQ(recorder.waitForEnd(), (Events{"1", "completed"}));
  EXPECT_EQ(startUps, 1);
  EXPECT_TRUE(onScheduler);
  EXPECT_EQ(disposedEarly.events(), Events{});
}

TEST(SignalProducer, AttemptRunsTheActionOnEachStart) {
  int calls = 0;
  const auto producer = SignalProducer<std::string>::attempt([&]() -> std::string {
    if (++calls == 2) throw std::runtime_error("second call failed");
    return "call " + std::to_string(calls);
  });
  const std::vector<Events> expected = {
      {"call 1", "completed"}, {"failed: second call failed"}, {"call 3", "completed"}};
  for (const auto& events : expected) {
    testing::SignalRecorder<std::string> recorder([](const std::string& value) { return value; });
    producer.start(recorder.handlers());
    EXPECT_EQ(recorder.events(), events);  // synchronous: heard before start returns
  }
}

TEST(QueueScheduler, SchedulersSharingTwoWorkersEachRunTheirJobsOneAtATimeInOrder) {
  ThreadPool pool(2);
  constexpr int schedulerCount = 6;
  constexpr int jobs = 300;
  struct Lane {
    QueueScheduler scheduler;
    std::vector<int> ran;  // touched only by the scheduler's jobs
    std::atomic<int> running = 0;
    std::atomic<bool> overlapped = false;
  };
  std::vector<std::unique_ptr<Lane>> lanes;
  for (int i = 0; i < schedulerCount; ++i) {
    lanes.push_back(std::unique_ptr<Lane>(new Lane{QueueScheduler("lane " + text(i), pool), {}, {}, {}}));
  }
  std::promise<void> allDone;
  std::atomic<int> finished = 0;
  for (int job = 0; job < jobs; ++job) {
    for (auto& lane : lanes) {
      lane->scheduler.schedule([&lane = *lane, job, &finished, &allDone] {
        if (++lane.running > 1) lane.overlapped = true;
        lane.ran.push_back(job);
        --lane.running;
        if (++finished == schedulerCount * jobs) allDone.set_value();
      });
    }
  }
  allDone.get_future().wait();
  for (const auto& lane : lanes) {
    SCOPED_TRACE(lane->scheduler.name());
    EXPECT_FALSE(lane->overlapped);
    ASSERT_EQ(lane->ran.size(), static_cast<std::size_t>(jobs));
    for (int job = 0; job < jobs; ++job) EXPECT_EQ(lane->ran[job], job);
  }
}

TEST(Lifetime, EndsOnceWhenItsTokenEndsOrGoesAway) {
  std::vector<std::string> log;
  {
    auto [lifetime, token] = Lifetime::make();
    lifetime.observeEnded([&] { log.push_back("first"); });
    lifetime.observeEnded([&] { log.push_back("second"); });
    EXPECT_FALSE(lifetime.hasEnded());
    token.end();
    token.end();
    EXPECT_TRUE(lifetime.hasEnded());
  }
  {
    auto [lifetime, token] = Lifetime::make();
    lifetime.observeEnded([&] { log.push_back("dropped token"); });
  }
  EXPECT_EQ(log, (std::vector<std::string>{"first", "second", "dropped token"}));
}

}  // namespace
}  // namespace velquist::support
