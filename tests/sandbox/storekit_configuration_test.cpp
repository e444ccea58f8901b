#include "velquist/sandbox/storekit_configuration.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "velquist/foundation/json.h"

namespace velquist::sandbox {
namespace {

// Our own catalogue files, and the real files from public projects that sit beside the
// repository (not part of it): the tests over those are a conformance suite, skipped when
// the folder is not there.
const std::filesystem::path ownDataDir = VELQUIST_TEST_DATA_DIR;
const std::filesystem::path exampleFile = std::filesystem::path(VELQUIST_SOURCE_DIR) / "examples/velquist_demo.storekit";
const std::filesystem::path dataDir = std::filesystem::path(VELQUIST_SOURCE_DIR) / "../shared/fixtures/storekit";

#define SKIP_WITHOUT_SHARED_FIXTURES()                                                      \
  if (!std::filesystem::is_directory(dataDir))                                              \
  GTEST_SKIP() << "the shared .storekit fixtures are not at " << dataDir.string()           \
               << "; the conformance suite over real files is skipped"

std::string readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string readFixture(const std::string& name) { return readFile(dataDir / name); }

std::size_t subscriptionCount(const StoreKitConfiguration& configuration) {
  std::size_t count = 0;
  for (const SubscriptionGroup& group : configuration.subscriptionGroups) count += group.subscriptions.size();
  return count;
}

TEST(StoreKitConformance, EveryFixtureLoadsWithItsCountsAndSettings) {
  SKIP_WITHOUT_SHARED_FIXTURES();
  struct Row {
    std::string file;
    std::int64_t major, minor;
    std::size_t products, nonRenewing, groups, subscriptions;
    std::string storefront;
    std::optional<std::string> locale;
    std::int64_t timeRate;
    std::size_t simulatedErrors;
  };
  const std::vector<Row> rows = {
      {"apple-backyardbirds-v3-consumables-tiered-free-trials.storekit", 3, 0, 6, 0, 1, 3, "USA", "en_US", 0, 9},
      {"apple-foodtruck-v2-payasyougo-intro-code-offers-arabic.storekit", 2, 0, 1, 0, 1, 2, "USA", std::nullopt, 0, 0},
      {"apple-skdemo-v2-all-four-product-types.storekit", 2, 0, 6, 1, 1, 3, "USA", std::nullopt, 15, 0},
      {"pocketcasts-v4-prt-storefront-two-groups-fast-timerate.storekit", 4, 0, 0, 0, 2, 6, "PRT", "en_US", 1004, 9},
      {"revenuecat-v3-four-groups-promo-code-offers-error-sim.storekit", 3, 0, 2, 0, 4, 9, "USA", "en_US", 13, 9},
      {"revenuecat-v3-synced-six-groups-paygo-promo-offers.storekit", 3, 0, 2, 1, 6, 13, "USA", "en_US", 0, 9},
      {"revenuecat-v4-esp-storefront-ptbr-locale-group-localization.storekit", 4, 0, 2, 0, 2, 4, "ESP", "pt_BR", 0, 9},
      {"revenuecat-v5-billing-plans-intro-offers-array.storekit", 5, 0, 2, 1, 2, 4, "USA", "en_US", 0, 0},
      {"storehelper-v1.1-legacy-settings-payupfront-intro.storekit", 1, 1, 5, 0, 1, 3, "USA", "en_US", 1, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.file);
    const StoreKitConfiguration configuration = loadStoreKitConfiguration(dataDir / row.file);
    EXPECT_EQ(configuration.version, (StoreKitConfiguration::Version{row.major, row.minor}));
    EXPECT_EQ(configuration.products.size(), row.products);
    EXPECT_EQ(configuration.nonRenewingSubscriptions.size(), row.nonRenewing);
    EXPECT_EQ(configuration.subscriptionGroups.size(), row.groups);
    EXPECT_EQ(subscriptionCount(configuration), row.subscriptions);
    EXPECT_EQ(configuration.settings.storefront, row.storefront);
    EXPECT_EQ(configuration.settings.locale, row.locale);
    EXPECT_EQ(configuration.settings.timeRate, row.timeRate);
    EXPECT_EQ(configuration.settings.storeKitErrors.size(), row.simulatedErrors);
    // The same bytes give the same configuration when read from memory.
    EXPECT_EQ(parseStoreKitConfiguration(readFixture(row.file), row.file), configuration);
  }
}

TEST(StoreKitConformance, ProductFactsFromTheFixtures) {
  SKIP_WITHOUT_SHARED_FIXTURES();
  struct Row {
    std::string file, productID;
    ProductType type;
    std::string price;
    std::optional<std::string> period;  // renewal period of a subscription
    std::int32_t groupNumber;
    std::string firstLocale, firstDisplayName;
  };
  const std::vector<Row> rows = {
      {"apple-skdemo-v2-all-four-product-types.storekit", "nonRenewing.standard", ProductType::nonRenewingSubscription,
       "9.99", std::nullopt, 0, "en_US", "Standard 1 Year Service Access"},
      {"apple-skdemo-v2-all-four-product-types.storekit", "consumable.fuel.octane87", ProductType::consumable, "0.99",
       std::nullopt, 0, "en_US", "Fuel87"},
      {"apple-skdemo-v2-all-four-product-types.storekit", "subscription.standard",
       ProductType::autoRenewableSubscription, "2.99", "P1M", 3, "en_US", "Standard"},
      {"storehelper-v1.1-legacy-settings-payupfront-intro.storekit", "com.rarcher.subscription.vip.gold",
       ProductType::autoRenewableSubscription, "19.99", "P1M", 1, "en_US", "Gold. Weekly Home Visits"},
      {"revenuecat-v3-synced-six-groups-paygo-promo-offers.storekit", "test_refname2",
       ProductType::autoRenewableSubscription, "0.99", "P2M", 2, "en_US", "test2"},
      {"revenuecat-v3-synced-six-groups-paygo-promo-offers.storekit", "P2", ProductType::autoRenewableSubscription,
       "4.99", "P1M", 2, "", ""},
      {"revenuecat-v3-synced-six-groups-paygo-promo-offers.storekit", "greenie_annual",
       ProductType::autoRenewableSubscription, "99.99", "P1Y", 1, "en_GB", "Annual"},
      {"revenuecat-v5-billing-plans-intro-offers-array.storekit", "lifetime", ProductType::nonConsumable, "199.99",
       std::nullopt, 0, "en_US", "Lifetime subscription"},
      {"revenuecat-v5-billing-plans-intro-offers-array.storekit", "com.revenuecat.annual_with_commitment",
       ProductType::autoRenewableSubscription, "11.88", "P1Y", 1, "en_US", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.file + " " + row.productID);
    const StoreKitConfiguration configuration = loadStoreKitConfiguration(dataDir / row.file);
    const Product* product = configuration.findProduct(row.productID);
    ASSERT_NE(product, nullptr);
    EXPECT_EQ(product->type, row.type);
    EXPECT_EQ(product->price.description(), row.price);
    if (row.firstLocale.empty()) {
      EXPECT_TRUE(product->localizations.empty());
    } else {
      ASSERT_FALSE(product->localizations.empty());
      EXPECT_EQ(product->localizations[0].locale, row.firstLocale);
      EXPECT_EQ(product->localizations[0].displayName, row.firstDisplayName);
    }
    const Subscription* subscription = configuration.findSubscription(row.productID);
    ASSERT_EQ(subscription != nullptr, row.period.has_value());
    if (subscription != nullptr) {
      EXPECT_EQ(subscription->recurringSubscriptionPeriod.iso8601, *row.period);
      EXPECT_EQ(subscription->groupNumber, row.groupNumber);
    }
  }
}

TEST(StoreKitConformance, OfferFactsFromTheFixtures) {
  SKIP_WITHOUT_SHARED_FIXTURES();
  enum class Kind { introductory, promotional, code };
  struct Row {
    std::string file, productID;
    Kind kind;
    std::size_t index;
    PaymentMode mode;
    Period period;
    std::int32_t numberOfPeriods;
    std::string price;
    std::string offerID;  // promotional offers only
  };
  using enum Period::Unit;
  const std::vector<Row> rows = {
      {"apple-skdemo-v2-all-four-product-types.storekit",
       "subscription.pro",
       Kind::introductory,
       0,
       PaymentMode::payUpFront,
       {"P2M", month, 2},
       1,
       "1.99",
       ""},
      {"apple-foodtruck-v2-payasyougo-intro-code-offers-arabic.storekit",
       "socialfeedplus.monthly",
       Kind::introductory,
       0,
       PaymentMode::payAsYouGo,
       {"P1M", month, 1},
       3,
       "2.49",
       ""},
      {"apple-foodtruck-v2-payasyougo-intro-code-offers-arabic.storekit",
       "socialfeedplus.yearly",
       Kind::code,
       0,
       PaymentMode::payUpFront,
       {"P1Y", year, 1},
       1,
       "29.99",
       ""},
      // A free trial that still carries the editor's leftover price of 0.99.
      {"pocketcasts-v4-prt-storefront-two-groups-fast-timerate.storekit",
       "com.pocketcasts.plus.yearly.referral",
       Kind::introductory,
       0,
       PaymentMode::free,
       {"P2M", month, 2},
       1,
       "0",
       ""},
      {"revenuecat-v3-four-groups-promo-code-offers-error-sim.storekit",
       "com.revenuecat.weekly_1.99.3_day_intro",
       Kind::promotional,
       0,
       PaymentMode::free,
       {"P3D", day, 3},
       1,
       "0",
       "com.revenuecat.weekly_1.99.3_free_days"},
      {"revenuecat-v3-synced-six-groups-paygo-promo-offers.storekit",
       "P1",
       Kind::promotional,
       2,
       PaymentMode::payAsYouGo,
       {"P1W", week, 1},
       3,
       "0.99",
       "deema_promo2_offer_id"},
      {"revenuecat-v3-synced-six-groups-paygo-promo-offers.storekit",
       "P1",
       Kind::code,
       2,
       PaymentMode::payAsYouGo,
       {"P1W", week, 1},
       5,
       "0.99",
       ""},
      {"revenuecat-v5-billing-plans-intro-offers-array.storekit",
       "com.revenuecat.monthly_4.99.1_week_intro",
       Kind::promotional,
       1,
       PaymentMode::payAsYouGo,
       {"P1M", month, 1},
       2,
       "20.15",
       "com.revenuecat.monthly_4.99.1_week_intro.pay_as_you_go"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.file + " " + row.productID + " offer " + std::to_string(row.index));
    const StoreKitConfiguration configuration = loadStoreKitConfiguration(dataDir / row.file);
    const Subscription* subscription = configuration.findSubscription(row.productID);
    ASSERT_NE(subscription, nullptr);
    const Offer* offer = nullptr;
    if (row.kind == Kind::introductory && subscription->introductoryOffer) offer = &*subscription->introductoryOffer;
    if (row.kind == Kind::promotional && row.index < subscription->promotionalOffers.size()) {
      offer = &subscription->promotionalOffers[row.index];
      EXPECT_EQ(subscription->promotionalOffers[row.index].offerID, row.offerID);
    }
    if (row.kind == Kind::code && row.index < subscription->codeOffers.size())
      offer = &subscription->codeOffers[row.index];
    ASSERT_NE(offer, nullptr);
    EXPECT_EQ(offer->paymentMode, row.mode);
    EXPECT_EQ(offer->period, row.period);
    EXPECT_EQ(offer->numberOfPeriods, row.numberOfPeriods);
    EXPECT_EQ(offer->price.description(), row.price);
  }
}

TEST(StoreKitConformance, SettingsAndLocalizationDetailsFromTheFixtures) {
  SKIP_WITHOUT_SHARED_FIXTURES();
  const StoreKitConfiguration errors =
      loadStoreKitConfiguration(dataDir / "revenuecat-v3-four-groups-promo-code-offers-error-sim.storekit");
  EXPECT_EQ(errors.settings.compatibilityTimeRates, (std::vector<CompatibilityTimeRate>{{"3", 6}}));
  EXPECT_EQ(errors.settings.storeKitErrors[8],
            (SimulatedError{"Offer Code Redeem Sheet", false, SimulatedError::Selection{"generic", 4}}));
  EXPECT_EQ(errors.settings.storeKitErrors[0].current, std::nullopt);
  EXPECT_EQ(errors.subscriptionOffersKeyPair, (SubscriptionOffersKeyPair{"C815358F", "REDACTED"}));
  const CodeOffer& code = errors.findSubscription("com.revenuecat.monthly_4.99.1_week_intro")->codeOffers.at(0);
  EXPECT_EQ(code.eligibility, (std::vector<std::string>{"existing", "expired", "new"}));
  EXPECT_TRUE(code.isStackable);

  const Settings legacy =
      loadStoreKitConfiguration(dataDir / "storehelper-v1.1-legacy-settings-payupfront-intro.storekit").settings;
  EXPECT_EQ(legacy.storeKitError, 0);
  EXPECT_TRUE(legacy.compatibilityTimeRates.empty());

  const Settings skdemo =
      loadStoreKitConfiguration(dataDir / "apple-skdemo-v2-all-four-product-types.storekit").settings;
  EXPECT_EQ(skdemo.compatibilityTimeRates, (std::vector<CompatibilityTimeRate>{{"", 6}}));
  EXPECT_EQ(skdemo.storeKitError, std::nullopt);

  const Settings synced =
      loadStoreKitConfiguration(dataDir / "revenuecat-v3-synced-six-groups-paygo-promo-offers.storekit").settings;
  EXPECT_EQ(synced.applicationInternalID, "1552944963");
  EXPECT_EQ(synced.developerTeamID, "8SXR2327BM");
  EXPECT_EQ(synced.lastSynchronizedDate->description(), "743722291.47019804");

  const StoreKitConfiguration espana =
      loadStoreKitConfiguration(dataDir / "revenuecat-v4-esp-storefront-ptbr-locale-group-localization.storekit");
  ASSERT_EQ(espana.subscriptionGroups[0].localizations.size(), 1u);
  EXPECT_EQ(espana.subscriptionGroups[0].localizations[0], (Localization{"en_US", "Editable Group", "Group 1"}));

  const StoreKitConfiguration foodTruck =
      loadStoreKitConfiguration(dataDir / "apple-foodtruck-v2-payasyougo-intro-code-offers-arabic.storekit");
  const Product* arabic = foodTruck.findProduct("socialfeedplus.monthly");
  ASSERT_EQ(arabic->localizations.size(), 2u);
  EXPECT_EQ(arabic->localizations[1].locale, "ar");
}

// Hand-made files: compact, oldest layout, keys missing or null, unknown keys everywhere.
TEST(StoreKitConfiguration, ToleratedVariants) {
  const std::string subscription =
      R"({"productID":"s","displayPrice":"6.00","groupNumber":2,"recurringSubscriptionPeriod":"P1W","future":[1])";
  const auto file = [&](const std::string& subscriptionTail, const std::string& topTail = "") {
    return R"({"products":[],"subscriptionGroups":[{"id":"G","subscriptions":[)" + subscription + subscriptionTail +
           R"(]}],"version":{"major":1,"minor":0})" + topTail + "}";
  };
  const StoreKitConfiguration oldest = parseStoreKitConfiguration(file("}"), "old");
  EXPECT_EQ(oldest.identifier, std::nullopt);
  EXPECT_EQ(oldest.settings, Settings{});
  const Subscription& s = oldest.subscriptionGroups[0].subscriptions[0];
  EXPECT_EQ(s.subscriptionGroupID, "G");
  EXPECT_EQ(s.price, Decimal(6));
  EXPECT_EQ(s.introductoryOffer, std::nullopt);

  // The introductory offer falls back to the first entry of the list.
  const std::string listed =
      R"(,"introductoryOffers":[{"paymentMode":"payUpFront","subscriptionPeriod":"P12M","displayPrice":"10000"},)"
      R"({"paymentMode":"free","subscriptionPeriod":"P1W"}]})";
  const Offer intro =
      *parseStoreKitConfiguration(file(listed), "list").subscriptionGroups[0].subscriptions[0].introductoryOffer;
  EXPECT_EQ(intro.period, (Period{"P12M", Period::Unit::month, 12}));
  EXPECT_EQ(intro.price, Decimal(10000));
  // ...but the single offer wins over the list.
  const std::string both = R"(,"introductoryOffer":{"paymentMode":"free","subscriptionPeriod":"P3D"},)"
                           R"("introductoryOffers":[{"paymentMode":"free","subscriptionPeriod":"P1Y"}]})";
  const StoreKitConfiguration preferred = parseStoreKitConfiguration(file(both), "both");
  EXPECT_EQ(preferred.subscriptionGroups[0].subscriptions[0].introductoryOffer->period.unit, Period::Unit::day);

  const std::string nulls = R"(,"introductoryOffer":null,"adHocOffers":null})";
  const StoreKitConfiguration withBom = parseStoreKitConfiguration(
      "\xEF\xBB\xBF" + file(nulls, R"(,"identifier":"X","settings":{"_locale":"ja","_timeRate":null,"_new":{}},"x":0)"),
      "bom");
  EXPECT_EQ(withBom.identifier, "X");
  EXPECT_EQ(withBom.settings.locale, "ja");
  EXPECT_EQ(withBom.settings.timeRate, 0);
}

TEST(StoreKitConfiguration, MalformedInputsNameThePathAndReason) {
  const std::string version = R"("version":{"major":3,"minor":0})";
  const std::string good =
      R"({"productID":"p","displayPrice":"0.99","groupNumber":1,"recurringSubscriptionPeriod":"P1M")";
  const auto withSubscription = [&](const std::string& tail) {
    return R"({"products":[],"subscriptionGroups":[{"id":"G","subscriptions":[{"productID":"a","displayPrice":"1","groupNumber":1,)"
           R"("recurringSubscriptionPeriod":"P1M"},)" +
           good + tail + "]}]," + version + "}";
  };
  const auto withProduct = [&](const std::string& product) {
    return R"({"products":[{"productID":"c","type":"Consumable","displayPrice":"1"},)" + product +
           R"(],"subscriptionGroups":[],)" + version + "}";
  };
  const auto withSettings = [&](const std::string& settings) {
    return R"({"products":[],"subscriptionGroups":[],"settings":)" + settings + "," + version + "}";
  };
  const std::string offer = R"(,"introductoryOffer":{"subscriptionPeriod":"P1W","paymentMode":)";
  const std::string path = "subscriptionGroups[0].subscriptions[1].";
  struct Row {
    std::string text, path, reason;
  };
  const std::vector<Row> rows = {
      {"", "",
       "The given data was not valid JSON: syntax error while parsing value - unexpected end of input; expected '[', "
       "'{', or a literal (at byte 1)."},
      {"[]", "", "expected object, found array"},
      {R"({"products":[],"subscriptionGroups":[]})", "version", "required key is missing"},
      {R"({"products":[],"subscriptionGroups":[],"version":{"major":3.5,"minor":0}})", "version.major",
       "expected an integer, found 3.5"},
      {R"({"products":null,"subscriptionGroups":[],)" + version + "}", "products", "required value is null"},
      {withSubscription(offer + R"("weekly"}})"), path + "introductoryOffer.paymentMode",
       R"(unknown payment mode "weekly" (expected one of "free", "payAsYouGo", "payUpFront"))"},
      {withSubscription(offer + R"("payUpFront"}})"), path + "introductoryOffer.displayPrice",
       "required key is missing"},
      {withSubscription(offer + R"("payAsYouGo","displayPrice":"0.99","numberOfPeriods":0}})"),
       path + "introductoryOffer.numberOfPeriods", "integer 0 is out of range 1...1000000"},
      {withSubscription(R"(,"adHocOffers":[{"paymentMode":"free","subscriptionPeriod":"P1W"}]})"),
       path + "adHocOffers[0].offerID", "required key is missing"},
      {withSubscription(R"(,"adHocOffers":[{"offerID":"o","paymentMode":"free","subscriptionPeriod":"P1W"},)"
                        R"({"offerID":"o","paymentMode":"free","subscriptionPeriod":"P1M"}]})"),
       path + "adHocOffers[1].offerID", R"(offer identifier "o" is repeated)"},
      {withSubscription(
           R"(,"codeOffers":[{"paymentMode":"free","subscriptionPeriod":"P1W","eligibility":["new",3]}]})"),
       path + "codeOffers[0].eligibility[1]", "expected string, found number"},
      {withSubscription(R"(,"subscriptionGroupID":"H"})"), path + "subscriptionGroupID",
       R"("H" differs from the enclosing group's id "G")"},
      {withSubscription(R"(,"type":"Consumable"})"), path + "type",
       R"(unknown subscription type "Consumable" (expected one of "RecurringSubscription"))"},
      {withSubscription(R"(,"productID":"a"})"), path + "productID", R"(product identifier "a" is repeated)"},
      {withSubscription(R"(,"localizations":[{"displayName":"x"}]})"), path + "localizations[0].locale",
       "required key is missing"},
      {withProduct(R"({"productID":"c","type":"NonConsumable","displayPrice":"2"})"), "products[1].productID",
       R"(product identifier "c" is repeated)"},
      {withProduct(R"({"productID":"d","type":"RecurringSubscription","displayPrice":"2"})"), "products[1].type",
       R"(unknown product type "RecurringSubscription" (expected one of "Consumable", "NonConsumable", "NonRenewingSubscription"))"},
      {withProduct(R"({"productID":"d","type":"Consumable","displayPrice":0.99})"), "products[1].displayPrice",
       "expected string, found number"},
      {withSettings(R"({"_storefront":"US"})"), "settings._storefront",
       R"(storefront "US" is not a three-letter country code)"},
      {withSettings(R"({"_timeRate":-1})"), "settings._timeRate", "integer -1 is out of range 0...2147483647"},
      {withSettings(R"({"_compatibilityTimeRate":{"3":"6"}})"), "settings._compatibilityTimeRate.3",
       "expected number, found string"},
      {withSettings(R"({"_storeKitErrors":[{"name":"Purchase","current":{"type":"generic"}}]})"),
       "settings._storeKitErrors[0].current.index", "required key is missing"},
      {withSettings(R"({"_lastSynchronizedDate":1e999})"), "settings._lastSynchronizedDate",
       "date 1e999 is out of range"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text);
    try {
      parseStoreKitConfiguration(row.text, "Test.storekit");
      ADD_FAILURE() << "no error";
    } catch (const StoreKitConfigurationError& error) {
      EXPECT_EQ(error.file(), "Test.storekit");
      EXPECT_EQ(error.path(), row.path);
      EXPECT_EQ(error.reason(), row.reason);
      EXPECT_EQ(std::string(error.what()), "Test.storekit: " + (row.path.empty() ? "" : row.path + ": ") + row.reason);
    }
  }
}

TEST(StoreKitConfiguration, PeriodTexts) {
  const auto withPeriod = [](const std::string& period) {
    return R"({"products":[],"subscriptionGroups":[{"id":"G","subscriptions":[{"productID":"p","displayPrice":"1",)"
           R"("groupNumber":1,"recurringSubscriptionPeriod":")" +
           period + R"("}]}],"version":{"major":1,"minor":0}})";
  };
  for (const auto& [text, unit, count] :
       std::vector<std::tuple<std::string, Period::Unit, int>>{{"P3D", Period::Unit::day, 3},
                                                               {"P1W", Period::Unit::week, 1},
                                                               {"P6M", Period::Unit::month, 6},
                                                               {"P10Y", Period::Unit::year, 10}}) {
    const StoreKitConfiguration configuration = parseStoreKitConfiguration(withPeriod(text), "t");
    EXPECT_EQ(configuration.subscriptionGroups[0].subscriptions[0].recurringSubscriptionPeriod,
              (Period{text, unit, count}));
  }
  for (const std::string text :
       {"", "P", "PM", "P0M", "P-1M", "P+1M", "p1m", "P1m", "P1Y2M", "PT1H", "P1.5M", "1M", "P1 M", "P99999999999M"}) {
    EXPECT_THROW(parseStoreKitConfiguration(withPeriod(text), "t"), StoreKitConfigurationError) << text;
  }
}

TEST(StoreKitConfiguration, PriceTexts) {
  const auto withPrice = [](const std::string& price) {
    return R"({"products":[{"productID":"p","type":"Consumable","displayPrice":")" + price +
           R"("}],"subscriptionGroups":[],"version":{"major":1,"minor":0}})";
  };
  for (const auto& [text, exact] : std::vector<std::pair<std::string, Decimal>>{
           {"29", Decimal(29)},
           {"0.5", Decimal(5, -1)},
           {"6.00", Decimal(6)},
           {"10000", Decimal(10000)},
           {"0.99", Decimal(99, -2)},
           {"12345678901234567890.123456789012345678",
            *Decimal::fromString("12345678901234567890.123456789012345678")}}) {
    const Decimal price = parseStoreKitConfiguration(withPrice(text), "t").products[0].price;
    EXPECT_EQ(price, exact) << text;
    EXPECT_EQ(price.description(), exact.description()) << text;
  }
  for (const std::string text : {"", "-1", "+1", "1.", ".5", " 1", "1 ", "1e2", "1,99", "$1", "NaN", "1.2.3",
                                 "1234567890123456789012345678901234567.89"}) {
    EXPECT_THROW(parseStoreKitConfiguration(withPrice(text), "t"), StoreKitConfigurationError) << text;
  }
}

TEST(StoreKitConfiguration, UnreadableFiles) {
  for (const auto& [path, reason] : std::vector<std::pair<std::filesystem::path, std::string>>{
           {ownDataDir / "missing.storekit", "cannot be opened: No such file or directory"},
           {ownDataDir, "is a directory"},
           {std::filesystem::path(VELQUIST_SOURCE_DIR) / "README.md", "The given data was not valid JSON"}}) {
    try {
      loadStoreKitConfiguration(path);
      ADD_FAILURE() << path;
    } catch (const StoreKitConfigurationError& error) {
      EXPECT_EQ(error.file(), path.string());
      EXPECT_EQ(error.reason().substr(0, reason.size()), reason);
    }
  }
}

/// Loading either succeeds or throws StoreKitConfigurationError; anything else escapes and
/// fails the test (and a crash fails the whole program under the sanitizers).
void expectLoadsOrRefuses(const std::string& text) {
  try {
    parseStoreKitConfiguration(text, "mutated");
  } catch (const StoreKitConfigurationError&) {
  }
}

TEST(StoreKitConfiguration, TruncatedAndByteMutatedFilesNeverCrash) {
  std::mt19937 random(20240611);  // fixed seed: the same inputs on every run
  std::vector<std::filesystem::path> files = {exampleFile};
  for (const auto& folder : {ownDataDir, dataDir}) {
    if (!std::filesystem::is_directory(folder)) continue;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.path().extension() == ".storekit") files.push_back(entry.path());
    }
  }
  for (const auto& path : files) {
    const std::string text = readFile(path);
    for (std::size_t cut = 0; cut < text.size(); cut += 97) expectLoadsOrRefuses(text.substr(0, cut));
    for (int round = 0; round < 50; ++round) {
      std::string mutated = text;
      mutated[random() % mutated.size()] = static_cast<char>(random() % 256);
      expectLoadsOrRefuses(mutated);
    }
  }
}

TEST(StoreKitConfiguration, OurOwnCatalogueFiles) {
  const StoreKitConfiguration demo = loadStoreKitConfiguration(exampleFile);
  EXPECT_EQ(demo.products.size(), 2u);
  EXPECT_EQ(demo.nonRenewingSubscriptions.size(), 1u);
  EXPECT_EQ(subscriptionCount(demo), 5u);
  EXPECT_EQ(demo.settings.storefront, "USA");
  EXPECT_EQ(demo.settings.timeRate, 6);
  const Subscription* monthly = demo.findSubscription("com.velquist.demo.pro.monthly");
  ASSERT_NE(monthly, nullptr);
  EXPECT_EQ(monthly->price.description(), "9.99");
  ASSERT_TRUE(monthly->introductoryOffer.has_value());
  EXPECT_EQ(monthly->introductoryOffer->paymentMode, PaymentMode::payAsYouGo);
  EXPECT_EQ(monthly->introductoryOffer->numberOfPeriods, 3);
  ASSERT_EQ(monthly->promotionalOffers.size(), 2u);
  EXPECT_EQ(monthly->promotionalOffers[1].offerID, "loyalty.trial");
  EXPECT_EQ(monthly->promotionalOffers[1].price.description(), "0");
  EXPECT_EQ(demo.findSubscription("com.velquist.demo.cloud.quarterly")->introductoryOffer, std::nullopt);

  const StoreKitConfiguration legacy = loadStoreKitConfiguration(ownDataDir / "legacy_v1.storekit");
  EXPECT_EQ(legacy.version, (StoreKitConfiguration::Version{1, 0}));
  EXPECT_EQ(legacy.settings.storefront, "USA");  // empty settings: the defaults
  EXPECT_EQ(legacy.findSubscription("legacy.monthly")->introductoryOffer, std::nullopt);

  const StoreKitConfiguration japan = loadStoreKitConfiguration(ownDataDir / "japan_store.storekit");
  EXPECT_EQ(japan.settings.storefront, "JPN");
  EXPECT_EQ(japan.settings.locale, "ja");
  EXPECT_TRUE(japan.settings.askToBuyEnabled);
  EXPECT_EQ(japan.settings.timeRate, 1005);
  const Subscription* yearly = japan.findSubscription("jp.premium.yearly");
  ASSERT_NE(yearly, nullptr);
  EXPECT_EQ(yearly->price.description(), "10000");
  ASSERT_TRUE(yearly->introductoryOffer.has_value());  // from the offers list
  EXPECT_EQ(yearly->introductoryOffer->price.description(), "0");  // free, whatever price is left on it
}

TEST(StoreKitConformance, FixturesWithValuesOfTheWrongKindNeverCrash) {
  SKIP_WITHOUT_SHARED_FIXTURES();
  // Every value of two rich files replaced in turn by null, a string, a fraction and
  // an object.
  const std::vector<foundation::JsonValue> replacements = {foundation::JsonValue(), foundation::JsonValue("P1X"),
                                                           foundation::JsonValue::number("0.5"),
                                                           foundation::JsonValue(foundation::JsonValue::Object{})};
  std::size_t visited = 0;
  for (const std::string file : {"revenuecat-v3-four-groups-promo-code-offers-error-sim.storekit",
                                 "revenuecat-v5-billing-plans-intro-offers-array.storekit"}) {
    foundation::JsonValue document = foundation::parseJson(readFixture(file));
    // Replaces `node`, a part of `document`, by each replacement in turn, restores it and descends.
    std::function<void(foundation::JsonValue&)> visit = [&](foundation::JsonValue& node) {
      const foundation::JsonValue saved = node;
      for (const foundation::JsonValue& replacement : replacements) {
        node = replacement;
        expectLoadsOrRefuses(foundation::toJsonText(document));
      }
      node = saved;
      ++visited;
      // Later elements of an array repeat the shape of the first.
      if (node.kind() == foundation::JsonValue::Kind::array) {
        if (!node.arrayValue().empty()) visit(node.arrayValue().front());
      } else if (node.kind() == foundation::JsonValue::Kind::object) {
        for (auto& member : node.objectValue()) visit(member.second);
      }
    };
    visit(document);
  }
  EXPECT_GT(visited, 150u);
}

}  // namespace
}  // namespace velquist::sandbox
