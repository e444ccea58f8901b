#pragma once

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace velquist::testing {

// The text of a failure that library code reported through the test environment
// (GoogleTest puts "Failed" before the message of ADD_FAILURE).
inline std::string reportedFailure(const std::string& message) { return "Failed\n" + message; }

// Runs `body` and returns the messages of the GoogleTest failures it caused on any thread,
// which are kept from failing the running test.
inline std::vector<std::string> failuresDuring(const std::function<void()>& body) {
  ::testing::TestPartResultArray results;
  {
    ::testing::ScopedFakeTestPartResultReporter reporter(
        ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, &results);
    body();
  }
  std::vector<std::string> messages;
  for (int i = 0; i < results.size(); ++i) messages.emplace_back(results.GetTestPartResult(i).message());
  return messages;
}

}  // namespace velquist::testing
