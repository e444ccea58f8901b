#include "velquist/support/dependency_values.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>

namespace velquist::support {
namespace {

// Counts how often each value is made.
struct Counts {
  static inline int live = 0, test = 0, preview = 0;
};

struct GreetingKey {
  using Value = std::string;
  static const std::string& liveValue() {
    static const std::string value = (++Counts::live, "hello");
    return value;
  }
  static const std::string& testValue() {
    static const std::string value = (++Counts::test, "unimplemented");
    return value;
  }
  static const std::string& previewValue() {
    static const std::string value = (++Counts::preview, "preview");
    return value;
  }
};

struct OtherKey {
  using Value = int;
  static const int& liveValue() {
    static const int value = 1;
    return value;
  }
  static const int& testValue() { return liveValue(); }
  static const int& previewValue() { return liveValue(); }
};

std::string greeting() { return DependencyValues::current().get<GreetingKey>(); }

// Switches the process-wide context for one test.
class ContextScope {
 public:
  explicit ContextScope(DependencyContext context) : previous_(dependencyContext()) { setDependencyContext(context); }
  ~ContextScope() { setDependencyContext(previous_); }

 private:
  DependencyContext previous_;
};

TEST(DependencyValues, UnsetEntriesFollowTheActiveContextAndAreMadeOnce) {
  const struct {
    DependencyContext context;
    std::string expected;
  } examples[] = {
      {DependencyContext::live, "hello"},
      {DependencyContext::test, "unimplemented"},
      {DependencyContext::preview, "preview"},
  };
  EXPECT_EQ(dependencyContext(), DependencyContext::test);  // set up by the test environment
  for (int round = 0; round < 2; ++round) {
    for (const auto& example : examples) {
      ContextScope scope(example.context);
      EXPECT_EQ(greeting(), example.expected);
    }
  }
  EXPECT_EQ(Counts::live + Counts::test + Counts::preview, 3);
}

TEST(DependencyValues, CopiesAreIndependentAndKeysDoNotMix) {
  DependencyValues original;
  original.set<GreetingKey>("first");
  DependencyValues copy = original;
  copy.set<GreetingKey>("second");
  copy.set<OtherKey>(42);
  EXPECT_EQ(original.get<GreetingKey>(), "first");
  EXPECT_EQ(original.get<OtherKey>(), 1);
  EXPECT_EQ(copy.get<GreetingKey>(), "second");
  EXPECT_EQ(copy.get<OtherKey>(), 42);
}

TEST(DependencyValues, OverridesHoldInsideTheirScopeOnly) {
  const auto set = [](std::string greetingText) {
    return [greetingText](DependencyValues& values) { values.set<GreetingKey>(greetingText); };
  };
  std::string otherThread;
  const auto result = withDependencies(set("outer"), [&] {
    EXPECT_EQ(greeting(), "outer");
    withDependencies(set("inner"), [] { EXPECT_EQ(greeting(), "inner"); });
    EXPECT_THROW(withDependencies(set("thrown"), [] { throw std::runtime_error("inside"); }), std::runtime_error);
    std::thread([&] { otherThread = greeting(); }).join();  // a plain thread does not inherit
    return greeting();
  });
  EXPECT_EQ(result, "outer");
  EXPECT_EQ(otherThread, "unimplemented");
  EXPECT_EQ(greeting(), "unimplemented");
}

}  // namespace
}  // namespace velquist::support
