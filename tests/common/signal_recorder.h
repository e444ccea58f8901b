#pragma once

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "velquist/support/signal_producer.h"

namespace velquist::testing {

/// The `what()` of an any-error failure.
inline std::string describeError(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& caught) {
    return caught.what();
  } catch (...) {
    return "not a std::exception";
  }
}

/// Records what a subscriber hears, from any thread, as lines of text ("1", "failed: boom",
/// "completed", "interrupted"), and lets the test wait for the terminal event.
template <class Value, class Error = std::exception_ptr>
class SignalRecorder {
 public:
  explicit SignalRecorder(std::function<std::string(const Value&)> describe,
                          std::function<std::string(const Error&)> describeFailure = describeError)
      : describe_(std::move(describe)), describeFailure_(std::move(describeFailure)) {}

  support::SignalHandlers<Value, Error> handlers() {
    return {.value = [this](Value value) { add(describe_(value), false); },
            .failed = [this](Error error) { add("failed: " + describeFailure_(error), true); },
            .completed = [this] { add("completed", true); },
            .interrupted = [this] { add("interrupted", true); }};
  }

  std::vector<std::string> events() const {
    std::lock_guard lock(mutex_);
    return events_;
  }
  std::vector<std::string> waitForEnd() const {
    std::unique_lock lock(mutex_);
    endRecorded_.wait(lock, [this] { return hasEnded_; });
    return events_;
  }

 private:
  void add(std::string event, bool terminal) {
    std::lock_guard lock(mutex_);  // notified under the lock: the waiter may destroy the recorder at once
    events_.push_back(std::move(event));
    hasEnded_ = hasEnded_ || terminal;
    endRecorded_.notify_all();
  }

  std::function<std::string(const Value&)> describe_;
  std::function<std::string(const Error&)> describeFailure_;
  mutable std::mutex mutex_;
  mutable std::condition_variable endRecorded_;
  std::vector<std::string> events_;
  bool hasEnded_ = false;
};

}  // namespace velquist::testing
