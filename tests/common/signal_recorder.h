#pragma once

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "common/deadline.h"
#include "velquist/support/signal_producer.h"

namespace velquist::testing {

/// The `what()` of a failure (the tests here fail only with standard exceptions).
inline std::string describeError(const std::exception_ptr& error) try {
  std::rethrow_exception(error);
} catch (const std::exception& caught) {
  return caught.what();
}

/// Records what a subscriber hears, from any thread, as lines of text ("1", "failed: boom",
/// "completed", "interrupted"), and lets the test wait for the terminal event (what it heard
/// until then, after a failure of the test, if the signal does not end in time).
template <class Value>
class SignalRecorder {
 public:
  explicit SignalRecorder(std::function<std::string(const Value&)> describe,
                          std::function<std::string(const std::exception_ptr&)> describeFailure = describeError)
      : describe_(std::move(describe)), describeFailure_(std::move(describeFailure)) {}

  support::SignalHandlers<Value, std::exception_ptr> handlers() {
    return {[this](Value value) { add(describe_(value), false); },
            [this](std::exception_ptr error) { add("failed: " + describeFailure_(error), true); },
            [this] { add("completed", true); }, [this] { add("interrupted", true); }};
  }
  std::vector<std::string> events() const {
    std::lock_guard lock(mutex_);
    return events_;
  }
  std::vector<std::string> waitForEnd() const {
    std::unique_lock lock(mutex_);
    waitUntil(ended_, lock, [&] { return hasEnded_; }, "a signal to end");
    return events_;
  }

 private:
  void add(std::string event, bool terminal) {
    std::lock_guard lock(mutex_);  // notified under the lock: the waiter may destroy the recorder at once
    events_.push_back(std::move(event));
    hasEnded_ = hasEnded_ || terminal;
    ended_.notify_all();
  }

  std::function<std::string(const Value&)> describe_;
  std::function<std::string(const std::exception_ptr&)> describeFailure_;
  mutable std::mutex mutex_;
  mutable std::condition_variable ended_;
  std::vector<std::string> events_;
  bool hasEnded_ = false;
};

}  // namespace velquist::testing
