#include "velquist/coreui/l10n.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "velquist/foundation/coding_error.h"
#include "velquist/foundation/json.h"

namespace velquist::coreui {
namespace {

using foundation::Locale;
namespace Unit = L10n::Product::SubscriptionPeriod::Unit;
namespace Offer = L10n::Product::SubscriptionOffer;

using Accessor = std::string (*)();

// Every fixed entry with the function that reads it.
const std::vector<std::pair<std::string, Accessor>> accessors = {
    {"Product.SubscriptionPeriod.Unit.day", Unit::day},
    {"Product.SubscriptionPeriod.Unit.week", Unit::week},
    {"Product.SubscriptionPeriod.Unit.month", Unit::month},
    {"Product.SubscriptionPeriod.Unit.year", Unit::year},
    {"Product.SubscriptionPeriod.Unit.Day.plural", Unit::Day::plural},
    {"Product.SubscriptionPeriod.Unit.Day.plural2", Unit::Day::plural2},
    {"Product.SubscriptionPeriod.Unit.Day.compactName", Unit::Day::compactName},
    {"Product.SubscriptionPeriod.Unit.Day.recurrent", Unit::Day::recurrent},
    {"Product.SubscriptionPeriod.Unit.Week.plural", Unit::Week::plural},
    {"Product.SubscriptionPeriod.Unit.Week.plural2", Unit::Week::plural2},
    {"Product.SubscriptionPeriod.Unit.Week.compactName", Unit::Week::compactName},
    {"Product.SubscriptionPeriod.Unit.Week.recurrent", Unit::Week::recurrent},
    {"Product.SubscriptionPeriod.Unit.Month.plural", Unit::Month::plural},
    {"Product.SubscriptionPeriod.Unit.Month.plural2", Unit::Month::plural2},
    {"Product.SubscriptionPeriod.Unit.Month.compactName", Unit::Month::compactName},
    {"Product.SubscriptionPeriod.Unit.Month.recurrent", Unit::Month::recurrent},
    {"Product.SubscriptionPeriod.Unit.Year.plural", Unit::Year::plural},
    {"Product.SubscriptionPeriod.Unit.Year.plural2", Unit::Year::plural2},
    {"Product.SubscriptionPeriod.Unit.Year.compactName", Unit::Year::compactName},
    {"Product.SubscriptionPeriod.Unit.Year.recurrent", Unit::Year::recurrent},
    {"Product.SubscriptionOffer.PaymentMode.payAsYouGo", Offer::PaymentMode::payAsYouGo},
    {"Product.SubscriptionOffer.PaymentMode.payUpFront", Offer::PaymentMode::payUpFront},
    {"Product.SubscriptionOffer.PaymentMode.freeTrial", Offer::PaymentMode::freeTrial},
};

// The entries that are templates, with the placeholders each must contain.
const std::vector<std::pair<std::string, std::vector<std::string>>> templates = {
    {"Product.SubscriptionOffer.freeTrial", {"{length}", "{unit}"}},
};

class L10nCurrent : public testing::Test {  // changes the process-wide locale; TearDown restores it
 protected:
  void TearDown() override { Locale::setCurrent(std::nullopt); }
};

TEST_F(L10nCurrent, EntriesReadTheLanguageCurrentAtEachCall) {
  // Rows alternate languages, so a language kept from an earlier call shows.
  const std::vector<std::tuple<std::string, Accessor, std::string>> cases = {
      {"en_US", Unit::year, "year"}, {"ru_RU", Unit::week, "неделя"}, {"en_GB", Unit::Week::plural2, "weeks"},
      {"ru_RU", Unit::Week::plural, "недели"}, {"en_US", Unit::Day::recurrent, "daily"},
      {"ru_RU", Unit::Week::plural2, "недель"}, {"en_US", Unit::Month::compactName, "mo"},
      {"ru_UA", Unit::Month::plural, "месяца"}, {"en_US", Offer::PaymentMode::payUpFront, "Pay up front"},
      {"ru", Unit::Year::plural, "года"}, {"de_AT", Unit::Week::plural2, "Wochen"}, {"ru_RU", Unit::Year::plural2, "лет"},
      {"ru_RU", Offer::PaymentMode::freeTrial, "Бесплатный пробный период"},
      // No file for these languages, or no language at all: English.
      {"ja_JP", Unit::Week::plural2, "weeks"}, {"ru_RU", Unit::Day::plural2, "дней"},
      {"zh_Hans_CN", Offer::PaymentMode::payAsYouGo, "Pay as you go"}, {"", Unit::day, "day"},
      {"garbage", Unit::Day::plural, "days"},
  };
  for (const auto& [locale, accessor, expected] : cases) {
    Locale::setCurrent(Locale(locale));
    EXPECT_EQ(accessor(), expected) << locale;
  }
}

TEST_F(L10nCurrent, EveryAccessorReadsItsOwnKeyInEveryLanguage) {
  for (const std::string& language : L10n::availableLanguages()) {
    Locale::setCurrent(Locale(language));
    for (const auto& [key, accessor] : accessors) {
      EXPECT_EQ(accessor(), L10n::text(key, language)) << language << " " << key;
      EXPECT_NE(accessor(), key) << language << " has no text for " << key;
    }
  }
}

TEST_F(L10nCurrent, ConcurrentReadersSeeOneLanguageOrTheOther) {
  Locale::setCurrent(Locale("en_US"));
  std::thread writer([] {
    for (int i = 0; i < 1000; ++i) Locale::setCurrent(Locale(i % 2 ? "ru_RU" : "en_US"));
  });
  std::vector<std::thread> readers;
  for (int r = 0; r < 2; ++r) {
    readers.emplace_back([] {
      const auto isWhole = [](const std::string& seen) { return seen == "months" || seen == "месяцев"; };
      for (int i = 0; i < 1000; ++i) EXPECT_PRED1(isWhole, Unit::Month::plural2());
    });
  }
  writer.join();
  for (std::thread& reader : readers) reader.join();
}

TEST_F(L10nCurrent, FreeTrialPlacesTheLengthAndTheUnitWord) {
  const std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
  const std::vector<std::tuple<std::string, std::int64_t, std::string, std::string>> cases = {
      {"en_US", 3, "days", "3 days free"}, {"en_US", 1, "week", "1 week free"},
      {"ru_RU", 3, "дня", "3 дня бесплатно"}, {"ru_RU", 7, "дней", "7 дней бесплатно"},
      {"ru_RU", 1, "неделя", "1 неделя бесплатно"}, {"de_DE", 14, "Tage", "14 Tage kostenlos"},
      {"en_US", 0, "days", "0 days free"}, {"en_US", -2, "days", "-2 days free"}, {"en_US", 5, "", "5  free"},
      {"en_US", lowest, "days", "-9223372036854775808 days free"},
      {"en_US", 1234567, "days", "1234567 days free"},  // no grouping
      {"ar_EG", 3, "days", "3 days free"},              // no file: English, ASCII digits
      {"en_US", 5, "{length}", "5 {length} free"},      // the word is not read for placeholders
  };
  for (const auto& [locale, length, word, expected] : cases) {
    Locale::setCurrent(Locale(locale));
    EXPECT_EQ(Offer::freeTrial(length, word), expected) << locale << " " << length << " " << word;
  }
}

TEST(L10nCatalogue, FallsBackToEnglishThenToTheKey) {
  using Files = std::vector<L10n::Catalogue::DataFile>;
  const L10n::Catalogue catalogue(
      Files{{"en", R"({"a": "A", "b": "B", "b": "B2"})"}, {"ru", R"({"a": "А"})"}, {"ru", R"({"c": "Ц"})"}});
  const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
      {"a", "ru", "А"}, {"b", "ru", "B2"}, {"c", "ru", "Ц"}, {"c", "en", "c"}, {"a", "ja", "A"},
      {"d", "ru", "d"}, {"", "en", ""},    {"a", "", "A"},
  };
  for (const auto& [key, language, expected] : cases) EXPECT_EQ(catalogue.text(key, language), expected) << key;
  EXPECT_EQ(catalogue.languageCodes(), (std::vector<std::string>{"en", "ru"}));

  const L10n::Catalogue withoutEnglish(Files{{"ru", R"({"a": "А"})"}});
  EXPECT_EQ(withoutEnglish.text("a", "de"), "a");
  EXPECT_EQ(L10n::text("No.Such.Key", "ru"), "No.Such.Key");
  EXPECT_EQ(L10n::text("Product.SubscriptionPeriod.Unit.day", "xx"), "day");
}

TEST(L10nCatalogue, RejectsAFileThatIsNotAFlatObjectOfTexts) {
  using Kind = foundation::DecodingError::Kind;
  const std::vector<std::tuple<std::string, Kind, std::string>> cases = {
      {R"({"a": "A",})", Kind::dataCorrupted, "ru"}, {"", Kind::dataCorrupted, "ru"},
      {"{\"a\": \"\xFF\"}", Kind::dataCorrupted, "ru"}, {R"(["A"])", Kind::typeMismatch, "ru"},
      {R"("A")", Kind::typeMismatch, "ru"}, {R"({"a": "A", "b": {"c": "C"}})", Kind::typeMismatch, "ru.b"},
      {R"({"a": 1})", Kind::typeMismatch, "ru.a"}, {R"({"Unit.day": null})", Kind::typeMismatch, "ru.Unit.day"},
  };
  for (const auto& [json, kind, path] : cases) {
    try {
      const L10n::Catalogue catalogue(std::vector<L10n::Catalogue::DataFile>{{"en", R"({"a": "A"})"}, {"ru", json}});
      ADD_FAILURE() << "accepted " << json;
    } catch (const foundation::DecodingError& error) {
      EXPECT_EQ(error.kind(), kind) << json;
      EXPECT_EQ(error.codingPathText(), path) << json;
    }
  }
}

// The shipped data files, read from the source tree: language code -> parsed document.
std::vector<std::pair<std::string, foundation::JsonValue>> shippedFiles() {
  std::vector<std::pair<std::string, foundation::JsonValue>> files;
  for (const auto& entry : std::filesystem::directory_iterator(VELQUIST_SOURCE_DIR "/data/l10n")) {
    if (entry.path().extension() != ".json") continue;
    std::ifstream stream(entry.path(), std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    files.emplace_back(entry.path().stem().string(), foundation::parseJson(text));  // throws when malformed
  }
  std::sort(files.begin(), files.end(), [](const auto& lhs, const auto& rhs) { return lhs.first < rhs.first; });
  return files;
}

TEST(L10nDataFiles, AreFlatObjectsOfTextsWithTheEnglishKeysAndAreAllBuiltIn) {
  const auto files = shippedFiles();
  std::vector<std::string> languages;
  std::set<std::string> englishKeys;
  for (const auto& [language, document] : files) {
    languages.push_back(language);
    if (language == "en") {
      for (const auto& [key, value] : document.objectValue()) englishKeys.insert(key);
    }
  }
  ASSERT_FALSE(englishKeys.empty());
  EXPECT_EQ(L10n::availableLanguages(), languages);
  for (const auto& [key, accessor] : accessors) EXPECT_TRUE(englishKeys.contains(key)) << key;

  for (const auto& [language, document] : files) {
    ASSERT_EQ(document.kind(), foundation::JsonValue::Kind::object) << language;
    std::set<std::string> keys;
    for (const auto& [key, value] : document.objectValue()) {
      EXPECT_TRUE(keys.insert(key).second) << language << ": " << key << " twice";
      ASSERT_EQ(value.kind(), foundation::JsonValue::Kind::string) << language << ": " << key;
      EXPECT_FALSE(value.stringValue().empty()) << language << ": " << key;
      EXPECT_EQ(L10n::text(key, language), value.stringValue()) << language << ": " << key;  // built in as written
    }
    EXPECT_EQ(keys, englishKeys) << language;
    for (const auto& [key, placeholders] : templates) {
      const std::string sentence = L10n::text(key, language);
      for (const std::string& placeholder : placeholders) {
        EXPECT_NE(sentence.find(placeholder), std::string::npos) << language << ": " << key << " lacks " << placeholder;
      }
    }
  }
}

}  // namespace
}  // namespace velquist::coreui
