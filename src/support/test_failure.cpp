// Test-failure reporting and the log sink it falls back to.
#include "velquist/support/test_failure.h"

#include <cstdio>
#include <string>
#include <utility>

#include "velquist/support/log_sink.h"
#include "velquist/support/mutex.h"

namespace velquist::support {
namespace {

// A process-wide replaceable function; calls go to a copy taken under the lock.
template <class Function>
class Replaceable {
 public:
  Function set(Function function) VELQUIST_EXCLUDES(mutex_) {
    LockGuard lock(mutex_);
    return std::exchange(function_, std::move(function));
  }
  Function get() VELQUIST_EXCLUDES(mutex_) {
    LockGuard lock(mutex_);
    return function_;
  }

 private:
  Mutex mutex_;
  Function function_ VELQUIST_GUARDED_BY(mutex_);
};

Replaceable<LogSink>& logSink() {
  static Replaceable<LogSink> sink;
  return sink;
}

Replaceable<TestFailureReporter>& testFailureReporter() {
  static Replaceable<TestFailureReporter> reporter;
  return reporter;
}

}  // namespace

LogSink setLogSink(LogSink sink) { return logSink().set(std::move(sink)); }

void writeLogLine(std::string_view line) {
  if (const auto sink = logSink().get()) {
    sink(line);
    return;
  }
  // One write per line, so lines from different threads do not interleave.
  std::string text(line);
  text += '\n';
  std::fwrite(text.data(), 1, text.size(), stderr);
}

TestFailureReporter setTestFailureReporter(TestFailureReporter reporter) {
  return testFailureReporter().set(std::move(reporter));
}

void reportTestFailure(std::string_view message) {
  if (const auto reporter = testFailureReporter().get()) {
    reporter(message);
    return;
  }
  writeLogLine(message);
}

}  // namespace velquist::support
