// The main of every test program: dependencies resolve to their test values, a test
// failure reported by library code becomes a non-fatal failure of the running test, and
// death tests re-execute the program instead of forking it, which stays safe once the
// shared thread pool and schedulers have started threads. Each test starts with the full
// patience for its waits (deadline.h).
#include <gtest/gtest.h>

#include <string_view>

#include "common/deadline.h"
#include "velquist/support/dependency_values.h"
#include "velquist/support/test_failure.h"

namespace {

class FreshPatience final : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override { velquist::testing::detail::gaveUp = false; }
};

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  velquist::support::setDependencyContext(velquist::support::DependencyContext::test);
  velquist::support::setTestFailureReporter([](std::string_view message) { ADD_FAILURE() << message; });
  testing::UnitTest::GetInstance()->listeners().Append(new FreshPatience);
  return RUN_ALL_TESTS();
}
