#include "velquist/support/dependency_values.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>

namespace velquist::support {
namespace {

// Keys of the same value type whose values name the key and the context: "A live", "B test", ...
template <char Name>
struct NameKey {
  using Value = std::string;
  static const std::string& liveValue() { static const auto value = Name + std::string(" live"); return value; }
  static const std::string& testValue() { static const auto value = Name + std::string(" test"); return value; }
  static const std::string& previewValue() { static const auto value = Name + std::string(" preview"); return value; }
};
using KeyA = NameKey<'A'>;
using KeyB = NameKey<'B'>;

template <class Key>
std::string current() { return DependencyValues::current().get<Key>(); }

TEST(DependencyValues, UnsetEntriesFollowTheActiveContext) {
  using enum DependencyContext;
  EXPECT_EQ(dependencyContext(), test);  // set up by the test environment
  for (const auto& [context, name] :
       {std::pair{live, "A live"}, std::pair{preview, "A preview"}, std::pair{test, "A test"}}) {
    setDependencyContext(context);
    EXPECT_EQ(current<KeyA>(), name);
  }
}

TEST(DependencyValues, OverridesHoldInsideTheirScopeOnlyAndKeysDoNotMix) {
  const auto set = [](std::string text) { return [text](DependencyValues& values) { values.set<KeyA>(text); }; };
  std::string otherThread;
  const auto result = withDependencies(set("outer"), [&] {
    withDependencies(set("inner"), [] { EXPECT_EQ(current<KeyA>(), "inner"); });
    EXPECT_THROW(withDependencies(set("thrown"), [] { throw std::runtime_error("inside"); }), std::runtime_error);
    std::thread([&] { otherThread = current<KeyA>(); }).join();  // a plain thread does not inherit
    return current<KeyA>() + ", " + current<KeyB>();
  });
  EXPECT_EQ(result + ", " + otherThread + ", " + current<KeyA>(), "outer, B test, A test, A test");
}

}  // namespace
}  // namespace velquist::support
