#include "velquist/sandbox/storekit_configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace velquist::sandbox {
namespace {

namespace fs = std::filesystem;
const fs::path ownDataDir = VELQUIST_TEST_DATA_DIR;
const fs::path exampleFile = fs::path(VELQUIST_SOURCE_DIR) / "examples/velquist_demo.storekit";
// Real files from public projects beside the repository; their tests skip when absent.
const fs::path dataDir = fs::path(VELQUIST_SOURCE_DIR) / "../shared/fixtures/storekit";

// The shared fixture whose file name contains `word`.
StoreKitConfiguration fixture(const std::string& word) {
  for (const auto& entry : fs::directory_iterator(dataDir))
    if (entry.path().stem().native().find(word) != std::string::npos) return loadStoreKitConfiguration(entry.path());
  return loadStoreKitConfiguration(dataDir / word);  // fails naming the file
}

// "file|path|reason" of the StoreKitConfigurationError `load` throws, or "no error"; other exceptions escape.
std::string errorOf(const std::function<void()>& load) try {
  load();
  return "no error";
} catch (const StoreKitConfigurationError& error) {
  return error.file() + "|" + error.path() + "|" + error.reason();
}
std::string errorOf(const std::string& text) { return errorOf([&] { parseStoreKitConfiguration(text, "T"); }); }

// "<version> <products>/<non-renewing> <groups>/<subscriptions> <storefront> <locale> <time rate> <errors>".
std::string summary(const StoreKitConfiguration& c) {
  std::size_t subscriptions = 0;
  for (const SubscriptionGroup& group : c.subscriptionGroups) subscriptions += group.subscriptions.size();
  std::ostringstream out;
  out << c.version.major << '.' << c.version.minor << ' ' << c.products.size() << '/'
      << c.nonRenewingSubscriptions.size() << ' ' << c.subscriptionGroups.size() << '/' << subscriptions << ' '
      << c.settings.storefront << ' ' << c.settings.locale.value_or("-") << ' ' << c.settings.timeRate << ' '
      << c.settings.storeKitErrors.size();
  return out.str();
}

// A product, its first localization and a subscription's offers in one line:
// "RecurringSubscription 4.99 en_US:Pro P1M level 1; intro payUpFront P2M x1 1.99".
std::string facts(const StoreKitConfiguration& configuration, const std::string& id) {
  const Product* product = configuration.findProduct(id);
  if (product == nullptr) return "none";
  std::ostringstream out;
  out << rawValue(product->type) << ' ' << product->price.description();
  if (const auto& names = product->localizations; !names.empty()) out << ' ' << names[0].locale << ':' << names[0].displayName;
  const auto offer = [&](const std::string& label, const Offer& o) {
    out << "; " << label << rawValue(o.paymentMode) << ' ' << o.period.iso8601 << " x" << o.numberOfPeriods << ' '
        << o.price.description();
  };
  if (const Subscription* s = configuration.findSubscription(id)) {
    out << ' ' << s->recurringSubscriptionPeriod.iso8601 << " level " << s->groupNumber;
    if (s->introductoryOffer) offer("intro ", *s->introductoryOffer);
    for (const PromotionalOffer& promotion : s->promotionalOffers) offer("promo " + promotion.offerID + " ", promotion);
    for (const CodeOffer& code : s->codeOffers) offer("code ", code);
  }
  return out.str();
}

// A valid file, and the same with the first occurrence of `from` replaced by `to`.
const std::string valid =
    R"({"products":[{"productID":"c","type":"Consumable","displayPrice":"1"}],"settings":{"_storefront":"USA",)"
    R"("_compatibilityTimeRate":{"3":6},"_lastSynchronizedDate":7},"subscriptionGroups":[{"id":"G","subscriptions":[)"
    R"({"productID":"p","displayPrice":"2","groupNumber":1,"recurringSubscriptionPeriod":"P1M","introductoryOffer":)"
    R"({"paymentMode":"payAsYouGo","subscriptionPeriod":"P1W","displayPrice":"1"},"adHocOffers":[{"offerID":"o",)"
    R"("paymentMode":"free","subscriptionPeriod":"P1W"}],"codeOffers":[{"paymentMode":"free","subscriptionPeriod":)"
    R"("P1D","eligibility":["new"]}]}]}],"version":{"major":3,"minor":0}})";
std::string replaced(const std::string& from, const std::string& to, std::string text = valid) {
  return text.replace(text.find(from), from.size(), to);
}

TEST(StoreKitConformance, EveryFixtureLoadsWithItsCountsProductsAndSettings) {
  if (!fs::is_directory(dataDir)) GTEST_SKIP() << "no shared .storekit fixtures at " << dataDir;
  for (const auto& [word, expected] : std::vector<std::array<std::string, 2>>{
           {"backyardbirds", "3.0 6/0 1/3 USA en_US 0 9"}, {"foodtruck", "2.0 1/0 1/2 USA - 0 0"},
           {"skdemo", "2.0 6/1 1/3 USA - 15 0"}, {"pocketcasts", "4.0 0/0 2/6 PRT en_US 1004 9"},
           {"four-groups", "3.0 2/0 4/9 USA en_US 13 9"}, {"synced", "3.0 2/1 6/13 USA en_US 0 9"},
           {"esp-storefront", "4.0 2/0 2/4 ESP pt_BR 0 9"}, {"v5-billing", "5.0 2/1 2/4 USA en_US 0 0"},
           {"storehelper-v1.1", "1.1 5/0 1/3 USA en_US 1 0"}}) {
    EXPECT_EQ(summary(fixture(word)), expected) << word;
  }
  for (const auto& [word, id, expected] : std::vector<std::array<std::string, 3>>{
           {"skdemo", "nonRenewing.standard", "NonRenewingSubscription 9.99 en_US:Standard 1 Year Service Access"},
           {"skdemo", "subscription.pro", "RecurringSubscription 4.99 en_US:Pro P1M level 1; intro payUpFront P2M x1 1.99"},
           {"v5-billing", "com.revenuecat.monthly_4.99.1_week_intro",
            "RecurringSubscription 4.99 en_US:Monthly Free Trial P1M level 1; intro free P3M x1 0; promo "
            "com.revenuecat.monthly_4.99.1_week_intro.year_discount payUpFront P1Y x1 40.99; promo "
            "com.revenuecat.monthly_4.99.1_week_intro.pay_as_you_go payAsYouGo P1M x2 20.15"},
           // A free trial that still carries the editor's leftover price of 0.99.
           {"pocketcasts", "com.pocketcasts.plus.yearly.referral", "RecurringSubscription 39.99 en_US: P1Y level 2; "
            "intro free P2M x1 0; promo com.pocketcasts.plus.yearly.referral.promo free P2M x1 0"}}) {
    EXPECT_EQ(facts(fixture(word), id), expected) << word;
  }
  EXPECT_EQ(fixture("four-groups").subscriptionOffersKeyPair, (SubscriptionOffersKeyPair{"C815358F", "REDACTED"}));
  EXPECT_EQ(fixture("synced").settings.lastSynchronizedDate.value().description(), "743722291.47019804");
}

// Hand-made files: compact, oldest layout, keys missing or null, unknown keys everywhere.
TEST(StoreKitConfiguration, ToleratedVariants) {
  const auto load = [](const std::string& offers, const std::string& top = "") {
    return parseStoreKitConfiguration(
        "\xEF\xBB\xBF" R"({"products":[],"subscriptionGroups":[{"id":"G","subscriptions":[{"productID":"s",)"
        R"("displayPrice":"6.00","groupNumber":2,"recurringSubscriptionPeriod":"P1W","future":[1])" + offers +
            R"(}]}],"version":{"major":1,"minor":0})" + top + "}", "t");
  };
  const StoreKitConfiguration oldest = load("");
  EXPECT_TRUE(!oldest.identifier && oldest.settings == Settings{});
  EXPECT_EQ(oldest.subscriptionGroups.at(0).subscriptions.at(0).subscriptionGroupID, "G");
  for (const std::string key : {"_billingIssuesEnabled", "_interruptedPurchasesEnabled"})  // the editor's, a hand-made one
    EXPECT_TRUE(load("", R"(,"settings":{")" + key + R"(":true})").settings.billingIssuesEnabled) << key;
  // A null introductory offer falls back to the first of the list; a present one wins over the list.
  const std::string list = R"(,"introductoryOffers":[{"paymentMode":"payUpFront","subscriptionPeriod":"P12M",)"
                           R"("displayPrice":"10000"},{"paymentMode":"free","subscriptionPeriod":"P1W"}])";
  EXPECT_EQ(facts(load(R"(,"introductoryOffer":{"paymentMode":"free","subscriptionPeriod":"P3D"})" + list), "s"),
            "RecurringSubscription 6 P1W level 2; intro free P3D x1 0");
  const StoreKitConfiguration nulls =
      load(R"(,"introductoryOffer":null,"adHocOffers":null)" + list,
           R"(,"identifier":"X","settings":{"_locale":"ja","_timeRate":null,"_new":{},"_applicationInternalID":"1",)"
           R"("_developerTeamID":"T","_compatibilityTimeRate":6})");
  EXPECT_EQ(nulls.identifier.value_or("") + " " + facts(nulls, "s"),
            "X RecurringSubscription 6 P1W level 2; intro payUpFront P12M x1 10000");
  EXPECT_EQ(nulls.settings, (Settings{.locale = "ja", .compatibilityTimeRates = {{"", 6}}, .applicationInternalID = "1",
                                      .developerTeamID = "T"}));
}

TEST(StoreKitConfiguration, MalformedInputsNameThePathAndReason) {
  const std::string s = "subscriptionGroups[0].subscriptions[0].";
  for (const auto& [from, to, path, reason] : std::vector<std::array<std::string, 4>>{
           {valid, "", "", "The given data was not valid JSON: syntax error while parsing value - unexpected end of "
                           "input; expected '[', '{', or a literal (at byte 1)."},
           {R"(,"version":{"major":3,"minor":0})", "", "version", "required key is missing"},
           {R"("products":)", R"("products":null,"x":)", "products", "required value is null"},
           {R"("major":3)", R"("major":3.5)", "version.major", "expected an integer, found 3.5"},
           {R"(["new"])", R"(["new",3])", s + "codeOffers[0].eligibility[1]", "expected string, found number"},
           {R"("3":6)", R"("3":-1)", "settings._compatibilityTimeRate.3", "integer -1 is out of range 0...2147483647"},
           {R"(":7)", R"(":1e999)", "settings._lastSynchronizedDate", "date 1e999 is out of range"},
           {R"("USA")", R"("US")", "settings._storefront", R"(storefront "US" is not a three-letter country code)"},
           {R"("1")", R"("1,99")", "products[0].displayPrice", R"(price "1,99" is not a decimal number)"},
           {R"("P1D")", R"("P1X")", s + "codeOffers[0].subscriptionPeriod",
            R"(period "P1X" is not an ISO 8601 duration like P1W, P3M or P1Y)"},
           {R"("Consumable")", R"("RecurringSubscription")", "products[0].type", R"(unknown product type )"
            R"("RecurringSubscription" (expected one of "Consumable", "NonConsumable", "NonRenewingSubscription"))"},
           {R"("groupNumber")", R"("type":"Consumable","groupNumber")", s + "type",
            R"(unknown subscription type "Consumable" (expected one of "RecurringSubscription"))"},
           {R"("groupNumber")", R"("subscriptionGroupID":"H","groupNumber")", s + "subscriptionGroupID",
            R"("H" differs from the enclosing group's id "G")"},
           {R"("productID":"p")", R"("productID":"c")", s + "productID", R"(product identifier "c" is repeated)"},
           {R"("adHocOffers":[)", R"("adHocOffers":[{"offerID":"o","paymentMode":"free","subscriptionPeriod":"P1M"},)",
            s + "adHocOffers[1].offerID", R"(offer identifier "o" is repeated)"}}) {
    EXPECT_EQ(errorOf(replaced(from, to)), "T|" + path + "|" + reason) << replaced(from, to);
  }
  EXPECT_STREQ(StoreKitConfigurationError("f", "a[0].b", "x").what(), "f: a[0].b: x");
  EXPECT_STREQ(StoreKitConfigurationError("f", "", "x").what(), "f: x");

  const fs::path missing = ownDataDir / "missing.storekit", readme = fs::path(VELQUIST_SOURCE_DIR) / "README.md";
  EXPECT_EQ(errorOf([&] { loadStoreKitConfiguration(missing); }),
            missing.string() + "||cannot be opened: No such file or directory");
  EXPECT_EQ(errorOf([&] { loadStoreKitConfiguration(ownDataDir); }), ownDataDir.string() + "||is a directory");
  EXPECT_THAT(errorOf([&] { loadStoreKitConfiguration(readme); }),
              ::testing::StartsWith(readme.string() + "||The given data was not valid JSON"));
}

TEST(StoreKitConfiguration, PeriodAndPriceTexts) {
  const auto load = [](const std::string& period, const std::string& price) {
    const std::string text = replaced(R"("P1M")", '"' + period + '"', replaced(R"("2")", '"' + price + '"'));
    return parseStoreKitConfiguration(text, "t").subscriptionGroups.at(0).subscriptions.at(0);
  };
  using enum Period::Unit;
  for (const Period& period : {Period{"P3D", day, 3}, Period{"P1W", week, 1}, Period{"P10Y", year, 10}})
    EXPECT_EQ(load(period.iso8601, "1").recurringSubscriptionPeriod, period);
  for (const std::string text : {"", "P", "P0M", "P-1M", "P+1M", "p1m", "P1Y2M", "PT1H", "P1.5M", "1M", "P1 M",
                                 "P1000001M", "P99999999999M"})
    EXPECT_THROW(load(text, "1"), StoreKitConfigurationError) << text;
  const std::string digits38 = "12345678901234567890.123456789012345678";
  for (const auto& [text, shown] : std::vector<std::array<std::string, 2>>{
           {"29", "29"}, {"0.5", "0.5"}, {"6.00", "6"}, {"10000", "10000"}, {digits38, digits38}})
    EXPECT_EQ(load("P1M", text).price.description(), shown);
  for (const std::string& text : std::vector<std::string>{"", "-1", "+1", "1.", ".5", " 1", "1e2", "$1", "NaN", "1.2.3",
                                                         digits38 + "9"})
    EXPECT_THROW(load("P1M", text), StoreKitConfigurationError) << text;
}

// Cut, mutated and wrongly typed versions of every file load or fail with the loader's error.
TEST(StoreKitConfiguration, TruncatedMutatedAndWronglyTypedFilesNeverCrash) {
  std::mt19937 random(20240611);  // the same inputs on every run
  std::vector<fs::path> files = {exampleFile, ownDataDir / "japan_store.storekit", ownDataDir / "legacy_v1.storekit"};
  std::error_code absent;  // the shared folder may not be there
  for (const auto& entry : fs::directory_iterator(dataDir, absent))
    if (entry.path().extension() == ".storekit") files.push_back(entry.path());
  for (const auto& path : files) {
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    for (std::size_t cut = 0; cut < text.size(); cut += 97) errorOf(text.substr(0, cut));
    for (int round = 0; round < 50; ++round)
      errorOf(std::string(text).replace(random() % text.size(), 1, 1, static_cast<char>(random() % 256)));
    for (std::size_t at = text.find("false"); at != std::string::npos; at = text.find("false", at + 1))
      errorOf(std::string(text).replace(at, 5, "0"));
  }
}

TEST(StoreKitConfiguration, OurOwnCatalogueFiles) {
  const StoreKitConfiguration demo = loadStoreKitConfiguration(exampleFile);
  EXPECT_EQ(summary(demo), "4.0 2/1 2/5 USA en_US 6 2");
  EXPECT_EQ(facts(demo, "com.velquist.demo.pro.monthly"),
            "RecurringSubscription 9.99 en_US:Pro Monthly P1M level 2; intro payAsYouGo P1M x3 2.49; promo "
            "winback.monthly payAsYouGo P1M x3 4.99; promo loyalty.trial free P1M x1 0; code payUpFront P6M x1 19.99");
  const CodeOffer& code = demo.findSubscription("com.velquist.demo.pro.monthly")->codeOffers.at(0);
  EXPECT_TRUE(code.isStackable && code.eligibility == (std::vector<std::string>{"new", "expired"}));
  const StoreKitConfiguration japan = loadStoreKitConfiguration(ownDataDir / "japan_store.storekit");
  const Settings expected{
      .storefront = "JPN", .locale = "ja", .askToBuyEnabled = true, .failTransactionsEnabled = true, .storeKitError = 0,
      .storeKitErrors = {{"Load Products", true, {{"generic", 4}}}, {"Purchase"}}, .timeRate = 1005,
      .compatibilityTimeRates = {{"3", 6}, {"5", 1004}}};
  EXPECT_EQ(japan.settings, expected);
  EXPECT_EQ(japan.subscriptionGroups.at(0).localizations, (std::vector<Localization>{{"ja", "プレミアム", ""}}));
  // The introductory offer from the list: free, whatever price is left on it.
  EXPECT_EQ(facts(japan, "jp.premium.yearly"), "RecurringSubscription 10000 ja:年額 P1Y level 1; intro free P2W x1 0");
}

}  // namespace
}  // namespace velquist::sandbox
