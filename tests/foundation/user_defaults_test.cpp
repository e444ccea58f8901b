#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
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
  const fs::path file = path / "app.defaults.json";
};

// What a key reads as: text, bytes, or neither.
using Reading = std::pair<std::optional<std::string>, std::optional<Bytes>>;
Reading read(const UserDefaults& defaults, std::string_view key) {
  return {defaults.stringForKey(key), defaults.dataForKey(key)};
}
using Readings = std::vector<std::pair<std::string, Reading>>;
void expectReadings(const UserDefaults& defaults, const Readings& expected, std::string_view where) {
  for (const auto& [key, reading] : expected) EXPECT_EQ(read(defaults, key), reading) << where << ", key " << key;
}

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
  };
  for (const auto& [name, steps, expected] : scripts) {
    SCOPED_TRACE(name);
    TemporaryFolder folder;
    InMemoryUserDefaults memory;
    FileUserDefaults stored(folder.file);
    steps(memory), steps(stored);
    expectReadings(memory, expected, "in memory");
    expectReadings(stored, expected, "in a file");
    expectReadings(FileUserDefaults(folder.file), expected, "reopened");
    EXPECT_EQ(stored.lastWriteError(), std::nullopt);
  }
}

// The reports of one file told to the process-wide observers while the object lives.
struct ObservedReports {
  explicit ObservedReports(fs::path file) : file(std::move(file)) {
    number = addUserDefaultsObserver([this](const UserDefaultsReport& report) {
      if (report.file == this->file) kinds.push_back(report.kind);
    });
    kinds.clear();  // a new observer is told the latest reports first
  }
  ~ObservedReports() { removeUserDefaultsObserver(number); }
  fs::path file;
  std::uint64_t number = 0;
  std::vector<UserDefaultsReport::Kind> kinds;  // only touched on the test's thread
};

using Kind = UserDefaultsReport::Kind;

std::vector<Kind> kindsOf(const FileUserDefaults& defaults) {
  std::vector<Kind> kinds;
  for (const auto& report : defaults.reports()) kinds.push_back(report.kind);
  return kinds;
}

// Opening files of the earlier JSON form, journals cut short and damaged files; every file
// then takes new writes. All share one path, so each damaged file must be kept aside under a
// "<file>.damaged-<n>" name no earlier copy has taken.
TEST(FileUserDefaults, MigratesEarlierJsonAndKeepsDamagedFilesAside) {
  struct Example {
    std::string contents;
    Readings kept;
    std::vector<Kind> kinds;
  };
  std::vector<Example> examples = {
      {"{\"a\": ", {{"a", {}}}, {Kind::damaged}},
      {"[\"a\"]", {{"a", {}}}, {Kind::damaged}},
      {std::string("\0\x01garbage", 9), {{"a", {}}}, {Kind::damaged}},
      {"velquist-defaults 1\nGARBAGE!", {{"a", {}}}, {Kind::damaged}},
      {"", {{"a", {}}}, {Kind::tornWrite}},
      {"velquist-def", {{"a", {}}}, {Kind::tornWrite}},
      {R"({"n": 42, "yes": true, "t": "x", "bad64": {"data": "A!=="}, "b": {"data": "AAE="}, "two": {"data": "AA==", "more": 1}})",
       {{"n", {"42", {}}}, {"yes", {"1", {}}}, {"t", {"x", {}}}, {"bad64", {}}, {"b", {{}, Bytes{0, 1}}}, {"two", {}}},
       {}},
      {R"({"k": "first", "k": "last"})", {{"k", {"last", {}}}}, {}},
  };
  // A journal of three writes: cut anywhere inside the last record, the first two stay; with a
  // byte changed in the length, key, value or checksum of the middle record, the others stay.
  TemporaryFolder folder;
  std::vector<std::size_t> ends;  // where each record ends
  {
    FileUserDefaults journal(folder.file);
    for (const auto& [key, value] : {std::pair{"a", "one"}, {"b", "two"}, {"c", "three"}}) {
      journal.setString(value, key);
      ends.push_back(fs::file_size(folder.file));
    }
  }
  const std::string whole = readFileIfPresent(folder.file).value();
  for (std::size_t cut = ends[1]; cut < ends[2]; ++cut) {
    examples.push_back({whole.substr(0, cut), {{"a", {"one", {}}}, {"b", {"two", {}}}, {"c", {}}},
                        cut == ends[1] ? std::vector<Kind>{} : std::vector{Kind::tornWrite}});
  }
  for (const std::size_t at : {ends[0], ends[0] + 6, ends[0] + 13, ends[1] - 1}) {
    std::string damaged = whole;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x20);
    examples.push_back({damaged, {{"a", {"one", {}}}, {"b", {}}, {"c", {"three", {}}}}, {Kind::damaged}});
  }
  const auto copy = [&](std::size_t n) { return fs::path(folder.file).concat(".damaged-" + std::to_string(n)); };
  std::vector<std::string> copied;
  for (const auto& [contents, kept, kinds] : examples) {
    SCOPED_TRACE(testing::PrintToString(contents));
    writeFileAtomically(folder.file, contents);
    ObservedReports observed(folder.file);
    {
      FileUserDefaults defaults(folder.file);
      expectReadings(defaults, kept, "opened");
      EXPECT_EQ(kindsOf(defaults), kinds);
      if (kinds == std::vector{Kind::damaged}) {
        copied.push_back(contents);
        EXPECT_EQ(defaults.reports()[0].copy, copy(copied.size()));
        EXPECT_EQ(readFileIfPresent(copy(copied.size())), contents);
        const auto present = [](const auto& entry) { return entry.second != Reading{}; };
        EXPECT_EQ(defaults.reports()[0].keptEntries, static_cast<std::size_t>(std::ranges::count_if(kept, present)));
      }
      EXPECT_FALSE(fs::exists(copy(copied.size() + 1)));
      defaults.setString("new", "added");  // follows the last whole record
    }
    EXPECT_EQ(observed.kinds, kinds);
    // Reopened, the file is a journal holding what was kept and the new value.
    const FileUserDefaults reopened(folder.file);
    EXPECT_TRUE(readFileIfPresent(folder.file)->starts_with("velquist-defaults 1\n"));
    EXPECT_EQ(reopened.stringForKey("added"), "new");
    expectReadings(reopened, kept, "reopened");
    EXPECT_TRUE(reopened.reports().empty());
  }
  for (std::size_t n = 1; n <= copied.size(); ++n) EXPECT_EQ(readFileIfPresent(copy(n)), copied[n - 1]) << n;
}

// An ordinary write appends: the records already in the file keep their bytes and the file
// its identity. Only compaction makes a new file, which then replaces the old one by rename.
TEST(FileUserDefaults, WritesAppendAndCompactionReplacesTheFileWhole) {
  TemporaryFolder folder;
  FileUserDefaults defaults(folder.file);
  defaults.setString("first", "a");
  defaults.setData({1, 2, 3}, "b");
  const auto inode = [&] {
    struct stat status {};
    EXPECT_EQ(::stat(folder.file.c_str(), &status), 0);
    return status.st_ino;
  };
  const std::string before = readFileIfPresent(folder.file).value();
  // Held open, the file keeps its inode number and stays readable after a rename replaces it.
  const int original = ::open(folder.file.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(original, 0);
  const auto originalInode = inode();
  for (int i = 0; i < 20; ++i) defaults.setString(std::to_string(i), "a");
  defaults.removeObject("b");
  const std::string after = readFileIfPresent(folder.file).value();
  EXPECT_EQ(after.substr(0, before.size()), before);
  EXPECT_GT(after.size(), before.size());
  EXPECT_EQ(inode(), originalInode);
  // Values large enough to pass the bound: the file is rewritten with the live entries only,
  // as a new file; the old one's bytes are never touched.
  const std::string large(1200000, 'x');
  for (int i = 0; i < 8; ++i) defaults.setString(large + std::to_string(i), "big");
  EXPECT_NE(inode(), originalInode);
  std::string kept(before.size(), '\0');
  EXPECT_EQ(::pread(original, kept.data(), kept.size(), 0), static_cast<ssize_t>(kept.size()));
  EXPECT_EQ(kept, before);
  ::close(original);
  EXPECT_LT(fs::file_size(folder.file), 4 * large.size());
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder.path)) names.push_back(entry.path().filename().string());
  std::ranges::sort(names);
  EXPECT_EQ(names, (std::vector<std::string>{"app.defaults.json", "app.defaults.json.lock"}));
  expectReadings(FileUserDefaults(folder.file), {{"big", {large + "7", {}}}, {"a", {"19", {}}}, {"b", {}}}, "reopened");
}

TEST(FileUserDefaults, FailedWritesKeepTheChangeInMemoryAndSayWhy) {
  TemporaryFolder folder;
  writeFileAtomically(folder.path / "plain", "x");
  fs::create_directories(folder.path / "taken" / "inner");
  fs::create_symlink("loop", folder.path / "loop");
  fs::create_symlink("nowhere", folder.path / "dangling");
  // The file's folder is a file; where the file should be is a folder, a link to itself or
  // a link to nothing (none may be replaced).
  for (const fs::path& path : {folder.path / "plain" / "app.defaults.json", folder.path / "taken", folder.path / "loop",
                               folder.path / "dangling"}) {
    ObservedReports observed(path);
    FileUserDefaults defaults(path);
    EXPECT_EQ(defaults.lastWriteError(), std::nullopt);
    defaults.setString("kept", "k");
    EXPECT_EQ(defaults.stringForKey("k"), "kept") << path;
    EXPECT_NE(defaults.lastWriteError(), std::nullopt) << path;
    ASSERT_FALSE(observed.kinds.empty()) << path;
    EXPECT_EQ(observed.kinds.back(), Kind::writeFailed) << path;
    EXPECT_NE(defaults.reports().back().description().find(path.string()), std::string::npos) << path;
  }
  EXPECT_TRUE(fs::is_directory(folder.path / "taken" / "inner"));
  EXPECT_TRUE(fs::is_symlink(folder.path / "loop"));
  EXPECT_TRUE(fs::is_symlink(folder.path / "dangling"));
}

TEST(FileUserDefaults, TheNextWriteThatSucceedsWritesEverything) {
  TemporaryFolder folder;
  FileUserDefaults defaults(folder.file);
  fs::create_directory(folder.file);  // in the way of the first write
  defaults.setString("one", "a");
  EXPECT_NE(defaults.lastWriteError(), std::nullopt);
  fs::remove(folder.file);
  defaults.setString("two", "b");
  EXPECT_EQ(defaults.lastWriteError(), std::nullopt);
  EXPECT_EQ(kindsOf(defaults), std::vector{Kind::writeFailed});
  expectReadings(FileUserDefaults(folder.file), {{"a", {"one", {}}}, {"b", {"two", {}}}}, "after the failure");
  // A file removed while the object has it open is written anew, with everything.
  fs::remove(folder.file);
  defaults.setString("three", "c");
  expectReadings(FileUserDefaults(folder.file), {{"a", {"one", {}}}, {"c", {"three", {}}}}, "after the removal");
}

// Two real processes on one file: the second waits for the first and then sees its writes;
// one that cannot wait long enough is told who holds the file.
TEST(FileUserDefaults, OneProcessWritesAFileAtATime) {
  TemporaryFolder folder;
  const fs::path& file = folder.file;
  const auto writer = [&](const std::string& name) {
    const pid_t pid = ::fork();
    if (pid != 0) return pid;
    int failures = 0;
    {
      FileUserDefaults defaults(file, {.lockWait = std::chrono::seconds(20)});
      for (int i = 0; i < 50; ++i) {
        defaults.setString(name, name + std::to_string(i));
        failures += defaults.lastWriteError() ? 1 : 0;
        ::usleep(1000);
      }
    }
    ::_exit(failures == 0 ? 0 : 1);
  };
  const pid_t first = writer("first"), second = writer("second");
  for (const pid_t pid : {first, second}) {
    int status = -1;
    ::waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  {
    const FileUserDefaults both(file);
    for (int i = 0; i < 50; ++i) {
      EXPECT_EQ(both.stringForKey("first" + std::to_string(i)), "first") << i;
      EXPECT_EQ(both.stringForKey("second" + std::to_string(i)), "second") << i;
    }
  }

  // The holder keeps the file until its pipe closes, which happens also if this test dies.
  int ready[2], release[2];
  ASSERT_EQ(::pipe(ready), 0);
  ASSERT_EQ(::pipe(release), 0);
  const pid_t holder = ::fork();
  if (holder == 0) {
    ::close(release[1]);
    const FileUserDefaults held(file);
    [[maybe_unused]] const auto told = ::write(ready[1], "x", 1);
    char ignored = 0;
    [[maybe_unused]] const auto released = ::read(release[0], &ignored, 1);
    ::_exit(0);
  }
  ::close(release[0]);
  char signal = 0;
  ASSERT_EQ(::read(ready[0], &signal, 1), 1);
  FileUserDefaults refused(file, {.lockWait = std::chrono::milliseconds(50)});
  ASSERT_EQ(kindsOf(refused), std::vector{Kind::inUse});
  EXPECT_NE(refused.reports()[0].reason.find("process " + std::to_string(holder)), std::string::npos)
      << refused.reports()[0].reason;
  refused.setString("x", "first0");
  EXPECT_NE(refused.lastWriteError(), std::nullopt);
  ::close(release[1]);
  ::waitpid(holder, nullptr, 0);
  ::close(ready[0]), ::close(ready[1]);
  EXPECT_EQ(FileUserDefaults(file).stringForKey("first0"), "first");
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
