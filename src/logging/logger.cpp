#include "velquist/logging/logger.h"

#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <map>
#include <memory>
#include <utility>

#include "velquist/foundation/user_defaults.h"
#include "velquist/logging/log_capture.h"
#include "velquist/support/mutex.h"

namespace velquist::logging {
namespace {

constexpr std::string_view placeholder = "%{public}@";

// The process-wide sink; calls go to a copy taken under the lock.
class SinkSlot {
 public:
  LogSink exchange(LogSink sink) VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    return std::exchange(sink_, std::move(sink));
  }
  LogSink get() VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    return sink_;
  }

 private:
  support::Mutex mutex_;
  LogSink sink_ VELQUIST_GUARDED_BY(mutex_);
};

// Never destroyed: background work may still log while the process exits.
SinkSlot& sinkSlot() {
  static SinkSlot& slot = *new SinkSlot;
  return slot;
}

void writeToStandardError(const LogEntry& entry) {
  std::string text = formatLogEntry(entry);
  text += '\n';
  // One write per entry, so entries from different threads do not interleave.
  std::string_view rest = text;
  while (!rest.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, rest.data(), rest.size());
    if (written <= 0) return;  // nowhere to report a failing standard error
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

// Keeps every Logger made, one per (subsystem, category); never shrinks.
class LoggerRegistry {
 public:
  static const Logger& named(std::string_view subsystem, std::string_view category) {
    // Never destroyed, so the loggers handed out stay valid while the process exits.
    static LoggerRegistry& registry = *new LoggerRegistry;
    return registry.find(subsystem, category);
  }

 private:
  const Logger& find(std::string_view subsystem, std::string_view category) VELQUIST_EXCLUDES(mutex_) {
    support::LockGuard lock(mutex_);
    auto key = std::make_pair(std::string(subsystem), std::string(category));
    auto found = loggers_.find(key);
    if (found == loggers_.end()) {
      std::unique_ptr<Logger> logger(new Logger(key.first, key.second));
      found = loggers_.emplace(std::move(key), std::move(logger)).first;
    }
    return *found->second;
  }

  support::Mutex mutex_;
  std::map<std::pair<std::string, std::string>, std::unique_ptr<Logger>> loggers_ VELQUIST_GUARDED_BY(mutex_);
};

std::string_view name(LogLevel level) { return level == LogLevel::error ? "error" : "info"; }

LogSink setLogSink(LogSink sink) { return sinkSlot().exchange(std::move(sink)); }

std::string formatLogEntry(const LogEntry& entry) {
  using namespace std::chrono;
  const auto sinceEpoch = entry.time.time_since_epoch();
  const auto wholeSeconds = floor<seconds>(sinceEpoch);
  const auto milliseconds = duration_cast<std::chrono::milliseconds>(sinceEpoch - wholeSeconds).count();
  const std::time_t clock = static_cast<std::time_t>(wholeSeconds.count());
  std::tm utc{};
  gmtime_r(&clock, &utc);
  char stamp[96];
  std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(milliseconds));
  std::string text = stamp;
  text += ' ';
  text += name(entry.level);
  text += " [" + entry.subsystem + ":" + entry.category + "] ";
  text += entry.message;
  return text;
}

std::string formatLogMessage(std::string_view format, const std::vector<std::string>& arguments) {
  std::string message;
  message.reserve(format.size());
  std::size_t next = 0;
  for (;;) {
    const std::size_t found = format.find(placeholder);
    if (found == std::string_view::npos || next == arguments.size()) break;
    message.append(format.substr(0, found));
    message += arguments[next++];
    format.remove_prefix(found + placeholder.size());
  }
  message.append(format);
  return message;
}

const Logger& Logger::named(std::string_view subsystem, std::string_view category) {
  return LoggerRegistry::named(subsystem, category);
}

void Logger::log(LogLevel level, std::string_view format, const std::vector<std::string>& arguments) const {
  LogEntry entry{.time = std::chrono::system_clock::now(),
                 .level = level,
                 .subsystem = subsystem_,
                 .category = category_,
                 .message = formatLogMessage(format, arguments)};
  if (const LogSink sink = sinkSlot().get()) {
    sink(entry);
  } else {
    writeToStandardError(entry);
  }
}

struct LogCapture::Shared {
  support::Mutex mutex;
  std::vector<LogEntry> entries VELQUIST_GUARDED_BY(mutex);
};

LogCapture::LogCapture() : shared_(std::make_shared<Shared>()) {
  previous_ = setLogSink([shared = shared_](const LogEntry& entry) {
    support::LockGuard lock(shared->mutex);
    shared->entries.push_back(entry);
  });
}

LogCapture::~LogCapture() { setLogSink(std::move(previous_)); }

std::vector<LogEntry> LogCapture::entries() const {
  support::LockGuard lock(shared_->mutex);
  return shared_->entries;
}

std::vector<std::string> LogCapture::messages(std::string_view subsystem, std::string_view category) const {
  std::vector<std::string> messages;
  support::LockGuard lock(shared_->mutex);
  for (const auto& entry : shared_->entries) {
    if (entry.subsystem == subsystem && entry.category == category) messages.push_back(entry.message);
  }
  return messages;
}

void LogCapture::clear() {
  support::LockGuard lock(shared_->mutex);
  shared_->entries.clear();
}

namespace {

// Every problem with a defaults file becomes one log line. Foundation sits below logging, so it
// reports through an observer, added here as the program starts.
const std::uint64_t userDefaultsReportsLogged = foundation::addUserDefaultsObserver([](const auto& report) {
  const auto level = report.kind == foundation::UserDefaultsReport::Kind::tornWrite ? LogLevel::info : LogLevel::error;
  Logger::named("velquist.foundation", "UserDefaults").log(level, placeholder, {report.description()});
});

}  // namespace

}  // namespace velquist::logging
