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

  std::vector<std::pair<LogLevel, std::string>> lines;
  for (const auto& entry : capture.entries()) {
    if (entry.subsystem == "velquist.foundation" && entry.category == "UserDefaults" &&
        entry.message.starts_with(file.string())) {
      lines.emplace_back(entry.level, entry.message);
    }
  }
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0].first, LogLevel::error);
  EXPECT_NE(lines[0].second.find("is damaged"), std::string::npos) << lines[0].second;
  EXPECT_NE(lines[0].second.find("kept 0 entries; the damaged file is now " + file.string() + ".damaged-1"),
            std::string::npos)
      << lines[0].second;
  EXPECT_EQ(lines[1].first, LogLevel::info);
  EXPECT_NE(lines[1].second.find("the last write was cut short"), std::string::npos) << lines[1].second;
  EXPECT_EQ(lines[2].first, LogLevel::error);
  EXPECT_NE(lines[2].second.find("cannot be used"), std::string::npos) << lines[2].second;
  EXPECT_EQ(lines[3].first, LogLevel::error);
  EXPECT_NE(lines[3].second.find("write failed"), std::string::npos) << lines[3].second;
  fs::remove_all(folder);
}

}  // namespace
}  // namespace velquist::logging
