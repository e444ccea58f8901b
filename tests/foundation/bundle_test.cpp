#include "velquist/foundation/bundle.h"
#include "velquist/foundation/rounding_rule.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <vector>

namespace velquist::foundation {
namespace {

using Text = std::optional<std::string>;
using Value = std::optional<JsonValue>;

JsonValue dictionary(JsonValue identifier) {
  return JsonValue(JsonValue::Object{{"CFBundleName", JsonValue("Game")}, {"CFBundleIdentifier", std::move(identifier)}});
}

class MainBundle : public testing::Test {  // its tests change process-wide state; TearDown puts it back
 protected:
  static void setEnvironment(const Text& value) {
    value ? setenv("VELQUIST_BUNDLE_ID", value->c_str(), 1) : unsetenv("VELQUIST_BUNDLE_ID");
  }
  void TearDown() override {
    setEnvironment(saved_);
    Bundle::setMainInfoDictionary(std::nullopt);
  }
  const Text saved_ = std::getenv("VELQUIST_BUNDLE_ID") ? Text(std::getenv("VELQUIST_BUNDLE_ID")) : std::nullopt;
};

TEST_F(MainBundle, SetDictionaryElseEnvironmentElseNone) {
  const JsonValue numeric = JsonValue::number(42);
  const JsonValue fromEnvironment(JsonValue::Object{{"CFBundleIdentifier", JsonValue("com.example.game")}});
  // environment, dictionary set -> infoDictionary, bundleIdentifier
  const std::vector<std::tuple<Text, Value, Value, Text>> cases = {
      {{}, {}, {}, {}},
      {"", {}, {}, {}},  // empty names nothing
      {"com.example.game", {}, fromEnvironment, "com.example.game"},
      {"com.example.game", dictionary(JsonValue("solvaneapp")), dictionary(JsonValue("solvaneapp")), "solvaneapp"},
      {{}, dictionary(numeric), dictionary(numeric), {}},  // not text: no identifier, but the value is there
      {"com.example.game", JsonValue(JsonValue::Object{}), JsonValue(JsonValue::Object{}), {}},
      {"com.example.game", JsonValue("not an object"), {}, {}},  // set, so not the environment's either
      {"com.example.other", {}, JsonValue(JsonValue::Object{{"CFBundleIdentifier", JsonValue("com.example.other")}}),
       "com.example.other"},  // unset again: the environment as it is now
  };
  for (const auto& [environment, set, whole, identifier] : cases) {
    setEnvironment(environment);
    Bundle::setMainInfoDictionary(set);
    const Bundle bundle = Bundle::main();
    EXPECT_EQ(bundle.infoDictionary(), whole);
    EXPECT_EQ(bundle.bundleIdentifier(), identifier);
    for (const char* key : {"CFBundleIdentifier", "CFBundleName", "missing"}) {
      const JsonValue* value = whole ? whole->find(key) : nullptr;
      EXPECT_EQ(bundle.objectForInfoDictionaryKey(key), value ? Value(*value) : std::nullopt) << key;
    }
  }
}

TEST_F(MainBundle, ReadersSeeWholeDictionariesWhileTheyAreReplaced) {
  setEnvironment(std::nullopt);
  std::thread writer([] {
    for (int i = 0; i < 2000; ++i) Bundle::setMainInfoDictionary(dictionary(JsonValue(i % 2 ? "one" : "two")));
  });
  const auto isWhole = [](const Text& seen) { return !seen || seen == "one" || seen == "two"; };
  for (int i = 0; i < 2000; ++i) EXPECT_PRED1(isWhole, Bundle::main().bundleIdentifier());
  writer.join();
  EXPECT_EQ(Bundle::main().bundleIdentifier(), "one");
}

// The case names are the rules' serial form, so each must read back exactly and nothing else may.
TEST(FloatingPointRoundingRule, IsNamedByItsExactCaseName) {
  const std::vector<std::string_view> names = {"toNearestOrAwayFromZero", "toNearestOrEven", "up", "down", "towardZero",
                                               "awayFromZero"};
  for (std::size_t raw = 0; raw < names.size(); ++raw) {
    EXPECT_EQ(caseName(static_cast<FloatingPointRoundingRule>(raw)), names[raw]);
    EXPECT_EQ(roundingRuleNamed(names[raw]), static_cast<FloatingPointRoundingRule>(raw));
  }
  for (const char* other : {"", "Up", "towardZero ", "toward_zero", "unknown"}) {
    EXPECT_EQ(roundingRuleNamed(other), std::nullopt) << other;
  }
}

}  // namespace
}  // namespace velquist::foundation
