#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "velquist/foundation/file_io.h"
#include "velquist/foundation/user_defaults.h"
#include "velquist/logging/log_capture.h"

namespace velquist::logging {
namespace {

namespace fs = std::filesystem;

// A damaged defaults file and a failed write each become one error line naming the file; a
// torn last write one info line.
TEST(UserDefaultsReports, EachBecomesOneLogLine) {
  const fs::path folder = fs::temp_directory_path() / ("velquist_logged_" + std::to_string(::getpid()));
  fs::create_directories(folder);
  const fs::path file = folder / "app.defaults.json";
  LogCapture capture;
  foundation::writeFileAtomically(file, "garbage");
  {
    foundation::FileUserDefaults defaults(file);
    defaults.setString("a", "k");
  }
  foundation::writeFileAtomically(file, foundation::readFileIfPresent(file)->substr(0, fs::file_size(file) - 1));
  { const foundation::FileUserDefaults torn(file); }
  fs::remove(file);
  fs::create_directory(file);
  { foundation::FileUserDefaults(file).setString("b", "k"); }

  const std::pair<LogLevel, std::string> expected[] = {
      {LogLevel::error, "kept 0 entries; the damaged file is now " + file.string() + ".damaged-1"},
      {LogLevel::info, ": the last write was cut short ("},
      {LogLevel::error, " cannot be used ("},
      {LogLevel::error, ": write failed ("}};
  std::vector<LogEntry> lines;
  for (const auto& entry : capture.entries()) {
    if (entry.subsystem == "velquist.foundation" && entry.category == "UserDefaults") lines.push_back(entry);
  }
  ASSERT_EQ(lines.size(), std::size(expected));
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i].level, expected[i].first) << i;
    EXPECT_TRUE(lines[i].message.starts_with(file.string())) << lines[i].message;
    EXPECT_NE(lines[i].message.find(expected[i].second), std::string::npos) << lines[i].message;
  }
  fs::remove_all(folder);
}

}  // namespace
}  // namespace velquist::logging
