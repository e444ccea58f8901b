// `vsk simulate` over a subscription's whole life: plan changes, billing trouble, auto-renew,
// refunds, offer codes and interrupted purchases, as the real binary prints them.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct Outcome {
  int exitCode = -1;
  std::string out, err;
};

std::string slurp(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class SimulateScenarios : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    folder = fs::temp_directory_path() / ("vsk-scenarios-" + std::string(test->name()) + "-" + std::to_string(::getpid()));
    fs::remove_all(folder);
    fs::create_directories(folder);
  }
  void TearDown() override { fs::remove_all(folder); }

  // Runs `vsk simulate` over the demo catalogue with the steps given, from 1 January 2026.
  Outcome simulate(const std::string& steps, std::vector<std::string> extra = {}) {
    const fs::path scenario = folder / ("scenario" + std::to_string(++runs) + ".txt");
    std::ofstream(scenario) << steps;
    return simulateFile(scenario, std::move(extra));
  }
  Outcome simulateFile(const fs::path& scenario, std::vector<std::string> extra = {}) {
    std::string command = std::string(VSK_PATH) + " simulate '" + VELQUIST_SOURCE_DIR + "/examples/velquist_demo.storekit' '" +
                          scenario.string() + "' --clock 2026-01-01";
    for (const auto& argument : extra) command += " '" + argument + "'";
    command += " >'" + (folder / "out").string() + "' 2>'" + (folder / "err").string() + "'";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(folder / "out"), slurp(folder / "err")};
  }

  fs::path folder;
  int runs = 0;
};

TEST_F(SimulateScenarios, AWholeSubscriptionLifeThroughEitherMechanism) {
  // The expected files were read line by line against the rules: plan changes by level,
  // grace and retry lengths, refunds revoking, a redeemed code and a resolved interruption
  // classified as first purchases, upgrade and downgrade renewals as renewals of #1.
  const fs::path data = VELQUIST_TEST_DATA_DIR;
  for (const std::string mechanism : {"listener", "stream"}) {
    SCOPED_TRACE(mechanism);
    const Outcome run = simulateFile(data / "store_lifecycle.txt", {"--mechanism", mechanism});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, slurp(data / ("store_lifecycle." + mechanism + ".out")));
  }
}

TEST_F(SimulateScenarios, ALaterRunContinuesAPendingDowngradeABillingRetryAndACancelledRenewal) {
  const std::vector<std::string> state = {"--state", (folder / "state").string()};
  const Outcome first = simulate(
      "buy com.velquist.demo.pro.yearly\n"
      "buy com.velquist.demo.pro.monthly\n"     // a downgrade, waiting for the trial week to end
      "buy com.velquist.demo.cloud.quarterly\n"
      "cancel com.velquist.demo.cloud.quarterly\n"
      "grace-period on\n"
      "billing-retry on\n"
      "advance P8D\n"                          // the yearly's renewal fails to bill
      "finish all\n",
      state);
  ASSERT_EQ(first.exitCode, 0) << first.err;

  const Outcome second = simulate(
      "status com.velquist.demo.pro.yearly\n"
      "status com.velquist.demo.cloud.quarterly\n"
      "billing-retry off\n"
      "status com.velquist.demo.pro.yearly\n"
      "advance P3M\n"
      "status com.velquist.demo.cloud.quarterly\n",
      state);
  ASSERT_EQ(second.exitCode, 0) << second.err;
  const std::string expected[] = {
      // The grace period the first run started: 16 days from the failed renewal on 8 January.
      "> status com.velquist.demo.pro.yearly\n"
      "  status: com.velquist.demo.pro.yearly inGracePeriod expires 2026-01-24T00:00:00Z\n",
      // Fixed: the renewal is the downgrade the first run asked for, under the same original.
      "> billing-retry off\n  store: com.velquist.demo.pro.monthly purchased #4 of #1\n",
      "  status: com.velquist.demo.pro.monthly subscribed expires 2026-02-08T00:00:00Z\n",
      // The cancelled quarterly runs out and is not renewed.
      "  status: com.velquist.demo.cloud.quarterly subscribed expires 2026-04-01T00:00:00Z\n",
      "  status: com.velquist.demo.cloud.quarterly expired expires 2026-04-01T00:00:00Z\n",
  };
  for (const auto& part : expected) EXPECT_NE(second.out.find(part), std::string::npos) << part << "\nin:\n" << second.out;
  EXPECT_EQ(second.out.find("cloud.quarterly purchased"), std::string::npos) << second.out;
}

TEST_F(SimulateScenarios, StepsTheStoreCannotTakeOrCannotReadStopTheRun) {
  const struct {
    std::string steps;
    std::vector<std::string> extra;
    int exitCode;
    std::string message;
  } cases[] = {
      {"resume com.velquist.demo.pro.yearly\n", {}, 1, "scenario1.txt:1: no active subscription"},
      {"buy com.velquist.demo.pro.weekly\ncancel com.velquist.demo.cloud.monthly\n", {}, 1, "scenario2.txt:2: no active"},
      {"refund com.velquist.demo.coins100\n", {}, 1, "scenario3.txt:1: no purchase of"},
      {"redeem com.velquist.demo.pro.monthly nope\n", {}, 1, "has no code offer \"nope\""},
      {"resolve-interrupted\n", {}, 1, "no interrupted purchase waits"},
      {"status nope\n", {}, 1, "no product \"nope\""},
      {"billing-retry maybe\n", {}, 2, "scenario7.txt:1: cannot read the step"},
      {"redeem com.velquist.demo.pro.monthly\n", {}, 2, "cannot read the step"},
      {"status\n", {"--clock", "2026-02-30"}, 2, "cannot read the day '2026-02-30'"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.steps);
    const Outcome run = simulate(c.steps, c.extra);
    EXPECT_EQ(run.exitCode, c.exitCode);
    EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
  }
}

}  // namespace
