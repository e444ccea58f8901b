// Linked into every test program: dependencies resolve to their test values, and a test
// failure reported by library code becomes a non-fatal failure of the running test.
#include <gtest/gtest.h>

#include <string_view>

#include "velquist/support/dependency_values.h"
#include "velquist/support/test_failure.h"

namespace {

[[maybe_unused]] const bool installed = [] {
  velquist::support::setDependencyContext(velquist::support::DependencyContext::test);
  velquist::support::setTestFailureReporter([](std::string_view message) { ADD_FAILURE() << message; });
  return true;
}();

}  // namespace
