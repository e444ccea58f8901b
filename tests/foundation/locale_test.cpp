#include "velquist/foundation/locale.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace velquist::foundation {
namespace {

using Code = std::optional<std::string>;

auto codes(const Locale& locale) {
  return std::tuple(locale.identifier(), locale.languageCode(), locale.regionCode(), locale.currencyCode());
}

TEST(LocaleCodes, AnswerForEachIdentifier) {
  const std::vector<std::tuple<std::string, Code, Code, Code>> cases = {
      {"en_US", "en", "US", "USD"}, {"zh_Hans_CN", "zh", "CN", "CNY"}, {"_DE", {}, "DE", "EUR"}, {"ar", "ar", {}, {}},
      {"en_PT@currency=EUR", "en", "PT", "EUR"}, {"ar@currency=EGP", "ar", {}, "EGP"}, {"es_419", "es", "419", {}},
      {"en_US@currency=jpy", "en", "US", "JPY"}, {"de_DE@currency=EURO", "de", "DE", "EUR"}, {"", {}, {}, {}},
      {"garbage_US", {}, {}, {}}, {"!!not a locale??", {}, {}, {}}, {"en_US@currency=", {}, {}, {}},
      {"\xFF\xFE_US", {}, {}, {}}, {std::string("en\0_US", 6), {}, {}, {}}, {std::string(100000, 'a'), {}, {}, {}},
  };
  for (const auto& expected : cases) EXPECT_EQ(codes(Locale(std::get<0>(expected))), expected);
  EXPECT_NE(Locale("en_US"), Locale("en-US"));
}

class LocaleCurrent : public testing::Test {  // its tests change process-wide state; TearDown puts it back
 protected:
  static Code get(const char* name) { return std::getenv(name) ? Code(std::getenv(name)) : std::nullopt; }
  static void setEnvironment(const Code& lcAll, const Code& lcMessages, const Code& lang) {
    for (const auto& [name, value] : {std::pair{"LC_ALL", lcAll}, {"LC_MESSAGES", lcMessages}, {"LANG", lang}}) {
      value ? setenv(name, value->c_str(), 1) : unsetenv(name);
    }
  }
  void TearDown() override {
    setEnvironment(saved_[0], saved_[1], saved_[2]);
    Locale::setCurrent(std::nullopt);
  }
  const Code saved_[3] = {get("LC_ALL"), get("LC_MESSAGES"), get("LANG")};
};

TEST_F(LocaleCurrent, ComesFromTheEnvironmentUnlessSetAndAutoupdatingFollowsIt) {
  const std::vector<std::tuple<Code, Code, Code, std::string>> cases = {
      {{}, {}, "de_DE.UTF-8", "de_DE"}, {{}, {}, "de_DE@euro", "de_DE"}, {{}, {}, "C.UTF-8", "en_US_POSIX"},
      {{}, {}, "POSIX", "en_US_POSIX"}, {{}, {}, {}, "en_US_POSIX"}, {"", "", "fr_FR.UTF-8", "fr_FR"},  // "" is unset
      {{}, "ja_JP.UTF-8", "de_DE", "ja_JP"}, {"pt_BR.UTF-8", "ja_JP", "de_DE", "pt_BR"},
  };
  for (const auto& [lcAll, lcMessages, lang, identifier] : cases) {
    setEnvironment(lcAll, lcMessages, lang);
    EXPECT_EQ(Locale::current().identifier(), identifier);
  }
  Locale::setCurrent(Locale("en_US"));
  const Locale snapshot = Locale::current();
  const Locale following = Locale::autoupdatingCurrent();
  Locale::setCurrent(Locale("en_PT@currency=EUR"));
  EXPECT_EQ(codes(following), codes(Locale("en_PT@currency=EUR")));
  EXPECT_EQ(std::hash<Locale>{}(following), std::hash<Locale>{}(Locale("en_PT@currency=EUR")));
  EXPECT_EQ(snapshot, Locale("en_US"));
  Locale::setCurrent(Locale::autoupdatingCurrent());  // fixed to what it names now
  EXPECT_EQ(Locale::current().identifier(), "en_PT@currency=EUR");
  Locale::setCurrent(std::nullopt);
  EXPECT_EQ(codes(following), codes(Locale("pt_BR")));  // the environment's again
}

TEST_F(LocaleCurrent, ConcurrentSettersAndReadersSeeWholeLocales) {
  Locale::setCurrent(Locale("en_US"));
  std::thread writer([] { for (int i = 0; i < 2000; ++i) Locale::setCurrent(Locale(i % 2 ? "de_DE" : "en_US")); });
  const auto isWhole = [](const std::string& seen) { return seen == "en_US" || seen == "de_DE"; };
  for (int i = 0; i < 2000; ++i) EXPECT_PRED1(isWhole, Locale::autoupdatingCurrent().identifier());
  writer.join();
}

}  // namespace
}  // namespace velquist::foundation
