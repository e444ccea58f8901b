// Kills a process that follows purchases at random moments, and checks that the stored set
// survives every kill: the defaults file always parses, and every first purchase that
// reached a listener before the kill is in it.

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "velquist/foundation/file_io.h"
#include "velquist/foundation/json.h"
#include "velquist/foundation/user_defaults.h"
#include "velquist/storekit/transactions/transaction_queue.h"

extern char** environ;

namespace velquist::storekit {
namespace {

namespace fs = std::filesystem;
constexpr const char* bundleID = "com.example.crash-test";

// A running child with its standard output in a pipe.
class Child {
 public:
  Child(const fs::path& home, const std::string& tag) {
    int fds[2];
    if (::pipe(fds) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    posix_spawn_file_actions_addclose(&actions, fds[1]);
    std::vector<std::string> environment = {"VELQUIST_HOME=" + home.string(), std::string("VELQUIST_BUNDLE_ID=") + bundleID};
    for (char** entry = environ; *entry != nullptr; ++entry) {
      const std::string_view text(*entry);
      if (!text.starts_with("VELQUIST_HOME=") && !text.starts_with("VELQUIST_BUNDLE_ID=")) environment.emplace_back(text);
    }
    std::vector<char*> envp;
    for (auto& entry : environment) envp.push_back(entry.data());
    envp.push_back(nullptr);
    std::string path = CRASH_CHILD_PATH, argument = tag;
    char* argv[] = {path.data(), argument.data(), nullptr};
    const int failed = ::posix_spawn(&pid_, path.c_str(), &actions, nullptr, argv, envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    out_ = fds[0];
    if (failed != 0) throw std::runtime_error("cannot start " + path);
  }
  ~Child() {
    if (pid_ > 0) kill();
    ::close(out_);
  }

  // Reads what the child printed until `lines` complete lines have arrived, the deadline
  // passes or the output ends; returns whether the output ended.
  bool readUntil(std::size_t lines, std::chrono::steady_clock::time_point deadline) {
    while (completeLines().size() < lines) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return false;
      pollfd poller{out_, POLLIN, 0};
      if (::poll(&poller, 1, static_cast<int>(left.count())) <= 0) continue;
      char chunk[4096];
      const ssize_t count = ::read(out_, chunk, sizeof chunk);
      if (count <= 0) return true;
      printed_.append(chunk, static_cast<std::size_t>(count));
    }
    return false;
  }

  // Kills the child, collects what it printed before, and reaps it.
  void kill() {
    ::kill(pid_, SIGKILL);
    char chunk[4096];
    ssize_t count;
    while ((count = ::read(out_, chunk, sizeof chunk)) > 0) printed_.append(chunk, static_cast<std::size_t>(count));
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
  }

  // The lines printed in full (a line cut by the kill does not count).
  std::vector<std::string> completeLines() const {
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end; (end = printed_.find('\n', start)) != std::string::npos; start = end + 1) {
      lines.push_back(printed_.substr(start, end - start));
    }
    return lines;
  }

 private:
  pid_t pid_ = -1;
  int out_ = -1;
  std::string printed_;
};

TEST(TransactionCrash, KilledAtRandomTheStoredSetKeepsEveryDeliveredFirstPurchase) {
  const fs::path home = fs::temp_directory_path() / ("velquist_crash_" + std::to_string(::getpid()));
  fs::remove_all(home);
  const fs::path file = foundation::standardUserDefaultsPath(home, bundleID);
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::set<std::string> delivered;
  constexpr int runs = 120;
  int killedMidway = 0;
  for (int run = 0; run < runs; ++run) {
    Child child(home, "r" + std::to_string(run));
    // Half the runs die after a random number of deliveries, half after a random time.
    const auto now = std::chrono::steady_clock::now();
    const bool ended = run % 2 == 0
                           ? child.readUntil(std::uniform_int_distribution<std::size_t>(1, 40)(random),
                                             now + std::chrono::seconds(20))
                           : child.readUntil(SIZE_MAX, now + std::chrono::milliseconds(
                                                                 std::uniform_int_distribution<int>(0, 120)(random)));
    child.kill();
    killedMidway += ended ? 0 : 1;
    for (auto& line : child.completeLines()) delivered.insert(std::move(line));

    // The file is there (once anything was delivered) and always whole.
    const auto contents = foundation::readFileIfPresent(file);
    if (!contents) {
      ASSERT_TRUE(delivered.empty()) << "run " << run << ": no file";
      continue;
    }
    foundation::JsonValue document;
    ASSERT_NO_THROW(document = foundation::parseJson(*contents)) << "run " << run << ": torn file\n" << *contents;
    const auto* value = document.find(originalTransactionIDsKey);
    ASSERT_NE(value, nullptr) << "run " << run;
    ASSERT_EQ(value->kind(), foundation::JsonValue::Kind::string) << "run " << run;
    const auto stored = splitOriginalTransactionIDs(value->stringValue());
    for (const auto& id : delivered) ASSERT_TRUE(stored.contains(id)) << "run " << run << ": lost " << id;
  }
  EXPECT_FALSE(fs::exists(fs::path(file).concat(".malformed")));
  // The kills did land while work was going on, and deliveries happened.
  EXPECT_GT(killedMidway, runs / 2);
  EXPECT_GT(delivered.size(), static_cast<std::size_t>(runs));
  fs::remove_all(home);
}

}  // namespace
}  // namespace velquist::storekit
