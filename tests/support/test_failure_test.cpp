#include "velquist/support/test_failure.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "common/reported_failures.h"
#include "velquist/support/log_sink.h"

namespace velquist::support {
namespace {

TEST(TestFailure, InsideATestItIsAFailureWithTheMessageFromAnyThread) {
  const auto failures = testing::failuresDuring([] {
    reportTestFailure("first");
    std::thread([] { reportTestFailure("from a worker"); }).join();
  });
  EXPECT_EQ(failures, (std::vector<std::string>{testing::reportedFailure("first"),
                                                testing::reportedFailure("from a worker")}));
}

TEST(TestFailure, WithoutAReporterTheMessageBecomesOneLogLine) {
  const auto reporter = setTestFailureReporter(nullptr);
  ::testing::internal::CaptureStderr();
  reportTestFailure("Unimplemented: something");  // the default sink: standard error
  std::vector<std::string> lines = {::testing::internal::GetCapturedStderr()};
  const auto sink = setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  reportTestFailure("to the sink");
  setLogSink(sink);
  setTestFailureReporter(reporter);
  EXPECT_EQ(lines, (std::vector<std::string>{"Unimplemented: something\n", "to the sink"}));
}

}  // namespace
}  // namespace velquist::support
