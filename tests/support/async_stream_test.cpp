#include "velquist/support/async_stream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace velquist::support {
namespace {

using Stream = AsyncStream<int>;

// Everything the consumer gets until the stream ends; "error" stands for a thrown error.
std::vector<std::string> drainStream(Stream& stream) {
  std::vector<std::string> seen;
  try {
    while (auto value = stream.next()) seen.push_back(std::to_string(*value));
  } catch (const std::runtime_error& error) {
    seen.push_back(error.what());
    while (auto value = stream.next()) seen.push_back(std::to_string(*value));  // nothing after the error
  }
  return seen;
}

TEST(AsyncStream, WhatTheConsumerSeesAndWhenTheHandlerRuns) {
  struct Example {
    std::string name;
    std::function<void(Stream::Continuation&)> produce;  // runs after the handler is set
    std::vector<std::string> seen;
    std::vector<bool> accepted;  // what yield returned, in order
  };
  const std::vector<Example> examples = {
      {"buffered values outlive finish",
       [](auto& c) { c.finish(); },
       {"1", "2"}, {}},
      {"yields after finish are dropped",
       [](auto& c) {
         c.finish();
         EXPECT_FALSE(c.yield(3));
       },
       {"1", "2"}, {}},
      {"finishing with an error: values, then the error once",
       [](auto& c) { c.finish(std::make_exception_ptr(std::runtime_error("store failed"))); },
       {"1", "2", "store failed"}, {}},
      {"the last continuation gone ends the stream",
       [](auto&) {},
       {"1", "2"}, {}},
  };
  for (const auto& example : examples) {
    SCOPED_TRACE(example.name);
    int terminations = 0;
    Stream stream([&](Stream::Continuation continuation) {
      continuation.onTermination([&] { ++terminations; });
      EXPECT_TRUE(continuation.yield(1));
      EXPECT_TRUE(continuation.yield(2));
      example.produce(continuation);
    });
    EXPECT_EQ(terminations, 1);  // ended before the consumer read anything
    EXPECT_EQ(drainStream(stream), example.seen);
    EXPECT_EQ(terminations, 1);
  }
}

TEST(AsyncStream, DroppingTheStreamEndsItOnceAndLaterYieldsAreRefused) {
  int terminations = 0;
  std::optional<Stream::Continuation> kept;
  {
    Stream stream([&](Stream::Continuation continuation) {
      continuation.onTermination([&] { ++terminations; });
      kept = continuation;
    });
    EXPECT_EQ(terminations, 0);
  }
  EXPECT_EQ(terminations, 1);
  EXPECT_FALSE(kept->yield(1));
  kept->finish();
  kept.reset();
  EXPECT_EQ(terminations, 1);

  // A handler set after the end runs at once.
  bool ran = false;
  Stream late([&](Stream::Continuation continuation) {
    continuation.finish();
    continuation.onTermination([&] { ran = true; });
  });
  EXPECT_TRUE(ran);
}

TEST(AsyncStream, StopWhileWaitingEndsTheStreamAndRunsTheHandler) {
  std::optional<Stream::Continuation> producer;
  std::atomic<int> terminations = 0;
  Stream stream([&](Stream::Continuation continuation) {
    continuation.onTermination([&] { ++terminations; });
    producer = continuation;
  });
  std::stop_source stop;
  std::optional<int> got = 0;
  std::thread consumer([&] { got = stream.next(stop.get_token()); });
  stop.request_stop();
  consumer.join();
  EXPECT_EQ(got, std::nullopt);
  EXPECT_EQ(terminations, 1);
  EXPECT_FALSE(producer->yield(7));
  EXPECT_EQ(stream.next(), std::nullopt);
}

TEST(AsyncStream, ValuesFromManyThreadsAllArriveInEachProducersOrder) {
  constexpr int producers = 4;
  constexpr int perProducer = 2000;
  std::vector<std::thread> threads;
  Stream stream([&](Stream::Continuation continuation) {
    for (int p = 0; p < producers; ++p) {
      threads.emplace_back([continuation, p] {
        for (int i = 0; i < perProducer; ++i) continuation.yield(p * perProducer + i);
      });
    }
  });  // the threads hold the only continuations: the stream ends when the last is done
  std::vector<int> last(producers, -1);
  int count = 0;
  while (auto value = stream.next()) {
    const int p = *value / perProducer;
    EXPECT_GT(*value, last[p]);
    last[p] = *value;
    ++count;
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(count, producers * perProducer);
}

}  // namespace
}  // namespace velquist::support
