#include "velquist/support/async_stream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "common/deadline.h"

namespace velquist::support {
namespace {

using Stream = AsyncStream<int>;

TEST(AsyncStream, WhatTheConsumerSeesAndWhenTheHandlerRuns) {
  const std::vector<std::pair<std::function<void(Stream::Continuation&)>, std::vector<std::string>>> examples = {
      {[](auto& c) { c.finish(); EXPECT_FALSE(c.yield(3)); }, {"1", "2"}},  // finish keeps what is buffered
      {[](auto& c) { c.finish(std::make_exception_ptr(std::runtime_error("failed"))); }, {"1", "2", "failed"}},
      {[](auto&) {}, {"1", "2"}},  // the last continuation gone finishes the stream
  };
  for (const auto& [produce, seen] : examples) {
    int terminations = 0;
    Stream stream([&terminations, &produce = produce](Stream::Continuation continuation) {
      continuation.onTermination([&] { ++terminations; });
      EXPECT_TRUE(continuation.yield(1) && continuation.yield(2));
      produce(continuation);
    });
    EXPECT_EQ(terminations, 1);  // ended before the consumer read anything
    std::vector<std::string> got;  // the values, then the message of an error
    try {
      while (auto value = stream.next()) got.push_back(std::to_string(*value));
    } catch (const std::runtime_error& error) {
      got.push_back(error.what());
      EXPECT_EQ(stream.next(), std::nullopt);  // the error comes once, then the end
    }
    EXPECT_EQ(got, seen);
    EXPECT_EQ(terminations, 1);
  }
}

TEST(AsyncStream, DroppingOrStoppingTheConsumerEndsTheStreamOnce) {
  std::atomic<int> terminations = 0;
  std::optional<Stream::Continuation> kept;
  const auto build = [&](Stream::Continuation continuation) {
    continuation.onTermination([&] { ++terminations; });
    kept = continuation;
  };
  { Stream dropped(build); }
  EXPECT_EQ(terminations, 1);
  EXPECT_FALSE(kept->yield(1));

  Stream stopped(build);
  EXPECT_EQ(terminations, 1);  // open while both ends are there
  std::stop_source stop;
  std::optional<int> got = 0;
  testing::GuardedThread consumer([&] { got = stopped.next(stop.get_token()); });
  stop.request_stop();
  consumer.join("the stopped consumer to return");
  EXPECT_EQ(got, std::nullopt);
  EXPECT_EQ(terminations, 2);
  EXPECT_FALSE(kept->yield(7));
  EXPECT_EQ(stopped.next(), std::nullopt);
  bool ran = false;
  kept->onTermination([&] { ran = true; });  // set after the end: runs at once
  EXPECT_TRUE(ran);
}

TEST(AsyncStream, ValuesFromManyThreadsAllArriveInEachProducersOrder) {
  constexpr int producers = 4, perProducer = 2000;
  std::vector<std::thread> threads;
  Stream stream([&](Stream::Continuation continuation) {
    for (int p = 0; p < producers; ++p) {
      threads.emplace_back([continuation, p] {
        for (int i = 0; i < perProducer; ++i) continuation.yield(p * perProducer + i);
      });
    }
  });  // the threads hold the only continuations: the stream ends when the last is done
  std::vector<int> received(producers, 0);  // how many values came from each producer so far
  testing::Deadline deadline("the end of a stream fed by four threads");
  while (auto value = stream.next(deadline.token())) {
    EXPECT_EQ(*value % perProducer, received.at(*value / perProducer)++);  // in each producer's order, none lost
  }
  EXPECT_FALSE(deadline.expired());
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(received, std::vector<int>(producers, perProducer));
}

}  // namespace
}  // namespace velquist::support
