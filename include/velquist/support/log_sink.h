#pragma once

#include "velquist/export.h"
#include <functional>
#include <string_view>

VELQUIST_API_BEGIN
namespace velquist::support {

/// Where the library's log lines go until a logging module takes over: by default each
/// line is written to standard error followed by a newline; the host may install its own
/// sink (an empty one restores the default); `setLogSink` returns the sink it replaced.
///
///     writeLogLine("Unimplemented: @Dependency(\\.requestReview)");
///     // standard error: Unimplemented: @Dependency(\.requestReview)
///
/// Thread-safety: both functions may be called from any thread; the sink is called
/// outside any lock of ours, so it may itself be called from several threads at once.
using LogSink = std::function<void(std::string_view line)>;
LogSink setLogSink(LogSink sink);
void writeLogLine(std::string_view line);

}  // namespace velquist::support
VELQUIST_API_END
