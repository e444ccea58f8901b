#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <string>
#include <vector>

#include "velquist/logging/log_capture.h"
#include "velquist/logging/logger.h"

namespace velquist::logging {
namespace {

using Strings = std::vector<std::string>;

TEST(LogMessage, SubstitutesArgumentsInOrderInOnePass) {
  const struct {
    std::string format;
    Strings arguments;
    std::string expected;
  } examples[] = {
      {"count %{public}@ of %{public}@", {"3", "4"}, "count 3 of 4"},
      {"%{public}@%{public}@", {"a", "b"}, "ab"},
      {"no placeholders", {"ignored"}, "no placeholders"},
      {"one %{public}@ two %{public}@", {"x"}, "one x two %{public}@"},  // missing argument kept literally
      {"%{public}@\n%{public}@", {"transaction updated\n%{public}@", "dump"}, "transaction updated\n%{public}@\ndump"},
      {"%@ %d %{private}@ %{public}", {"a"}, "%@ %d %{private}@ %{public}"},  // only the public object form
      {"%{public}@", {""}, ""},
      {"", {"a"}, ""},
      {"%{public}%{public}@@", {"x"}, "%{public}x@"},
  };
  for (const auto& example : examples) {
    EXPECT_EQ(formatLogMessage(example.format, example.arguments), example.expected) << example.format;
  }
}

TEST(LogEntryText, HeaderCarriesUtcTimeLevelSubsystemAndCategory) {
  using namespace std::chrono;
  const auto time = system_clock::time_point(seconds(1714566896) + milliseconds(7));  // 2024-05-01 12:34:56.007 UTC
  const struct {
    LogEntry entry;
    std::string expected;
  } examples[] = {
      {{time, LogLevel::info, "velquist.store-kit.transaction-listener", "StoreKit", "transactions updated, count 1"},
       "2024-05-01T12:34:56.007Z info [velquist.store-kit.transaction-listener:StoreKit] transactions updated, count 1"},
      {{time, LogLevel::error, "s", "c", "first\nsecond"}, "2024-05-01T12:34:56.007Z error [s:c] first\nsecond"},
      {{system_clock::time_point{}, LogLevel::info, "", "", ""}, "1970-01-01T00:00:00.000Z info [:] "},
  };
  for (const auto& example : examples) EXPECT_EQ(formatLogEntry(example.entry), example.expected);
}

TEST(Logger, OneLoggerPerSubsystemAndCategory) {
  const Logger& first = Logger::named("velquist.test", "A");
  EXPECT_EQ(&Logger::named("velquist.test", "A"), &first);
  EXPECT_NE(&Logger::named("velquist.test", "B"), &first);
  EXPECT_NE(&Logger::named("velquist.test2", "A"), &first);
  EXPECT_NE(&Logger::named("velquist.tes", "tA"), &first);  // the pair, not the joined text
  EXPECT_EQ(first.subsystem(), "velquist.test");
  EXPECT_EQ(first.category(), "A");
}

struct Written {
  LogLevel level;
  std::string message;
  friend bool operator==(const Written&, const Written&) = default;
};

std::ostream& operator<<(std::ostream& out, const Written& written) {
  return out << name(written.level) << ": " << written.message;
}

TEST(Logger, EntriesReachTheSinkWithLevelLogAndMessage) {
  LogCapture capture;
  const Logger& log = Logger::named("velquist.test", "Entries");
  log.info("transactions updated, count %{public}@", 3);
  log.error("handle transactions count %{public}@ and products count %{public}@", std::size_t{2}, -1);
  log.info("plain");
  log.info("%{public}@ %{public}@", std::string("text"), 0.5);
  log.infoDump("filter transaction", std::map<std::string, std::string>{{"result", "filtered"}, {"reason", "renewal"}});
  log.errorDump("fetch products failure", std::map<std::string, std::string>{{"error", "offline"}});
  log.errorDump("transaction failure\n%{public}@", std::string("x"));
  const std::vector<Written> expected = {
      {LogLevel::info, "transactions updated, count 3"},
      {LogLevel::error, "handle transactions count 2 and products count -1"},
      {LogLevel::info, "plain"},
      {LogLevel::info, "text 0.5"},
      {LogLevel::info, "filter transaction\n[\n  \"reason\": \"renewal\",\n  \"result\": \"filtered\"\n]"},
      {LogLevel::error, "fetch products failure\n[\n  \"error\": \"offline\"\n]"},
      {LogLevel::error, "transaction failure\n%{public}@\n\"x\""},
  };
  std::vector<Written> written;
  for (const auto& entry : capture.entries()) {
    EXPECT_EQ(entry.subsystem, "velquist.test");
    EXPECT_EQ(entry.category, "Entries");
    written.push_back({entry.level, entry.message});
  }
  EXPECT_EQ(written, expected);
  EXPECT_EQ(capture.messages("velquist.test", "Entries").size(), expected.size());
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
  const std::regex expected(
      R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z info \[velquist\.test:Default\] hello you\n)"
      R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z error \[velquist\.test:Default\] two\nlines\n)");
  EXPECT_TRUE(std::regex_match(text, expected)) << text;
}

}  // namespace
}  // namespace velquist::logging
