#include "velquist/coreui/l10n.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "velquist/foundation/coding_error.h"
#include "velquist/foundation/json.h"

namespace velquist::coreui {
namespace {

using foundation::Locale;
using namespace L10n::Product::SubscriptionPeriod::Unit;  // the unit words: day(), Day::plural(), ...
namespace Offer = L10n::Product::SubscriptionOffer;

TEST(L10nCurrent, EveryEntryReadsItsOwnTextInTheLanguageCurrentAtEachCall) {
  const std::vector<std::string (*)()> accessors = {
      day, week, month, year, Day::plural, Day::plural2, Day::compactName, Day::recurrent, Week::plural, Week::plural2,
      Week::compactName, Week::recurrent, Month::plural, Month::plural2, Month::compactName, Month::recurrent, Year::plural,
      Year::plural2, Year::compactName, Year::recurrent, Offer::PaymentMode::payAsYouGo, Offer::PaymentMode::payUpFront,
      Offer::PaymentMode::freeTrial};
  const std::vector<std::pair<std::string, std::vector<std::string>>> texts = {
      {"en_US", {"day", "week", "month", "year", "days", "days", "day", "daily", "weeks", "weeks", "wk", "weekly", "months",
                 "months", "mo", "monthly", "years", "years", "yr", "yearly", "Pay as you go", "Pay up front", "Free trial"}},
      {"ru_RU", {"день", "неделя", "месяц", "год", "дня", "дней", "день", "ежедневно", "недели", "недель", "нед.",
                 "еженедельно", "месяца", "месяцев", "мес.", "ежемесячно", "года", "лет", "год", "ежегодно",
                 "Оплата за каждый период", "Оплата сразу за весь срок", "Бесплатный пробный период"}},
  };
  for (std::size_t i = 0; i < accessors.size(); ++i) {
    for (const auto& [locale, expected] : texts) {  // the language changes at every call
      Locale::setCurrent(Locale(locale));
      EXPECT_EQ(accessors[i](), expected.at(i)) << locale << " entry " << i;
    }
  }
  const std::vector<std::tuple<std::string, std::int64_t, std::string, std::string>> freeTrials = {
      {"en_US", 3, "days", "3 days free"}, {"ru_RU", 3, "дня", "3 дня бесплатно"}, {"de_AT", 14, "Tage", "14 Tage kostenlos"},
      {"en_US", INT64_MIN, "days", "-9223372036854775808 days free"}, {"", 5, "{length}", "5 {length} free"},
      {"sw_KE", 1234567, "", "1234567  free"},  // no file, or no language: English; plain ASCII digits
      {"ar_EG", 3, "أيام", "3 أيام مجانًا"}, {"zh_TW", 7, "天", "免費試用 7 天"}, {"ko_KR", 1, "주", "1주 무료"},
  };
  for (const auto& [locale, length, word, expected] : freeTrials) {
    Locale::setCurrent(Locale(locale));
    EXPECT_EQ(Offer::freeTrial(length, word), expected) << locale << " " << length << " " << word;
  }
  Locale::setCurrent(std::nullopt);  // the process-wide locale back as it was
}

TEST(L10nCatalogue, ALocaleReadsTheFileOfItsVariantThenOfItsLanguageThenEnglish) {
  const L10n::Catalogue& catalogue = L10n::Catalogue::builtIn();
  for (const auto& [locale, expected] : std::vector<std::pair<std::string, std::string>>{
           {"zh_TW", "zh_Hant"}, {"zh_Hant_HK", "zh_Hant"}, {"zh_HK", "zh_Hant"}, {"zh_CN", "zh"}, {"zh_Hans_SG", "zh"},
           {"pt_PT", "pt_PT"}, {"pt_BR", "pt"}, {"es_MX", "es_MX"}, {"es-MX", "es_MX"}, {"es_ES", "es"},
           {"fr_CA@currency=USD", "fr_CA"}, {"no_NO", "nb"}, {"no", "nb"}, {"iw_IL", "he"}, {"in_ID", "id"},
           {"de_AT", "de"}, {"en_US_POSIX", "en"}, {"sw_KE", "en"}, {"", "en"}, {"!!", "en"},
           {std::string("ru\0_RU", 6), "en"}}) {
    EXPECT_EQ(catalogue.languageFor(locale), expected) << locale;
  }

  // Through the current locale: the variants differ from their language where it matters.
  for (const auto& [locale, entry, expected] : std::vector<std::tuple<std::string, std::string (*)(), std::string>>{
           {"zh_TW", Week::plural2, "週"}, {"zh_CN", Week::plural2, "周"}, {"no_NO", Week::plural, "uker"},
           {"pt_PT", Offer::PaymentMode::payUpFront, "Pagamento adiantado"},
           {"pt_BR", Offer::PaymentMode::payUpFront, "Pagamento antecipado"}}) {
    Locale::setCurrent(Locale(locale));
    EXPECT_EQ(entry(), expected) << locale;
  }
  Locale::setCurrent(std::nullopt);
}

// An entry a variant lacks comes from its language, then from English, then is the key.
TEST(L10nCatalogue, FallsBackToTheLanguageThenEnglishThenTheKeyAndRejectsAnythingButAFlatObjectOfTexts) {
  using Files = std::vector<L10n::Catalogue::DataFile>;
  const L10n::Catalogue catalogue(Files{{"en", R"({"a":"A","b":"B","b":"B2"})"}, {"ru", R"({"a":"А"})"},
                                        {"ru", R"({"c":"Ц"})"}, {"ru_UA", R"({"e":"E-UA"})"}});
  for (const auto& [key, language, expected] : std::vector<std::tuple<std::string, std::string, std::string>>{
           {"a", "ru", "А"}, {"b", "ru", "B2"}, {"c", "ru", "Ц"}, {"c", "en", "c"}, {"a", "ja", "A"}, {"d", "ru", "d"},
           {"e", "ru_UA", "E-UA"}, {"c", "ru_UA", "Ц"}, {"b", "ru_UA", "B2"}, {"e", "ru", "e"}}) {
    EXPECT_EQ(catalogue.text(key, language), expected) << key << " " << language;
  }
  EXPECT_EQ(L10n::Catalogue(Files{{"ru", R"({"a": "А"})"}}).text("a", "de"), "a");

  using Kind = foundation::DecodingError::Kind;
  for (const auto& [json, kind, path] : std::vector<std::tuple<std::string, Kind, std::string>>{
           {R"({"a": "A",})", Kind::dataCorrupted, "ru"}, {R"(["A"])", Kind::typeMismatch, "ru"},
           {R"({"a": "A", "Unit.day": {"b": "B"}})", Kind::typeMismatch, "ru.Unit.day"}}) {
    try {
      const L10n::Catalogue rejected(Files{{"en", R"({"a": "A"})"}, {"ru", json}});
      ADD_FAILURE() << "accepted " << json;
    } catch (const foundation::DecodingError& error) {
      EXPECT_EQ(std::pair(error.kind(), error.codingPathText()), std::pair(kind, path)) << json;
    }
  }
}

TEST(L10nDataFiles, AreFlatObjectsOfTextsWithTheEnglishKeysBuiltInAsWritten) {
  std::map<std::string, std::set<std::string>> keys;  // language code -> keys, from the files in the source tree
  for (const auto& entry : std::filesystem::directory_iterator(VELQUIST_SOURCE_DIR "/data/l10n")) {
    if (entry.path().extension() != ".json") continue;
    const std::string language = entry.path().stem().string();
    std::ifstream stream(entry.path(), std::ios::binary);
    const foundation::JsonValue document = foundation::parseJson(std::string(std::istreambuf_iterator<char>(stream), {}));
    for (const auto& [key, value] : document.objectValue()) {  // throws unless an object of texts
      EXPECT_TRUE(keys[language].insert(key).second) << language << ": " << key << " twice";
      EXPECT_FALSE(value.stringValue().empty()) << language << ": " << key;
      EXPECT_EQ(L10n::text(key, language), value.stringValue()) << language << ": " << key;
    }
    const std::string sentence = L10n::text("Product.SubscriptionOffer.freeTrial", language);
    EXPECT_TRUE(sentence.find("{length}") != std::string::npos && sentence.find("{unit}") != std::string::npos) << sentence;
  }
  EXPECT_EQ(L10n::availableLanguages().size(), keys.size());
  for (const std::string& language : L10n::availableLanguages()) EXPECT_EQ(keys.at(language), keys.at("en")) << language;
}

}  // namespace
}  // namespace velquist::coreui
