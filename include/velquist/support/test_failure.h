#pragma once

#include "velquist/export.h"
#include <functional>
#include <string_view>

VELQUIST_API_BEGIN
namespace velquist::support {

/// Reports a failure of the test that is running, such as a dependency that a test used
/// without overriding it. The process-wide reporter decides what that means: the
/// project's test programs install one that records a non-fatal GoogleTest failure with
/// the message; without one the message is written as a log line (see log_sink.h). The
/// process goes on either way.
///
///     reportTestFailure("Unimplemented: @Dependency(\\.requestReview)");
///
/// Thread-safety: callable from any thread; the reporter is called outside any lock of
/// ours. `setTestFailureReporter` with an empty function restores the default; it returns
/// the reporter it replaced.
using TestFailureReporter = std::function<void(std::string_view message)>;
TestFailureReporter setTestFailureReporter(TestFailureReporter reporter);
void reportTestFailure(std::string_view message);

}  // namespace velquist::support
VELQUIST_API_END
