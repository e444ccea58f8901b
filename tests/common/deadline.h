#pragma once

// Every wait of the tests has a deadline: a wait gives up after `patience` and fails the test
// naming what it waited for, so a lost wake-up fails its test instead of hanging the suite.
// A guard, not a timing check: no wait comes near it, even under a sanitizer.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>

#include "velquist/support/async_stream.h"
#include "velquist/support/test_failure.h"

namespace velquist::testing {

inline constexpr std::chrono::seconds patience{30};

namespace detail {
// Set once a wait of the running test has given up (cleared as each test starts): its later
// waits then last a second, or together they would run into the ctest timeout.
inline std::atomic<bool> gaveUp = false;
}  // namespace detail

inline std::chrono::steady_clock::duration patienceLeft() {
  return detail::gaveUp ? std::chrono::seconds(1) : patience;
}

inline void reportGaveUp(const std::string& what) {
  const bool again = detail::gaveUp.exchange(true);
  support::reportTestFailure("Gave up waiting for " + what +
                             (again ? " (after an earlier wait of this test gave up)"
                                    : " (waited " + std::to_string(patience.count()) + " s)"));
}

/// Waits on `changed` until `ready()`; false, and the test failed, if it did not come in time.
template <class Lock, class Ready>
bool waitUntil(std::condition_variable& changed, Lock& lock, Ready ready, const std::string& what) {
  if (changed.wait_for(lock, patienceLeft(), ready)) return true;
  reportGaveUp(what);
  return false;
}

/// Polls `ready`, for a state nothing signals, until it holds or the deadline passes.
template <class Ready>
void pollUntil(Ready ready, const std::string& what) {
  const auto deadline = std::chrono::steady_clock::now() + patienceLeft();
  while (!ready()) {
    if (std::chrono::steady_clock::now() >= deadline) return reportGaveUp(what);
    std::this_thread::yield();
  }
}

/// A stop token that fires when the patience is over, for blocking calls that take one;
/// `expired` then fails the test (once).
class Deadline {
 public:
  explicit Deadline(std::string what)
      : what_(std::move(what)), watchdog_([this, wait = patienceLeft()](std::stop_token over) {
          std::mutex mutex;
          std::unique_lock lock(mutex);
          std::condition_variable_any().wait_for(lock, over, wait, [] { return false; });
          if (!over.stop_requested()) giveUp_.request_stop();
        }) {}

  std::stop_token token() const { return giveUp_.get_token(); }
  bool expired() {
    if (!giveUp_.stop_requested()) return false;
    if (!std::exchange(reported_, true)) reportGaveUp(what_);
    return true;
  }

 private:
  const std::string what_;
  std::stop_source giveUp_;
  bool reported_ = false;
  std::jthread watchdog_;  // last: stopped and joined first
};

/// The stream's next value, or nothing at its end or (failing the test) when none came in time.
template <class T>
std::optional<T> nextWithin(support::AsyncStream<T>& stream, const std::string& what) {
  Deadline deadline(what);
  auto value = stream.next(deadline.token());
  if (!value) deadline.expired();
  return value;
}

/// A thread for a body that blocks until something happens, joined with a deadline. A body
/// still running then uses the test's locals and cannot be abandoned: the program stops.
class GuardedThread {
 public:
  explicit GuardedThread(std::function<void()> body) : done_(std::async(std::launch::async, std::move(body))) {}
  ~GuardedThread() { if (done_.valid()) join("a thread of the test to end"); }

  void join(const std::string& what) {
    if (done_.wait_for(patienceLeft()) != std::future_status::ready) {
      std::fprintf(stderr, "Gave up waiting for %s; stopping the test program\n", what.c_str());
      std::abort();
    }
    done_.get();
  }

 private:
  std::future<void> done_;
};

}  // namespace velquist::testing
