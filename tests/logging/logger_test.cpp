#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "velquist/logging/log_capture.h"
#include "velquist/logging/logger.h"

namespace velquist::logging {
namespace {

using Strings = std::vector<std::string>;

TEST(LogMessage, SubstitutesArgumentsInOrderInOnePass) {
  const std::tuple<std::string, Strings, std::string> examples[] = {  // format, arguments, message
      {"count %{public}@ of %{public}@", {"3", "4"}, "count 3 of 4"},
      {"%{public}@%{public}@", {"a", "b"}, "ab"},
      {"no placeholders", {"ignored"}, "no placeholders"},
      {"one %{public}@ two %{public}@", {"x"}, "one x two %{public}@"},  // a missing argument leaves the placeholder
      {"%{public}@\n%{public}@", {"transaction updated\n%{public}@", "dump"}, "transaction updated\n%{public}@\ndump"},
      {"%@ %d %{private}@ %{public}", {"a"}, "%@ %d %{private}@ %{public}"},  // only the public object form
      {"", {"a"}, ""},
      {"%{public}%{public}@@", {"x"}, "%{public}x@"},
  };
  for (const auto& [format, arguments, message] : examples) EXPECT_EQ(formatLogMessage(format, arguments), message) << format;
}

TEST(LogEntryText, HeaderCarriesUtcTimeLevelSubsystemAndCategory) {
  using namespace std::chrono;
  const auto time = system_clock::time_point(seconds(1714566896) + milliseconds(7));  // 2024-05-01 12:34:56.007 UTC
  EXPECT_EQ(formatLogEntry({time, LogLevel::info, "s.t", "StoreKit", "updated, count 1"}),
            "2024-05-01T12:34:56.007Z info [s.t:StoreKit] updated, count 1");
  EXPECT_EQ(formatLogEntry({time, LogLevel::error, "s", "c", "one\ntwo"}), "2024-05-01T12:34:56.007Z error [s:c] one\ntwo");
  EXPECT_EQ(formatLogEntry({system_clock::time_point{}, LogLevel::info, "", "", ""}), "1970-01-01T00:00:00.000Z info [:] ");
}

TEST(Logger, OneLoggerPerSubsystemAndCategory) {
  const Logger& first = Logger::named("velquist.test", "A");
  EXPECT_EQ(&Logger::named("velquist.test", "A"), &first);
  EXPECT_NE(&Logger::named("velquist.test", "B"), &first);
  EXPECT_NE(&Logger::named("velquist.test2", "A"), &first);
  EXPECT_NE(&Logger::named("velquist.tes", "tA"), &first);  // the pair, not the joined text
}

TEST(Logger, EntriesReachTheSinkWithLevelLogAndMessage) {
  LogCapture capture;
  const Logger& log = Logger::named("velquist.test", "Entries");
  log.info("transactions updated, count %{public}@", 3);
  log.error("handle transactions count %{public}@ and products count %{public}@", std::size_t{2}, -1);
  log.info("%{public}@ %{public}@", std::string("text"), 0.5);
  log.infoDump("filter transaction", std::map<std::string, std::string>{{"result", "filtered"}, {"reason", "renewal"}});
  log.errorDump("transaction failure\n%{public}@", std::string("x"));
  Strings written;
  for (const auto& entry : capture.entries()) {
    written.push_back(std::string(name(entry.level)) + " " + entry.subsystem + ":" + entry.category + " " + entry.message);
  }
  EXPECT_EQ(written, (Strings{"info velquist.test:Entries transactions updated, count 3",
                              "error velquist.test:Entries handle transactions count 2 and products count -1",
                              "info velquist.test:Entries text 0.5",
                              "info velquist.test:Entries filter transaction\n"
                              "[\n  \"reason\": \"renewal\",\n  \"result\": \"filtered\"\n]",
                              "error velquist.test:Entries transaction failure\n%{public}@\n\"x\""}));
  EXPECT_EQ(capture.messages("velquist.test", "Entries").size(), written.size());
  EXPECT_EQ(capture.messages("velquist.test", "Other"), Strings{});
}

TEST(LogSinks, CapturesNestAndPutBackTheSinkBefore) {
  const Logger& log = Logger::named("velquist.test", "Sinks");
  Strings seen;
  const LogSink before = setLogSink([&seen](const LogEntry& entry) { seen.push_back(entry.message); });
  EXPECT_FALSE(before);  // the default sink is the empty one
  {
    LogCapture outer;
    {
      LogCapture inner;
      log.info("inner");
      EXPECT_EQ(inner.messages("velquist.test", "Sinks"), Strings{"inner"});
    }
    log.info("outer");
    EXPECT_EQ(outer.messages("velquist.test", "Sinks"), Strings{"outer"});
    outer.clear();
    EXPECT_TRUE(outer.entries().empty());
  }
  log.info("custom");
  EXPECT_EQ(seen, Strings{"custom"});
  EXPECT_TRUE(setLogSink(before));  // hands back the custom sink
}

TEST(LogSinks, DefaultSinkWritesEachEntryToStandardError) {
  const Logger& log = Logger::named("velquist.test", "Default");
  ::testing::internal::CaptureStderr();
  log.info("hello %{public}@", "you");
  log.error("two\nlines");
  const std::string text = ::testing::internal::GetCapturedStderr();
  const std::string stamp = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z )";
  EXPECT_TRUE(std::regex_match(text, std::regex(stamp + R"(info \[velquist\.test:Default\] hello you\n)" + stamp +
                                                R"(error \[velquist\.test:Default\] two\nlines\n)")))
      << text;
}

}  // namespace
}  // namespace velquist::logging
