#include "velquist/support/signal_producer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <thread>

#include "common/signal_recorder.h"

namespace velquist::support {
namespace {

using Producer = SignalProducer<int>;
using Observer = Producer::Observer;
using Recorder = testing::SignalRecorder<int>;
using Events = std::vector<std::string>;

std::string text(const int& value) { return std::to_string(value); }

TEST(SignalProducer, EachStartRunsAgainAndNothingFollowsTheTerminalEvent) {
  const auto boom = std::make_exception_ptr(std::runtime_error("boom"));
  const std::vector<std::pair<std::function<void(const Observer&)>, Events>> examples = {
      {[&](const Observer& o) { o.sendCompleted(), o.send(2), o.sendFailed(boom); }, {"1", "completed"}},
      {[&](const Observer& o) { o.sendFailed(boom), o.sendCompleted(); }, {"1", "failed: boom"}},
      {[](const Observer& o) { o.sendInterrupted(), o.send(2), o.sendInterrupted(); }, {"1", "interrupted"}},
      {[](const Observer&) { throw std::logic_error("start-up broke"); }, {"1", "failed: start-up broke"}},
      {[](const Observer&) {}, {"1"}},  // left open
  };
  for (const auto& [send, heard] : examples) {
    int starts = 0, cleanUps = 0;
    const Producer producer([&, &send = send](Observer observer, Lifetime lifetime) {
      lifetime.observeEnded([&] { ++cleanUps; });
      ++starts, observer.send(1), send(observer);
    });
    for (int start = 1; start <= 2; ++start) {
      EXPECT_EQ(starts, start - 1);  // cold: runs only when started, and each time
      Recorder recorder(text);
      const Disposable subscription = producer.start(recorder.handlers());
      EXPECT_EQ(recorder.events(), heard);
      EXPECT_EQ(cleanUps, heard.size() == 2 ? start : start - 1);  // a terminal event ends the subscription
      subscription.dispose();  // ends an open one; never runs a clean-up twice
      EXPECT_EQ(cleanUps, start);
    }
  }
}

TEST(SignalProducer, DisposingSilencesTheSubscriberEvenFromItsOwnHandler) {
  std::optional<Observer> observer;
  int cleanUps = 0;
  const Producer producer([&](Observer started, Lifetime lifetime) {
    lifetime.observeEnded([&] { ++cleanUps; });
    observer = started;
  });
  Recorder recorder(text);
  Disposable subscription;
  auto handlers = recorder.handlers();
  handlers.value = [&, record = handlers.value](int value) { record(value), observer->send(2), subscription.dispose(); };
  subscription = producer.start(handlers);
  observer->send(1);  // its handler queues 2, then disposes before 2 is handed out
  observer->send(3), observer->sendCompleted(), subscription.dispose();
  EXPECT_EQ(recorder.events(), Events{"1"});
  EXPECT_EQ(cleanUps, 1);
}

TEST(SignalProducer, EventsFromManyThreadsReachTheSubscriberOneAtATimeInOrder) {
  constexpr int threads = 4, perThread = 2000;
  std::atomic<int> inHandler = 0;
  std::atomic<bool> broken = false;  // two at once, or out of order
  std::vector<int> next(threads, 0);  // plain data: only the serialized handler touches it
  std::optional<Observer> observer;
  Producer([&](Observer started, Lifetime) { observer = started; }).start({.value = [&](int value) {
    if (++inHandler > 1 || value % perThread != next[value / perThread]++) broken = true;
    std::this_thread::yield();  // a wider window for another thread to break in
    --inHandler;
  }});
  {
    std::vector<std::jthread> senders;
    for (int t = 0; t < threads; ++t) {
      senders.emplace_back([&, t] { for (int i = 0; i < perThread; ++i) observer->send(t * perThread + i); });
    }
  }  // all delivered: a sender returns after delivering its event, or queues it for one still delivering
  EXPECT_FALSE(broken);
  EXPECT_EQ(next, std::vector<int>(threads, perThread));
}

TEST(SignalProducer, ObserveOnKeepsOrderOnSchedulersSharingThePoolAndStartOnStartsThere) {
  const std::vector<QueueScheduler> schedulers = {QueueScheduler("a"), QueueScheduler("b"), QueueScheduler("c")};
  std::atomic<int> starts = 0, startsOnScheduler = 0;
  const Producer numbers([&](Observer observer, Lifetime) {
    ++starts, startsOnScheduler += schedulers[0].isCurrent();
    for (int i = 0; i < 300; ++i) observer.send(i);
    observer.sendCompleted();
  });
  Events inOrder;
  for (int i = 0; i < 300; ++i) inOrder.push_back(text(i));
  inOrder.push_back("completed");
  std::vector<std::unique_ptr<Recorder>> observed;
  for (const auto& scheduler : schedulers) {
    observed.push_back(std::make_unique<Recorder>([=](const int& n) { return scheduler.isCurrent() ? text(n) : "elsewhere"; }));
    numbers.observeOn(scheduler).start(observed.back()->handlers());
  }
  for (const auto& recorder : observed) EXPECT_EQ(recorder->waitForEnd(), inOrder);

  std::promise<void> release;
  schedulers[0].schedule([busy = release.get_future().share()] { busy.wait(); });
  numbers.startOn(schedulers[0]).start().dispose();  // disposed while waiting behind a busy job: never starts
  release.set_value();
  Recorder started(text);
  numbers.startOn(schedulers[0]).start(started.handlers());
  EXPECT_EQ(started.waitForEnd().back(), "completed");
  EXPECT_EQ(starts, 4);
  EXPECT_EQ(startsOnScheduler, 1);
}

}  // namespace
}  // namespace velquist::support
