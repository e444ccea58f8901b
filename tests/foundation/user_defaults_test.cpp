#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "velquist/foundation/file_io.h"
#include "velquist/foundation/json.h"
#include "velquist/foundation/user_defaults.h"

namespace velquist::foundation {
namespace {

namespace fs = std::filesystem;
using Bytes = UserDefaults::Bytes;

// A fresh folder per test, removed afterwards.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    static std::atomic<int> counter = 0;
    path_ = fs::temp_directory_path() /
            ("velquist_defaults_" + std::to_string(::getpid()) + "_" + std::to_string(++counter));
    fs::create_directories(path_);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

// What a key reads as: text, bytes, or neither.
struct Reading {
  std::optional<std::string> text;
  std::optional<Bytes> bytes;
  friend bool operator==(const Reading&, const Reading&) = default;
};

std::ostream& operator<<(std::ostream& out, const Reading& reading) {
  out << "text " << (reading.text ? "\"" + *reading.text + "\"" : "none") << ", bytes ";
  if (!reading.bytes) return out << "none";
  for (auto byte : *reading.bytes) out << static_cast<int>(byte) << ' ';
  return out;
}

Reading read(const UserDefaults& defaults, std::string_view key) {
  return {defaults.stringForKey(key), defaults.dataForKey(key)};
}

Bytes allByteValues() {
  Bytes bytes;
  for (int value = 0; value < 256; ++value) bytes.push_back(static_cast<std::uint8_t>(value));
  return bytes;
}

// Steps applied in order, then each key is read.
struct Script {
  std::string name;
  std::function<void(UserDefaults&)> steps;
  std::vector<std::pair<std::string, Reading>> expected;
};

std::vector<Script> scripts() {
  return {
      {"text", [](UserDefaults& d) { d.setString("a,b", "ids"); }, {{"ids", {"a,b", {}}}, {"other", {}}}},
      {"bytes of every value", [](UserDefaults& d) { d.setData(allByteValues(), "k"); }, {{"k", {{}, allByteValues()}}}},
      {"empty values", [](UserDefaults& d) { d.setString("", "t"), d.setData({}, "b"); },
       {{"t", {"", {}}}, {"b", {{}, Bytes{}}}}},
      {"bytes replace text", [](UserDefaults& d) { d.setString("x", "k"), d.setData({1, 2}, "k"); },
       {{"k", {{}, Bytes{1, 2}}}}},
      {"text replaces bytes", [](UserDefaults& d) { d.setData({1}, "k"), d.setString("ü ✓", "k"); },
       {{"k", {"ü ✓", {}}}}},
      {"removed", [](UserDefaults& d) { d.setString("x", "k"), d.setString("y", "j"), d.removeObject("k"); },
       {{"k", {}}, {"j", {"y", {}}}}},
      {"removing nothing", [](UserDefaults& d) { d.removeObject("k"); }, {{"k", {}}}},
      {"odd keys", [](UserDefaults& d) { d.setString("1", ""), d.setData({3, 4, 5}, "a\"b\\c\n"); },
       {{"", {"1", {}}}, {"a\"b\\c\n", {{}, Bytes{3, 4, 5}}}}},
      {"base64 lengths", [](UserDefaults& d) {
         for (std::uint8_t n = 0; n < 6; ++n) d.setData(Bytes(n, static_cast<std::uint8_t>(0xf0 + n)), std::to_string(n));
       },
       {{"0", {{}, Bytes{}}}, {"1", {{}, Bytes(1, 0xf1)}}, {"2", {{}, Bytes(2, 0xf2)}}, {"3", {{}, Bytes(3, 0xf3)}},
        {"4", {{}, Bytes(4, 0xf4)}}, {"5", {{}, Bytes(5, 0xf5)}}}},
  };
}

TEST(UserDefaults, BothStoresKeepWhatWasSetAndTheFileOneAcrossReopening) {
  for (const auto& script : scripts()) {
    TemporaryFolder folder;
    const fs::path file = folder.path() / "app.defaults.json";
    InMemoryUserDefaults memory;
    FileUserDefaults stored(file);
    script.steps(memory);
    script.steps(stored);
    const FileUserDefaults reopened(file);
    for (const auto& [key, reading] : script.expected) {
      EXPECT_EQ(read(memory, key), reading) << script.name << ", in memory, key " << key;
      EXPECT_EQ(read(stored, key), reading) << script.name << ", in a file, key " << key;
      EXPECT_EQ(read(reopened, key), reading) << script.name << ", reopened, key " << key;
    }
    EXPECT_EQ(stored.lastWriteError(), std::nullopt) << script.name;
  }
}

TEST(FileUserDefaults, BadContentsReadAsAbsentAndAreNeverLost) {
  const struct {
    std::string name;
    std::string contents;
    std::vector<std::pair<std::string, Reading>> expected;
    bool movedAside;
  } examples[] = {
      {"not JSON", "{\"a\": ", {{"a", {}}}, true},
      {"an array", "[\"a\"]", {{"a", {}}}, true},
      {"empty file", "", {{"a", {}}}, true},
      {"bytes that are not UTF-8", "{\"a\": \"\xff\"}", {{"a", {}}}, true},
      {"entries of other shapes",
       R"({"n": 1, "t": "x", "bad64": {"data": "A!=="}, "b": {"data": "AAE="}, "two": {"data": "AA==", "more": 1}})",
       {{"n", {}}, {"t", {"x", {}}}, {"bad64", {}}, {"b", {{}, Bytes{0, 1}}}, {"two", {}}}, false},
      {"repeated key: the last counts", R"({"k": "first", "k": "last"})", {{"k", {"last", {}}}}, false},
  };
  for (const auto& example : examples) {
    TemporaryFolder folder;
    const fs::path file = folder.path() / "app.defaults.json";
    writeFileAtomically(file, example.contents);
    FileUserDefaults defaults(file);
    for (const auto& [key, reading] : example.expected) {
      EXPECT_EQ(read(defaults, key), reading) << example.name << ", key " << key;
    }
    fs::path aside = file;
    aside += ".malformed";
    EXPECT_EQ(readFileIfPresent(aside), example.movedAside ? std::optional(example.contents) : std::nullopt)
        << example.name;
    // A write keeps the entries it cannot read, and leaves a file that parses.
    defaults.setString("new", "added");
    const JsonValue written = parseJson(readFileIfPresent(file).value());
    ASSERT_EQ(written.kind(), JsonValue::Kind::object) << example.name;
    if (!example.movedAside) {
      const JsonValue original = parseJson(example.contents);
      for (const auto& [key, value] : original.objectValue()) {
        ASSERT_NE(written.find(key), nullptr) << example.name << ", key " << key;
        EXPECT_EQ(*written.find(key), *original.find(key)) << example.name << ", key " << key;
      }
    }
    EXPECT_EQ(FileUserDefaults(file).stringForKey("added"), "new") << example.name;
  }
}

TEST(FileUserDefaults, FailedWritesKeepTheChangeInMemoryAndSayWhy) {
  TemporaryFolder folder;
  const struct {
    std::string name;
    fs::path path;
    std::function<void()> prepare;
  } examples[] = {
      // The folder the file should go in is a file.
      {"no folder", folder.path() / "plain" / "app.defaults.json",
       [&] { writeFileAtomically(folder.path() / "plain", "x"); }},
      // What is there cannot be read as a file; it must not be replaced.
      {"a folder in the way", folder.path() / "taken", [&] { fs::create_directories(folder.path() / "taken" / "inner"); }},
  };
  for (const auto& example : examples) {
    example.prepare();
    FileUserDefaults defaults(example.path);
    EXPECT_EQ(defaults.lastWriteError(), std::nullopt);
    defaults.setString("kept", "k");
    EXPECT_EQ(defaults.stringForKey("k"), "kept") << example.name;
    EXPECT_NE(defaults.lastWriteError(), std::nullopt) << example.name;
  }
  EXPECT_TRUE(fs::is_directory(folder.path() / "taken" / "inner"));
}

TEST(StandardUserDefaults, OneFilePerApplicationInsideTheDataFolder) {
  const struct {
    std::optional<std::string> identifier;
    std::string fileName;
  } examples[] = {
      {"com.example.app", "com.example.app.defaults.json"},
      {std::nullopt, "velquist.application.defaults.json"},
      {"", "velquist.application.defaults.json"},
      {"../x", "_._x.defaults.json"},
      {"a/b c", "a_b_c.defaults.json"},
      {".hidden", "_hidden.defaults.json"},
      {"ü", "__.defaults.json"},  // two UTF-8 bytes
  };
  for (const auto& example : examples) {
    const fs::path path = standardUserDefaultsPath("/data", example.identifier);
    EXPECT_EQ(path, fs::path("/data") / example.fileName) << example.identifier.value_or("(none)");
  }
}

}  // namespace
}  // namespace velquist::foundation
