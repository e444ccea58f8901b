#include "velquist/foundation/locale.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace velquist::foundation {
namespace {

using Code = std::optional<std::string>;

struct CodesCase {
  std::string identifier;
  Code language;
  Code region;
  Code currency;
};

TEST(LocaleCodes, AnswerForEachIdentifier) {
  const std::vector<CodesCase> cases = {
      {"en_US", "en", "US", "USD"},
      {"de_DE", "de", "DE", "EUR"},
      {"ru_RU", "ru", "RU", "RUB"},
      {"ja_JP", "ja", "JP", "JPY"},
      {"pt_BR", "pt", "BR", "BRL"},
      {"en_PT@currency=EUR", "en", "PT", "EUR"},
      {"en_US@currency=JPY", "en", "US", "JPY"},  // the keyword wins over the region
      {"en_US@currency=jpy", "en", "US", "JPY"},
      {"de_DE@currency=EURO", "de", "DE", "EUR"},  // not a currency code: ignored
      {"ar@currency=EGP", "ar", std::nullopt, "EGP"},
      {"ar", "ar", std::nullopt, std::nullopt},
      {"en-GB", "en", "GB", "GBP"},
      {"zh_Hans_CN", "zh", "CN", "CNY"},
      {"en_US_POSIX", "en", "US", "USD"},
      {"es_419", "es", "419", std::nullopt},
      {"_DE", std::nullopt, "DE", "EUR"},
      {"", std::nullopt, std::nullopt, std::nullopt},
      {"garbage", std::nullopt, std::nullopt, std::nullopt},
      {"garbage_US", std::nullopt, std::nullopt, std::nullopt},
      {"!!not a locale??", std::nullopt, std::nullopt, std::nullopt},
      {"en_US@currency=", std::nullopt, std::nullopt, std::nullopt},
      {"\xFF\xFE_US", std::nullopt, std::nullopt, std::nullopt},
      {std::string("en\0_US", 6), std::nullopt, std::nullopt, std::nullopt},
      {std::string(100000, 'a'), std::nullopt, std::nullopt, std::nullopt},
  };
  for (const auto& [identifier, language, region, currency] : cases) {
    SCOPED_TRACE(testing::PrintToString(identifier.substr(0, 40)));
    const Locale locale(identifier);
    EXPECT_EQ(locale.identifier(), identifier);
    EXPECT_EQ(locale.languageCode(), language);
    EXPECT_EQ(locale.regionCode(), region);
    EXPECT_EQ(locale.currencyCode(), currency);
  }
  EXPECT_EQ(Locale().identifier(), "");
  EXPECT_EQ(Locale().currencyCode(), std::nullopt);
}

TEST(LocaleEquality, IsByIdentifierAsGiven) {
  EXPECT_EQ(Locale("en_US"), Locale("en_US"));
  EXPECT_EQ(std::hash<Locale>{}(Locale("en_US")), std::hash<Locale>{}(Locale("en_US")));
  EXPECT_NE(Locale("en_US"), Locale("en-US"));
  EXPECT_NE(Locale("en_US"), Locale("en_us"));
  EXPECT_EQ(Locale(""), Locale());
}

// Every test here changes process-wide state; the fixture puts it back.
class LocaleCurrent : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : kVariables) {
      const char* value = std::getenv(name);
      saved_.push_back(value ? std::optional<std::string>(value) : std::nullopt);
    }
    Locale::setCurrent(std::nullopt);
  }
  void TearDown() override {
    for (std::size_t i = 0; i < kVariables.size(); ++i) setVariable(kVariables[i], saved_[i]);
    Locale::setCurrent(std::nullopt);
  }
  static void setVariable(const char* name, const std::optional<std::string>& value) {
    if (value) {
      setenv(name, value->c_str(), 1);
    } else {
      unsetenv(name);
    }
  }

  static constexpr std::array<const char*, 3> kVariables = {"LC_ALL", "LC_MESSAGES", "LANG"};
  std::vector<std::optional<std::string>> saved_;
};

TEST_F(LocaleCurrent, ComesFromTheEnvironmentWhenNotSet) {
  struct EnvironmentCase {
    std::optional<std::string> lcAll;
    std::optional<std::string> lcMessages;
    std::optional<std::string> lang;
    std::string identifier;
  };
  const std::vector<EnvironmentCase> cases = {
      {std::nullopt, std::nullopt, "de_DE.UTF-8", "de_DE"},
      {std::nullopt, std::nullopt, "ru_RU", "ru_RU"},
      {std::nullopt, std::nullopt, "de_DE@euro", "de_DE"},
      {std::nullopt, std::nullopt, "C", "en_US_POSIX"},
      {std::nullopt, std::nullopt, "C.UTF-8", "en_US_POSIX"},
      {std::nullopt, std::nullopt, "POSIX", "en_US_POSIX"},
      {std::nullopt, std::nullopt, std::nullopt, "en_US_POSIX"},
      {std::nullopt, "ja_JP.UTF-8", "de_DE.UTF-8", "ja_JP"},
      {"pt_BR.UTF-8", "ja_JP.UTF-8", "de_DE.UTF-8", "pt_BR"},
      {"", "", "fr_FR.UTF-8", "fr_FR"},  // empty settings count as unset
  };
  for (const auto& [lcAll, lcMessages, lang, identifier] : cases) {
    SCOPED_TRACE(identifier);
    setVariable("LC_ALL", lcAll);
    setVariable("LC_MESSAGES", lcMessages);
    setVariable("LANG", lang);
    EXPECT_EQ(Locale::current().identifier(), identifier);
  }
}

TEST_F(LocaleCurrent, SetCurrentOverridesTheEnvironmentUntilCleared) {
  setVariable("LC_ALL", "de_DE.UTF-8");
  Locale::setCurrent(Locale("ja_JP"));
  EXPECT_EQ(Locale::current(), Locale("ja_JP"));
  EXPECT_EQ(Locale::current().currencyCode(), "JPY");
  Locale::setCurrent(std::nullopt);
  EXPECT_EQ(Locale::current(), Locale("de_DE"));
}

TEST_F(LocaleCurrent, AutoupdatingFollowsEveryChangeButCurrentIsASnapshot) {
  Locale::setCurrent(Locale("en_US"));
  const Locale snapshot = Locale::current();
  const Locale following = Locale::autoupdatingCurrent();
  const std::vector<Locale> settings = {Locale("de_DE"), Locale("en_PT@currency=EUR"), Locale("ar")};
  for (const Locale& setting : settings) {
    SCOPED_TRACE(setting.identifier());
    Locale::setCurrent(setting);
    EXPECT_EQ(following.identifier(), setting.identifier());
    EXPECT_EQ(following.languageCode(), setting.languageCode());
    EXPECT_EQ(following.regionCode(), setting.regionCode());
    EXPECT_EQ(following.currencyCode(), setting.currencyCode());
    EXPECT_EQ(following, setting);
    EXPECT_EQ(std::hash<Locale>{}(following), std::hash<Locale>{}(setting));
    EXPECT_EQ(snapshot.identifier(), "en_US");
  }
  Locale::setCurrent(std::nullopt);
  setVariable("LC_ALL", "ru_RU.UTF-8");
  EXPECT_EQ(following.currencyCode(), "RUB");
}

TEST_F(LocaleCurrent, SettingTheAutoupdatingLocaleFixesItToWhatItNamesNow) {
  Locale::setCurrent(Locale("pt_BR"));
  Locale::setCurrent(Locale::autoupdatingCurrent());
  EXPECT_EQ(Locale::current().identifier(), "pt_BR");
  EXPECT_EQ(Locale::autoupdatingCurrent().currencyCode(), "BRL");
}

TEST_F(LocaleCurrent, ConcurrentSettersAndReadersSeeWholeLocales) {
  const std::vector<std::string> identifiers = {"en_US", "de_DE", "en_PT@currency=EUR"};
  Locale::setCurrent(Locale(identifiers[0]));
  std::thread writer([&] {
    for (int i = 0; i < 2000; ++i) Locale::setCurrent(Locale(identifiers[static_cast<std::size_t>(i) % 3]));
  });
  std::vector<std::string> seen;
  for (int i = 0; i < 2000; ++i) seen.push_back(Locale::autoupdatingCurrent().identifier());
  writer.join();
  for (const std::string& identifier : seen) {
    EXPECT_NE(std::find(identifiers.begin(), identifiers.end(), identifier), identifiers.end()) << identifier;
  }
}

}  // namespace
}  // namespace velquist::foundation
