// vsk simulate over a state folder whose files are damaged, cannot be written, or are used by
// a second run at the same time.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "velquist/foundation/file_io.h"

namespace {

namespace fs = std::filesystem;

struct Outcome {
  int exitCode = -1;
  std::string err;
};

// Runs `vsk simulate` of the demo catalogue with the scenario text over the state folder.
Outcome simulate(const fs::path& state, const std::string& scenario, const std::string& tag) {
  const fs::path scratch = fs::temp_directory_path() / ("vsk_state_" + std::to_string(::getpid()) + "_" + tag);
  fs::create_directories(scratch);
  std::ofstream(scratch / "scenario.txt") << scenario;
  const std::string command = std::string("'") + VSK_PATH + "' simulate '" + VELQUIST_SOURCE_DIR +
                              "/examples/velquist_demo.storekit' '" + (scratch / "scenario.txt").string() + "' --state '" +
                              state.string() + "' >/dev/null 2>'" + (scratch / "err").string() + "'";
  const int status = std::system(command.c_str());
  Outcome run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, velquist::foundation::readFileIfPresent(scratch / "err").value_or("")};
  fs::remove_all(scratch);
  return run;
}

fs::path freshState(const std::string& name) {
  const fs::path state = fs::temp_directory_path() / ("vsk_state_" + name + "_" + std::to_string(::getpid()));
  fs::remove_all(state);
  fs::create_directories(state);
  return state;
}

const std::string oneBuy = "buy com.velquist.demo.coins100\nfinish all\n";
const std::string defaultsName = "velquist.application.defaults.json";

TEST(VskStateFiles, DamageIsPrintedAndTheRunGoesOnAFailedWriteEndsItWithFailure) {
  const fs::path state = freshState("damage");
  velquist::foundation::writeFileAtomically(state / defaultsName, "garbage");
  Outcome run = simulate(state, oneBuy, "damaged");
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_NE(run.err.find(defaultsName + " is damaged"), std::string::npos) << run.err;
  EXPECT_EQ(velquist::foundation::readFileIfPresent(state / (defaultsName + ".damaged-1")), "garbage");

  fs::remove(state / defaultsName);
  fs::create_directory(state / defaultsName);
  run = simulate(state, oneBuy, "unwritable");
  EXPECT_EQ(run.exitCode, 1) << run.err;
  EXPECT_NE(run.err.find("the run's state was not saved: a write to " + (state / defaultsName).string()),
            std::string::npos)
      << run.err;
  fs::remove_all(state);
}

// Two runs started together on one folder: the second waits for the first, so the ledger
// and the remembered first purchases keep both runs' purchases.
TEST(VskStateFiles, TwoRunsOnOneFolderLoseNothing) {
  const fs::path state = freshState("two");
  std::string scenario;
  for (int i = 0; i < 10; ++i) scenario += oneBuy;
  Outcome first, second;
  std::thread other([&] { first = simulate(state, scenario, "first"); });
  second = simulate(state, scenario, "second");
  other.join();
  EXPECT_EQ(first.exitCode, 0) << first.err;
  EXPECT_EQ(second.exitCode, 0) << second.err;
  const std::string ledger = velquist::foundation::readFileIfPresent(state / "sandbox" / "ledger.json").value_or("");
  std::size_t purchases = 0;
  for (std::size_t at = 0; (at = ledger.find("\"identifier\"", at)) != std::string::npos; ++at) ++purchases;
  EXPECT_EQ(purchases, 20u) << ledger;
  fs::remove_all(state);
}

}  // namespace
