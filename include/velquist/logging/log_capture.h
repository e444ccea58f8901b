#pragma once

#include "velquist/export.h"
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "velquist/logging/logger.h"

VELQUIST_API_BEGIN
namespace velquist::logging {

/// Collects every log entry of the process while it exists, instead of the sink that was
/// installed before, and puts that sink back when destroyed. Meant for tests that check
/// what was logged; captures do not nest across threads (the innermost one wins).
///
///     LogCapture capture;
///     Logger::named("s", "c").info("hello %{public}@", "you");
///     capture.entries();           // {LogEntry{.level = info, .subsystem = "s", .category = "c", .message = "hello you"}}
///     capture.messages("s", "c");  // {"hello you"}
///
/// Thread-safety: entries may arrive from any thread; every member may be called from any
/// thread.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// Everything logged since the capture began (or since `clear`), in the order received.
  std::vector<LogEntry> entries() const;
  /// The messages of one log, in order.
  std::vector<std::string> messages(std::string_view subsystem, std::string_view category) const;
  void clear();

 private:
  struct Shared;
  std::shared_ptr<Shared> shared_;  // also held by the installed sink
  LogSink previous_;
};

}  // namespace velquist::logging
VELQUIST_API_END
