// Kills a process that follows purchases at random moments: the stored set must survive every
// kill, its journal at worst cut inside its last record and holding every first purchase
// delivered before the kill.

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <thread>

#include "velquist/foundation/file_io.h"
#include "velquist/foundation/user_defaults.h"
#include "velquist/storekit/transactions/transaction_queue.h"

extern char** environ;

namespace velquist::storekit {
namespace {

namespace fs = std::filesystem;
constexpr const char* bundleID = "com.example.crash-test";

// Starts the child through `env`, which sets its home and bundle and then becomes the child,
// with its standard output in a pipe; returns the process and the pipe's reading end.
std::pair<pid_t, int> startChild(const fs::path& home, std::string tag) {
  int fds[2];
  if (::pipe(fds) != 0) throw std::runtime_error("pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, fds[0]);
  posix_spawn_file_actions_addclose(&actions, fds[1]);
  std::string env = "env", homeVariable = "VELQUIST_HOME=" + home.string(),
              bundleVariable = std::string("VELQUIST_BUNDLE_ID=") + bundleID, path = CRASH_CHILD_PATH;
  char* argv[] = {env.data(), homeVariable.data(), bundleVariable.data(), path.data(), tag.data(), nullptr};
  pid_t pid = -1;
  const int failed = ::posix_spawnp(&pid, "env", &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(fds[1]);
  if (failed != 0) throw std::runtime_error("cannot start " + path);
  return {pid, fds[0]};
}

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
    const auto [pid, out] = startChild(home, "r" + std::to_string(run));
    std::string printed;
    const auto readSome = [&, out = out] {
      char chunk[4096];
      const ssize_t count = ::read(out, chunk, sizeof chunk);
      if (count > 0) printed.append(chunk, static_cast<std::size_t>(count));
      return count > 0;
    };
    // Half the runs die after a random number of deliveries, half after a random time.
    if (run % 2 == 0) {
      const auto lines = std::uniform_int_distribution<std::ptrdiff_t>(1, 40)(random);
      while (std::ranges::count(printed, '\n') < lines && readSome()) {
      }
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(std::uniform_int_distribution<int>(0, 120)(random)));
    }
    ::kill(pid, SIGKILL);
    while (readSome()) {
    }
    ::close(out);
    int status = 0;
    ::waitpid(pid, &status, 0);
    killedMidway += WIFSIGNALED(status) ? 1 : 0;
    // A line cut by the kill does not count.
    for (std::size_t start = 0, end; (end = printed.find('\n', start)) != std::string::npos; start = end + 1) {
      delivered.insert(printed.substr(start, end - start));
    }
    // A kill inside a write may cut the journal's last record (that write never returned);
    // anything worse would be reported as damage and moved aside.
    const auto contents = foundation::readFileIfPresent(file).value_or("(no file)");
    const foundation::FileUserDefaults reopened(file);
    for (const auto& report : reopened.reports()) {
      ASSERT_EQ(report.kind, foundation::UserDefaultsReport::Kind::tornWrite) << "run " << run << ": " << report.description();
    }
    const auto stored = splitOriginalTransactionIDs(reopened.stringForKey(originalTransactionIDsKey).value_or(""));
    for (const auto& id : delivered) ASSERT_TRUE(stored.contains(id)) << "run " << run << ": lost " << id << "\n" << contents;
  }
  EXPECT_FALSE(fs::exists(fs::path(file).concat(".damaged-1")));
  // The kills did land while work was going on, and deliveries happened.
  EXPECT_GT(killedMidway, runs / 2);
  EXPECT_GT(delivered.size(), static_cast<std::size_t>(runs));
  fs::remove_all(home);
}

}  // namespace
}  // namespace velquist::storekit
