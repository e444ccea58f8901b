#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "velquist/foundation/file_io.h"
#include "velquist/foundation/json.h"
#include "velquist/foundation/user_defaults.h"

namespace velquist::foundation {
namespace {

namespace fs = std::filesystem;
using Bytes = UserDefaults::Bytes;

// A fresh folder, removed afterwards.
struct TemporaryFolder {
  TemporaryFolder() { fs::create_directories(path); }
  ~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  const fs::path path = [] {
    static std::atomic<int> counter = 0;
    return fs::temp_directory_path() / ("velquist_defaults_" + std::to_string(::getpid()) + "_" + std::to_string(++counter));
  }();
};

// What a key reads as: text, bytes, or neither.
using Reading = std::pair<std::optional<std::string>, std::optional<Bytes>>;
Reading read(const UserDefaults& defaults, std::string_view key) {
  return {defaults.stringForKey(key), defaults.dataForKey(key)};
}
using Readings = std::vector<std::pair<std::string, Reading>>;

TEST(UserDefaults, BothStoresKeepWhatWasSetAndTheFileOneAcrossReopening) {
  Bytes every(256);
  std::iota(every.begin(), every.end(), std::uint8_t{0});
  const std::tuple<std::string, std::function<void(UserDefaults&)>, Readings> scripts[] = {
      {"text", [](auto& d) { d.setString("a,b", "ids"); }, {{"ids", {"a,b", {}}}, {"other", {}}}},
      {"bytes of every value", [&](auto& d) { d.setData(every, "k"); }, {{"k", {{}, every}}}},
      {"empty values", [](auto& d) { d.setString("", "t"), d.setData({}, "b"); }, {{"t", {"", {}}}, {"b", {{}, Bytes{}}}}},
      {"bytes replace text", [](auto& d) { d.setString("x", "k"), d.setData({1, 2}, "k"); }, {{"k", {{}, Bytes{1, 2}}}}},
      {"text replaces bytes", [](auto& d) { d.setData({1}, "k"), d.setString("ü ✓", "k"); }, {{"k", {"ü ✓", {}}}}},
      {"removed", [](auto& d) { d.setString("x", "k"), d.setString("y", "j"), d.removeObject("k"); },
       {{"k", {}}, {"j", {"y", {}}}}},
      {"odd keys", [](auto& d) { d.setString("1", ""), d.setData({3, 4, 5}, "a\"b\\c\n"); },
       {{"", {"1", {}}}, {"a\"b\\c\n", {{}, Bytes{3, 4, 5}}}}},
      {"base64 lengths", [](auto& d) { for (std::uint8_t n = 1; n < 6; ++n) d.setData(Bytes(n, n), std::to_string(n)); },
       {{"1", {{}, Bytes(1, 1)}}, {"2", {{}, Bytes(2, 2)}}, {"3", {{}, Bytes(3, 3)}}, {"4", {{}, Bytes(4, 4)}},
        {"5", {{}, Bytes(5, 5)}}}},
  };
  for (const auto& [name, steps, expected] : scripts) {
    TemporaryFolder folder;
    const fs::path file = folder.path / "app.defaults.json";
    InMemoryUserDefaults memory;
    FileUserDefaults stored(file);
    steps(memory), steps(stored);
    const FileUserDefaults reopened(file);
    for (const auto& [key, reading] : expected) {
      EXPECT_EQ(read(memory, key), reading) << name << ", in memory, key " << key;
      EXPECT_EQ(read(stored, key), reading) << name << ", in a file, key " << key;
      EXPECT_EQ(read(reopened, key), reading) << name << ", reopened, key " << key;
    }
    EXPECT_EQ(stored.lastWriteError(), std::nullopt) << name;
  }
}

TEST(FileUserDefaults, BadContentsReadAsAbsentAndAreNeverLost) {
  const std::tuple<std::string, Readings, bool> examples[] = {  // contents, readings, moved aside
      {"{\"a\": ", {{"a", {}}}, true},
      {"[\"a\"]", {{"a", {}}}, true},
      {"", {{"a", {}}}, true},
      {"{\"a\": \"\xff\"}", {{"a", {}}}, true},
      {R"({"n": 1, "t": "x", "bad64": {"data": "A!=="}, "b": {"data": "AAE="}, "two": {"data": "AA==", "more": 1}})",
       {{"n", {}}, {"t", {"x", {}}}, {"bad64", {}}, {"b", {{}, Bytes{0, 1}}}, {"two", {}}}, false},
      {R"({"k": "first", "k": "last"})", {{"k", {"last", {}}}}, false},
  };
  for (const auto& [contents, expected, movedAside] : examples) {
    TemporaryFolder folder;
    const fs::path file = folder.path / "app.defaults.json";
    writeFileAtomically(file, contents);
    FileUserDefaults defaults(file);
    for (const auto& [key, reading] : expected) EXPECT_EQ(read(defaults, key), reading) << contents << ", key " << key;
    EXPECT_EQ(readFileIfPresent(fs::path(file).concat(".malformed")), movedAside ? std::optional(contents) : std::nullopt)
        << contents;
    // A write keeps the entries it cannot read, and leaves a file that parses.
    defaults.setString("new", "added");
    const JsonValue written = parseJson(readFileIfPresent(file).value());
    ASSERT_EQ(written.kind(), JsonValue::Kind::object) << contents;
    const JsonValue original = movedAside ? JsonValue(JsonValue::Object{}) : parseJson(contents);
    for (const auto& member : original.objectValue()) {
      ASSERT_NE(written.find(member.first), nullptr) << contents << ", key " << member.first;
      EXPECT_EQ(*written.find(member.first), *original.find(member.first)) << contents << ", key " << member.first;
    }
    EXPECT_EQ(FileUserDefaults(file).stringForKey("added"), "new") << contents;
  }
}

TEST(FileUserDefaults, FailedWritesKeepTheChangeInMemoryAndSayWhy) {
  TemporaryFolder folder;
  writeFileAtomically(folder.path / "plain", "x");
  fs::create_directories(folder.path / "taken" / "inner");
  fs::create_symlink("loop", folder.path / "loop");
  // The file's folder is a file; where the file should be is a folder, or a link to itself that
  // cannot be read (neither may be replaced).
  for (const fs::path& path : {folder.path / "plain" / "app.defaults.json", folder.path / "taken", folder.path / "loop"}) {
    FileUserDefaults defaults(path);
    EXPECT_EQ(defaults.lastWriteError(), std::nullopt);
    defaults.setString("kept", "k");
    EXPECT_EQ(defaults.stringForKey("k"), "kept") << path;
    EXPECT_NE(defaults.lastWriteError(), std::nullopt) << path;
  }
  EXPECT_TRUE(fs::is_directory(folder.path / "taken" / "inner"));
  EXPECT_TRUE(fs::is_symlink(folder.path / "loop"));
}

TEST(StandardUserDefaults, OneFilePerApplicationInsideTheDataFolder) {
  const std::pair<std::optional<std::string>, std::string> examples[] = {
      {"com.example.app", "com.example.app"}, {std::nullopt, "velquist.application"}, {"", "velquist.application"},
      {"../x", "_._x"}, {"a/b c", "a_b_c"}, {"ü", "__"},
  };
  for (const auto& [identifier, name] : examples) {
    EXPECT_EQ(standardUserDefaultsPath("/data", identifier), fs::path("/data") / (name + ".defaults.json"))
        << identifier.value_or("(none)");
  }
}

}  // namespace
}  // namespace velquist::foundation
