// Feeds arbitrary bytes to the user defaults reader as the content of a defaults file: opening
// must never crash, and whatever it kept must, after one more write, read back the same from
// a file that opens clean (no damage, no torn record).

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "velquist/foundation/user_defaults.h"

namespace {

namespace fs = std::filesystem;
using velquist::foundation::FileUserDefaults;

const fs::path& folder() {
  static const fs::path path = [] {
    auto made = fs::temp_directory_path() / ("velquist_fuzz_defaults_" + std::to_string(::getpid()));
    fs::create_directories(made);
    return made;
  }();
  return path;
}

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fs::path file = folder() / "app.defaults.json";
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(folder(), ignored)) fs::remove_all(entry.path(), ignored);
  std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));

  const FileUserDefaults::Options options{.lockWait = std::chrono::milliseconds(0)};
  std::optional<std::string> kept;
  {
    FileUserDefaults defaults(file, options);
    kept = defaults.stringForKey("ids");
    static_cast<void>(defaults.dataForKey("receipt"));
    defaults.setString("written", "fuzz");
    require(defaults.lastWriteError() == std::nullopt);
  }
  const FileUserDefaults reopened(file, options);
  require(reopened.reports().empty());
  require(reopened.stringForKey("fuzz") == "written");
  require(reopened.stringForKey("ids") == kept);
  return 0;
}
