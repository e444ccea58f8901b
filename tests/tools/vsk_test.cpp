// End-to-end tests of the command-line tool: each case runs the real `vsk` binary. What the
// library computes is tested with it; here each command's arguments must reach it and its
// answers, refusals and exit codes come out as the tool prints them.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "velquist/foundation/json.h"

namespace {

namespace fs = std::filesystem;

struct RunResult {
  int exitCode = -1;
  std::string out, err;
};

std::string slurp(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string quoted(const std::string& argument) {
  std::string result = "'";
  for (char c : argument) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return result + "'";
}

RunResult runVsk(const std::vector<std::string>& arguments) {
  const auto dir = fs::temp_directory_path() / ("vsk_test_" + std::to_string(::getpid()) + "_" + std::to_string(std::rand()));
  fs::create_directories(dir);
  std::string command = "timeout 60 " + quoted(VSK_PATH);  // a hung tool fails its test
  for (const auto& argument : arguments) command += " " + quoted(argument);
  command += " >" + quoted((dir / "out").string()) + " 2>" + quoted((dir / "err").string());
  const int status = std::system(command.c_str());
  RunResult result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(dir / "out"), slurp(dir / "err")};
  if (result.exitCode == 124) ADD_FAILURE() << "Gave up waiting for vsk " << arguments.at(0) << " to end (waited 60 s)";
  fs::remove_all(dir);
  return result;
}

std::string writeTemporary(const std::string& name, const std::string& contents) {
  const auto path = fs::temp_directory_path() / ("vsk_test_" + std::to_string(::getpid()) + "_" + name);
  std::ofstream(path) << contents;
  return path.string();
}

std::string example(const char* name) { return std::string(VELQUIST_SOURCE_DIR) + "/examples/" + name; }
const std::string demo = example("velquist_demo.storekit");

// Runs `arguments`, expecting success, and returns the output.
std::string succeeds(const std::vector<std::string>& arguments) {
  const RunResult result = runVsk(arguments);
  EXPECT_EQ(result.exitCode, 0) << arguments[0] << ": " << result.err;
  return result.out;
}

void expectContains(const std::string& text, const std::vector<std::string>& parts) {
  for (const auto& part : parts) EXPECT_NE(text.find(part), std::string::npos) << part << "\nin:\n" << text;
}

TEST(Vsk, PrintsWhatEachCommandComputes) {
  const struct {
    std::vector<std::string> arguments;
    std::string expected;
  } cases[] = {
      {{"period", "--locale", "en_US", "P2W"},
       "unit: week\nvalue: 2\ndays: 14\nanalytics: 2_week\ntext: 2 weeks\nshortened: 2 wk\nrecurrent: 2 weekly\n"
       "cldr: 2 weeks\n"},
      {{"period", "P21D", "--locale", "ru_RU"},
       "unit: day\nvalue: 21\ndays: 21\nanalytics: 21_day\ntext: 21 дней\nshortened: 21 день\n"
       "recurrent: 21 ежедневно\ncldr: 21 день\n"},
      {{"price", "4.99", "--locale", "en_US", "--per", "P1W", "--to", "P1Y", "--rounding", "up"},
       "amount: 260.3712140000000510976\ndisplay price: $260.38\n"},
      {{"price", "1234.5", "--locale", "de_DE"}, "amount: 1234.5\ndisplay price: 1.234,50\u00a0€\n"},
      {{"discount", "0.99", "P1W", "2.99", "P1M", "--locale", "en_US"}, "discount: -0.44\ndisplay discount: -44%\n"},
      {{"discount", "12.5", "once", "100", "once", "--locale", "de_DE"}, "discount: 0.88\ndisplay discount: 88\u00a0%\n"},
      {{"decode", "period", example("period.json")}, "Product.SubscriptionPeriod(\n  unit: .week,\n  value: 1\n)\n"},
      {{"decode", "offer", example("offer.json")},
       "Product.SubscriptionOffer(\n  id: Tagged(rawValue: \"winback.3months\"),\n  type: .promotional,\n"
       "  price: 4.99,\n  priceLocale: Locale(en_US),\n  displayPrice: \"$4.99\",\n"
       "  period: Product.SubscriptionPeriod(\n    unit: .month,\n    value: 3\n  ),\n  paymentMode: .payUpFront\n)\n"},
      // Missing products, roles off the paywall and a remote configuration that is no object
      // are reported, and the rest is still shown.
      {{"paywall", writeTemporary("partial.json", R"({"id": "partial", "products": [{"productId": "nope"},
          {"productId": "com.velquist.demo.pro.weekly"}], "remoteConfig": "{\"ios_selected_product_id\": \"nope\"} trailing"})"),
        "--config", demo},
       "paywall partial\nremote configuration: not a JSON object, ignored\nfilter pay-up-front product: yes\n"
       "not in the store: nope\n\ncom.velquist.demo.pro.weekly\n  title: Pro Weekly\n  price: $4.99 / week\n"
       "  per week: $4.99 / week\n  free trial: 3 days free\n"},
      {{"paywall", writeTemporary("roles.json", R"({"id": "roles", "products": [], "remoteConfig":
          {"ios_pay_up_front_product_id": "gone", "ios_filter_pay_up_front_product": 0}})"), "--config", demo},
       "paywall roles\nremote configuration: 2 keys\nfilter pay-up-front product: no\n"
       "pay up front: gone is not on the paywall\n"},
  };
  for (const auto& c : cases) EXPECT_EQ(succeeds(c.arguments), c.expected) << c.arguments[0] << " " << c.arguments[1];
  expectContains(succeeds({"decode", "subscription-info", example("subscription_info.json")}),
                 {"  promotionalOffers: [\n    [0]: Product.SubscriptionOffer(\n"});
  expectContains(succeeds({"--help"}), {"period <ISO-8601 period>", "paywall <paywall.json> --config <file.storekit>"});
  expectContains(succeeds({"price", "--help"}), {"Usage: vsk price"});
}

TEST(Vsk, BadInputGivesOneLineAndExitCodeTwo) {
  const std::string paywall = example("velquist_demo_paywall.json");
  const struct {
    std::vector<std::string> arguments;
    const char* expectedInError;
  } cases[] = {
      {{"period", "P1Y2M"}, "vsk period: 'P1Y2M' is not a period"},
      {{"period", "P9223372036854775807Y"}, "too long to count in days"},
      {{"period"}, "expected one period"},
      {{"period", "P1W", "--locale"}, "vsk period: option --locale needs a value"},
      {{"price", "9.99"}, "--locale is required"},
      {{"price", "9.99$", "--locale", "en_US"}, "'9.99$' is not an amount"},
      {{"price", "9.99", "--locale", "en_US", "--rounding", "nearest"}, "unknown rounding rule 'nearest'"},
      {{"price", "9.99", "--locale", "en_US", "--per", "P1W"}, "--per and --to go together"},
      {{"price", "9.99", "--locale", "en_US", "--per", "P0W", "--to", "P1Y"}, "'P0W' is not a period"},
      {{"price", "9.99", "--currency", "EUR"}, "unknown option --currency"},
      {{"discount", "39.99", "P1Y", "4.99"}, "expected <amount> <period> <amount> <period>"},
      {{"decode", "subscription-info", example("broken_subscription_info.json")},
       "promotionalOffers[0].paymentMode: Cannot initialize PaymentMode from invalid String value freeTrial"},
      {{"decode", "offer", writeTemporary("binary.json", std::string("\xff\xfe\x00\x01", 4))}, "not valid JSON"},
      {{"decode", "period", "/nonexistent/period.json"}, "cannot read /nonexistent/period.json"},
      {{"decode", "product", example("period.json")}, "unknown type 'product'"},
      {{"products"}, "expected one .storekit file"},
      {{"products", "/nonexistent/x.storekit"}, "/nonexistent/x.storekit: cannot be opened"},
      {{"products", demo, "--storefront", "XYZ"}, "storefront option: unknown storefront \"XYZ\""},
      {{"paywall", paywall}, "--config <file.storekit> is required"},
      {{"paywall", "--config", demo}, "expected one paywall document"},
      {{"paywall", "/nonexistent/paywall.json", "--config", demo}, "/nonexistent/paywall.json: cannot be opened"},
      {{"paywall", writeTemporary("paywall.json", R"({"id": "p", "products": [{"productId": "a", "price": "1"}]})"),
        "--config", demo},
       "paywall.json: products[0].price: Expected to decode Decimal but found a string"},
      {{"paywall", paywall, "--config", "/nonexistent/x.storekit"}, "/nonexistent/x.storekit: cannot be opened"},
      {{"simulate", demo}, "expected a .storekit file and a scenario file"},
      {{"simulate", demo, writeTemporary("typo.txt", "# ok\nbuy x\nbuyy x\n")}, "typo.txt:3: cannot read the step 'buyy x'"},
      {{"simulate", demo, example("velquist_demo_scenario.txt"), "--mechanism", "bus"}, "unknown mechanism 'bus'"},
      {{"frobnicate"}, "unknown command 'frobnicate'"},
  };
  for (const auto& c : cases) {
    const RunResult result = runVsk(c.arguments);
    SCOPED_TRACE(c.arguments.back());
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find(c.expectedInError), std::string::npos) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  }
}

TEST(Vsk, ProductsAndPaywallShowTheCatalogueAsTheStoreSellsIt) {
  expectContains(succeeds({"products", demo, "--storefront", "PRT"}),
                 {"storefront: PRT (143453), prices in en_PT@currency=EUR\n",
                  "com.velquist.demo.pro.monthly\n  title: Pro Monthly\n  price: €9.99 (9.99)\n"
                  "  period: 1 month (1_month)\n  group: 20001000\n"
                  "  introductory offer: pay as you go, 1 month, €2.49 (2.49)\n"
                  "  promotional offer winback.monthly: pay as you go, 1 month, €4.99 (4.99)\n"});
  // One JSON object per line in catalogue order, the price as exact decimal text.
  const std::string products = succeeds({"products", demo, "--json", "--locale", "de_DE"});
  EXPECT_EQ(std::count(products.begin(), products.end(), '\n'), 8);
  EXPECT_TRUE(products.starts_with(
      R"({"id":"com.velquist.demo.coins100","displayName":"100 Coins","description":"A hundred coins for the shop",)"
      R"("price":"0.99","priceLocale":"de_US@currency=USD","displayPrice":"$0,99"})" "\n"))
      << products;
  expectContains(products, {R"("displayName":"Pro wöchentlich")", R"("subscriptionPeriod":{"unit":1,"value":1})"});

  const std::string paywall = example("velquist_demo_paywall.json");
  expectContains(succeeds({"paywall", paywall, "--config", demo}),
                 {"paywall velquist.demo.onboarding, variant yearly-first\nremote configuration: 9 keys\n"
                  "filter pay-up-front product: no\n",
                  "\ncom.velquist.demo.pro.monthly  [most popular]\n  title: Pro Monthly\n  price: $9.99 / month\n"
                  "  per week: $2.49 / week\n  discount against com.velquist.demo.pro.weekly: 54%\n\n",
                  "\ncom.velquist.demo.pro.yearly  [selected, highlighted, best value]\n  title: Pro Yearly\n"
                  "  price: $39.99 / year\n  per week: $0.83 / week\n  free trial: 1 week free\n"
                  "  discount against com.velquist.demo.pro.weekly: 85%\n"});
  // The same paywall in German as one JSON document.
  const auto json =
      velquist::foundation::parseJson(succeeds({"paywall", paywall, "--config", demo, "--locale", "de_DE", "--json"}));
  const auto* yearly = json.find("products");
  ASSERT_TRUE(yearly && yearly->arrayValue().size() == 4u);
  EXPECT_EQ(velquist::foundation::toJsonText(yearly->arrayValue()[2]),
            R"({"id":"com.velquist.demo.pro.yearly","title":"Pro Yearly","roles":["selected","highlighted","best value"],)"
            R"("price":"$39,99 / Jahr","pricePerWeek":"$0,83 / Woche","freeTrial":"1 Woche kostenlos",)"
            R"("discount":")" "85\u00a0%" R"("})");
  for (const char* key : {"variantID", "filterPayUpFrontProduct"}) ASSERT_NE(json.find(key), nullptr) << key;
  EXPECT_EQ(json.find("variantID")->stringValue(), "yearly-first");
  EXPECT_FALSE(json.find("filterPayUpFrontProduct")->boolValue());
}

TEST(Vsk, SimulatePlaysAScenarioThroughEitherMechanism) {
  // Every classification rule through the sandbox store, as each mechanism logs and hands on
  // the transactions (the expected files were checked line by line against the rules).
  const std::string data = std::string(VELQUIST_TEST_DATA_DIR) + "/";
  EXPECT_EQ(succeeds({"simulate", demo, data + "every_rule.txt"}), slurp(data + "every_rule.listener.out"));
  EXPECT_EQ(succeeds({"simulate", demo, data + "every_rule.txt", "--mechanism", "stream", "--verbose"}),
            slurp(data + "every_rule.stream.out"));

  // A second run in the same state folder gets the unfinished purchase again and knows its renewal.
  const auto state = fs::temp_directory_path() / ("vsk_test_state_" + std::to_string(::getpid()));
  fs::remove_all(state);
  const auto run = [&](const char* name, const char* steps) {
    return succeeds({"simulate", demo, writeTemporary(name, steps), "--state", state.string(), "--mechanism", "stream"});
  };
  const std::string first = run("one.txt", "buy com.velquist.demo.pro.monthly\n");
  expectContains(first, {"\n  log info: filter transaction: 1st purchase\n"});
  EXPECT_EQ(first.find("log info: filter"), first.rfind("log info: filter")) << first;  // once
  const std::string second = run("two.txt", "advance P1M\nfinish all\n");
  EXPECT_TRUE(second.starts_with("> (transactions an earlier run left unfinished)\n"
                                 "  store: com.velquist.demo.pro.monthly purchased #1\n"))
      << second;
  expectContains(second, {"  store: com.velquist.demo.pro.monthly purchased #2 of #1\n  log info: fetch products "
                          "success\n  log info: filter transaction…\n  stream: (nothing)\n"});
  fs::remove_all(state);
}

// A subscription's whole life through the sandbox store: plan changes, billing trouble,
// auto-renew, refunds, offer codes and interrupted purchases, as the real binary prints them.
// The expected files were read line by line against the rules: plan changes by level, grace
// and retry lengths, refunds revoking, a redeemed code and a resolved interruption classified
// as first purchases, upgrade and downgrade renewals as renewals of #1.
TEST(Vsk, SimulateAWholeSubscriptionLifeThroughEitherMechanism) {
  const std::string data = std::string(VELQUIST_TEST_DATA_DIR) + "/";
  for (const std::string mechanism : {"listener", "stream"}) {
    SCOPED_TRACE(mechanism);
    EXPECT_EQ(succeeds({"simulate", demo, data + "store_lifecycle.txt", "--clock", "2026-01-01", "--mechanism", mechanism}),
              slurp(data + "store_lifecycle." + mechanism + ".out"));
  }
}

TEST(Vsk, SimulateALaterRunContinuesAPendingDowngradeABillingRetryACancelledRenewalAndAPriceConsent) {
  const auto state = fs::temp_directory_path() / ("vsk_test_later_" + std::to_string(::getpid()));
  fs::remove_all(state);
  const auto run = [&](const char* name, const char* steps) {
    return succeeds({"simulate", demo, writeTemporary(name, steps), "--clock", "2026-01-01", "--state", state.string()});
  };
  run("first.txt",
      "buy com.velquist.demo.pro.yearly\n"
      "buy com.velquist.demo.pro.monthly\n"     // a downgrade, waiting for the trial week to end
      "buy com.velquist.demo.cloud.quarterly\n"
      "cancel com.velquist.demo.cloud.quarterly\n"
      "grace-period on\n"
      "billing-retry on\n"
      "advance P8D\n"                          // the yearly's renewal fails to bill
      "finish all\n");
  const std::string second = run("second.txt",
                                 "status com.velquist.demo.pro.yearly\n"
                                 "status com.velquist.demo.cloud.quarterly\n"
                                 "billing-retry off\n"
                                 "status com.velquist.demo.pro.yearly\n"
                                 "advance P3M\n"
                                 "status com.velquist.demo.cloud.quarterly\n"
                                 "consent-sheet defer\n"
                                 "price-increase com.velquist.demo.pro.monthly 12.99\n");
  // The sheet the second run's delegate deferred is shown, and answered, by a third.
  const std::string third = run("third.txt", "show-price-consent\nconsent com.velquist.demo.pro.monthly agree\n");
  fs::remove_all(state);
  EXPECT_EQ(second.find("price consent shown"), std::string::npos) << second;
  expectContains(third, {"> show-price-consent\n"
                         "  store: price consent shown for com.velquist.demo.pro.monthly ($12.99)\n"
                         "> consent com.velquist.demo.pro.monthly agree\n"});
  expectContains(second, {
      // The grace period the first run started: 16 days from the failed renewal on 8 January.
      "> status com.velquist.demo.pro.yearly\n"
      "  status: com.velquist.demo.pro.yearly inGracePeriod expires 2026-01-24T00:00:00Z\n",
      // Fixed: the renewal is the downgrade the first run asked for, under the same original.
      "> billing-retry off\n  store: com.velquist.demo.pro.monthly purchased #4 of #1\n",
      "  status: com.velquist.demo.pro.monthly subscribed expires 2026-02-08T00:00:00Z\n",
      // The cancelled quarterly runs out and is not renewed.
      "  status: com.velquist.demo.cloud.quarterly subscribed expires 2026-04-01T00:00:00Z\n",
      "  status: com.velquist.demo.cloud.quarterly expired expires 2026-04-01T00:00:00Z\n",
  });
  EXPECT_EQ(second.find("cloud.quarterly purchased"), std::string::npos) << second;
}

TEST(Vsk, SimulateStopsAtAStepTheStoreCannotTakeOrCannotRead) {
  const struct {
    std::string steps;
    int exitCode;
    std::string message;
    std::string clock = "2026-01-01";
  } cases[] = {
      {"buy com.velquist.demo.coins100\napprove\n", 1, "steps.txt:2: no purchase waits for approval"},
      {"buy com.velquist.demo.pro.weekly\ncancel com.velquist.demo.cloud.monthly\n", 1, "steps.txt:2: no active"},
      {"redeem com.velquist.demo.pro.monthly nope\n", 1, "has no code offer \"nope\""},
      {"status nope\n", 1, "no product \"nope\""},
      {"price-increase com.velquist.demo.pro.weekly 4,99\n", 2, "cannot read the step"},
      {"redeem com.velquist.demo.pro.monthly\n", 2, "steps.txt:1: cannot read the step"},
      {"status\n", 2, "cannot read the day '2026-02-30'", "2026-02-30"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.steps);
    const auto run = runVsk({"simulate", demo, writeTemporary("steps.txt", c.steps), "--clock", c.clock});
    EXPECT_EQ(run.exitCode, c.exitCode);
    expectContains(run.err, {c.message});
  }
}

// The state folder's user defaults: damage is reported and the run goes on; a write that
// cannot reach its file ends the run with failure.
TEST(Vsk, SimulateReportsDamagedAndUnwritableStateFiles) {
  const auto state = fs::temp_directory_path() / ("vsk_test_damage_" + std::to_string(::getpid()));
  fs::remove_all(state);
  fs::create_directories(state);
  const auto defaults = state / "velquist.application.defaults.json";
  const std::string scenario = writeTemporary("one.txt", "buy com.velquist.demo.coins100\nfinish all\n");
  std::ofstream(defaults) << "garbage";
  RunResult run = runVsk({"simulate", demo, scenario, "--state", state.string()});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  expectContains(run.err, {"velquist.application.defaults.json is damaged"});

  fs::remove(defaults);
  fs::create_directory(defaults);
  run = runVsk({"simulate", demo, scenario, "--state", state.string()});
  EXPECT_EQ(run.exitCode, 1) << run.err;
  expectContains(run.err, {"the run's state was not saved: a write to " + defaults.string()});
  fs::remove_all(state);
}

// Two runs started together on one folder: the second waits for the first, so the ledger
// and the remembered first purchases keep both runs' purchases.
TEST(Vsk, SimulateTwoRunsOnOneFolderLoseNothing) {
  const auto state = fs::temp_directory_path() / ("vsk_test_two_" + std::to_string(::getpid()));
  fs::remove_all(state);
  std::string steps;
  for (int i = 0; i < 10; ++i) steps += "buy com.velquist.demo.coins100\nfinish all\n";
  const std::vector<std::string> arguments{"simulate", demo, writeTemporary("ten.txt", steps), "--state", state};
  RunResult first;
  std::thread other([&] { first = runVsk(arguments); });
  const RunResult second = runVsk(arguments);
  other.join();
  EXPECT_EQ(first.exitCode, 0) << first.err;
  EXPECT_EQ(second.exitCode, 0) << second.err;
  const std::string ledger = slurp(state / "sandbox" / "ledger.json");
  std::size_t purchases = 0;
  for (std::size_t at = 0; (at = ledger.find("\"identifier\"", at)) != std::string::npos; ++at) ++purchases;
  EXPECT_EQ(purchases, 20u) << ledger;
  fs::remove_all(state);
}

}  // namespace
