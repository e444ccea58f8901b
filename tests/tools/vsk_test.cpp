// End-to-end tests of the command-line tool: each case runs the real `vsk` binary.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "velquist/foundation/json.h"

namespace {

struct RunResult {
  int exitCode = -1;
  std::string out;
  std::string err;
};

std::string slurp(const std::filesystem::path& path) {
  std::ifstream file(path);
  std::stringstream buffer;
  buffer << file.rdbuf();
  return buffer.str();
}

std::string quoted(const std::string& argument) {
  std::string result = "'";
  for (char c : argument) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return result + "'";
}

RunResult runVsk(const std::vector<std::string>& arguments) {
  const auto dir = std::filesystem::temp_directory_path() /
                   ("vsk_test_" + std::to_string(::getpid()) + "_" + std::to_string(std::rand()));
  std::filesystem::create_directories(dir);
  std::string command = quoted(VSK_PATH);
  for (const auto& argument : arguments) command += " " + quoted(argument);
  command += " >" + quoted((dir / "out").string()) + " 2>" + quoted((dir / "err").string());
  const int status = std::system(command.c_str());
  RunResult result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(dir / "out"), slurp(dir / "err")};
  std::filesystem::remove_all(dir);
  return result;
}

std::string writeTemporary(const std::string& name, const std::string& contents) {
  const auto path = std::filesystem::temp_directory_path() / ("vsk_test_" + std::to_string(::getpid()) + "_" + name);
  std::ofstream(path) << contents;
  return path.string();
}

std::string example(const char* name) { return std::string(VELQUIST_SOURCE_DIR) + "/examples/" + name; }

TEST(Vsk, PrintsWhatEachCommandComputes) {
  const struct {
    std::vector<std::string> arguments;
    std::string expected;
  } cases[] = {
      {{"period", "P1W"}, "unit: week\nvalue: 1\ndays: 7\nanalytics: 7_day\n"},
      {{"period", "P2W"}, "unit: week\nvalue: 2\ndays: 14\nanalytics: 2_week\n"},
      {{"period", "P3M"}, "unit: month\nvalue: 3\ndays: 84\nanalytics: 3_month\n"},
      {{"period", "P1Y"}, "unit: year\nvalue: 1\ndays: 336\nanalytics: 1_year\n"},
      {{"price", "9.99", "--locale", "en_US"}, "amount: 9.99\ndisplay price: $9.99\n"},
      {{"price", "4.99", "--locale", "en_US", "--per", "P1W", "--to", "P1Y"},
       "amount: 260.3712140000000510976\ndisplay price: $260.37\n"},
      {{"price", "4.99", "--locale", "en_US", "--per", "P1W", "--to", "P1Y", "--rounding", "up"},
       "amount: 260.3712140000000510976\ndisplay price: $260.38\n"},
      {{"price", "1234.5", "--locale", "de_DE"}, "amount: 1234.5\ndisplay price: 1.234,50\u00a0€\n"},
      {{"price", "199", "--locale", "ru_RU"}, "amount: 199\ndisplay price: 199₽\n"},
      {{"discount", "39.99", "P1Y", "4.99", "P1W", "--locale", "en_US"}, "discount: 0.85\ndisplay discount: 85%\n"},
      {{"discount", "0.99", "P1W", "2.99", "P1M", "--locale", "en_US"}, "discount: -0.44\ndisplay discount: -44%\n"},
      {{"discount", "12.5", "once", "100", "once", "--locale", "de_DE"}, "discount: 0.88\ndisplay discount: 88\u00a0%\n"},
      {{"decode", "period", example("period.json")}, "Product.SubscriptionPeriod(\n  unit: .week,\n  value: 1\n)\n"},
      {{"decode", "offer", example("offer.json")},
       "Product.SubscriptionOffer(\n  id: Tagged(rawValue: \"winback.3months\"),\n  type: .promotional,\n"
       "  price: 4.99,\n  priceLocale: Locale(en_US),\n  displayPrice: \"$4.99\",\n"
       "  period: Product.SubscriptionPeriod(\n    unit: .month,\n    value: 3\n  ),\n  paymentMode: .payUpFront\n)\n"},
  };
  for (const auto& c : cases) {
    const RunResult result = runVsk(c.arguments);
    EXPECT_EQ(result.exitCode, 0) << c.arguments[0] << ": " << result.err;
    EXPECT_EQ(result.out, c.expected) << c.arguments[0];
  }
  const RunResult info = runVsk({"decode", "subscription-info", example("subscription_info.json")});
  EXPECT_NE(info.out.find("  promotionalOffers: [\n    [0]: Product.SubscriptionOffer(\n"), std::string::npos)
      << info.out;
}

TEST(Vsk, BadInputGivesOneLineAndExitCodeTwo) {
  const struct {
    std::vector<std::string> arguments;
    const char* expectedInError;
  } cases[] = {
      {{"period", "P1Y2M"}, "vsk period: 'P1Y2M' is not a period"},
      {{"period", "P1w"}, "is not a period"},
      {{"period", "PT1H"}, "is not a period"},
      {{"period", "P-1D"}, "is not a period"},
      {{"period", "P99999999999999999999D"}, "is not a period"},
      {{"period", "P9223372036854775807Y"}, "too long to count in days"},
      {{"period"}, "expected one period"},
      {{"price", "9.99"}, "--locale is required"},
      {{"price", "9.99$", "--locale", "en_US"}, "'9.99$' is not an amount"},
      {{"price", "9.99", "--locale", "en_US", "--rounding", "nearest"}, "unknown rounding rule 'nearest'"},
      {{"price", "9.99", "--locale", "en_US", "--per", "P1W"}, "--per and --to go together"},
      {{"price", "9.99", "--locale", "en_US", "--per", "P0W", "--to", "P1Y"}, "'P0W' is not a period"},
      {{"price", "9.99", "--locale"}, "option --locale needs a value"},
      {{"price", "9.99", "--currency", "EUR"}, "unknown option --currency"},
      {{"discount", "39.99", "P1Y", "4.99"}, "expected <amount> <period> <amount> <period>"},
      {{"discount", "39.99", "yearly", "4.99", "P1W"}, "'yearly' is not a period"},
      {{"decode", "subscription-info", example("broken_subscription_info.json")},
       "promotionalOffers[0].paymentMode: Cannot initialize PaymentMode from invalid String value freeTrial"},
      {{"decode", "period", writeTemporary("unit.json", R"({"unit": 9, "value": 1})")}, "at unit:"},
      {{"decode", "unit", writeTemporary("text.json", R"("month")")}, "typeMismatch"},
      {{"decode", "offer", writeTemporary("binary.json", std::string("\xff\xfe\x00\x01", 4))}, "not valid JSON"},
      {{"decode", "period", "/nonexistent/period.json"}, "cannot read /nonexistent/period.json"},
      {{"decode", "product", example("period.json")}, "unknown type 'product'"},
      {{"products"}, "expected one .storekit file"},
      {{"products", "/nonexistent/x.storekit"}, "/nonexistent/x.storekit: cannot be opened"},
      {{"products", example("velquist_demo.storekit"), "--storefront", "XYZ"},
       "storefront option: unknown storefront \"XYZ\""},
      {{"products", writeTemporary("broken.storekit", R"({"products": []})")}, "broken.storekit: version: required key is missing"},
      {{"paywall", example("velquist_demo_paywall.json")}, "--config <file.storekit> is required"},
      {{"paywall", "--config", example("velquist_demo.storekit")}, "expected one paywall document"},
      {{"paywall", "/nonexistent/paywall.json", "--config", example("velquist_demo.storekit")},
       "/nonexistent/paywall.json: cannot be opened"},
      {{"paywall", writeTemporary("paywall.json", R"({"id": "p", "products": [{"productId": "a", "price": "1"}]})"),
        "--config", example("velquist_demo.storekit")},
       "paywall.json: products[0].price: Expected to decode Decimal but found a string"},
      {{"paywall", example("velquist_demo_paywall.json"), "--config", "/nonexistent/x.storekit"},
       "/nonexistent/x.storekit: cannot be opened"},
      {{"simulate", example("velquist_demo.storekit")}, "expected a .storekit file and a scenario file"},
      {{"simulate", example("velquist_demo.storekit"), writeTemporary("typo.txt", "# ok\nbuy x\nbuyy x\n")},
       "typo.txt:3: cannot read the step 'buyy x'"},
      {{"simulate", example("velquist_demo.storekit"), writeTemporary("ad.txt", "advance P1H\n")},
       "ad.txt:1: cannot read the step 'advance P1H'"},
      {{"simulate", example("velquist_demo.storekit"), example("velquist_demo_scenario.txt"), "--mechanism", "bus"},
       "unknown mechanism 'bus'"},
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

TEST(Vsk, ProductsListsTheCatalogueAsTheStoreSellsIt) {
  const RunResult text = runVsk({"products", example("velquist_demo.storekit"), "--storefront", "PRT"});
  EXPECT_EQ(text.exitCode, 0) << text.err;
  for (const char* line : {"storefront: PRT (143453), prices in en_PT@currency=EUR\n",
                           "com.velquist.demo.pro.monthly\n  title: Pro Monthly\n  price: €9.99 (9.99)\n"
                           "  period: 1 month (1_month)\n  group: 20001000\n"
                           "  introductory offer: pay as you go, 1 month, €2.49 (2.49)\n"
                           "  promotional offer winback.monthly: pay as you go, 1 month, €4.99 (4.99)\n"}) {
    EXPECT_NE(text.out.find(line), std::string::npos) << line << "\nin:\n" << text.out;
  }

  // One JSON object per product, in catalogue order, the price as exact decimal text.
  const RunResult json = runVsk({"products", example("velquist_demo.storekit"), "--json", "--locale", "de_DE"});
  EXPECT_EQ(json.exitCode, 0) << json.err;
  std::vector<std::string> lines;
  std::istringstream stream(json.out);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 8u) << json.out;
  EXPECT_EQ(lines[0],
            R"({"id":"com.velquist.demo.coins100","displayName":"100 Coins","description":"A hundred coins for the shop",)"
            R"("price":"0.99","priceLocale":"de_US@currency=USD","displayPrice":"$0,99"})");
  EXPECT_NE(lines[3].find(R"("displayName":"Pro wöchentlich")"), std::string::npos) << lines[3];
  EXPECT_NE(lines[3].find(R"("subscriptionPeriod":{"unit":1,"value":1})"), std::string::npos) << lines[3];
}

TEST(Vsk, PaywallShowsEachProductWithItsRolesAndPrices) {
  const std::string config = example("velquist_demo.storekit");
  const RunResult english = runVsk({"paywall", example("velquist_demo_paywall.json"), "--config", config});
  EXPECT_EQ(english.exitCode, 0) << english.err;
  for (const char* block :
       {"paywall velquist.demo.onboarding, variant yearly-first\nremote configuration: 9 keys\n"
        "filter pay-up-front product: no\n",
        "\ncom.velquist.demo.pro.weekly  [comparing, full price]\n  title: Pro Weekly\n  price: $4.99 / week\n"
        "  per week: $4.99 / week\n  free trial: 3 days free\n\n",
        "\ncom.velquist.demo.pro.monthly  [most popular]\n  title: Pro Monthly\n  price: $9.99 / month\n"
        "  per week: $2.49 / week\n  discount against com.velquist.demo.pro.weekly: 54%\n\n",
        "\ncom.velquist.demo.pro.yearly  [selected, highlighted, best value]\n  title: Pro Yearly\n"
        "  price: $39.99 / year\n  per week: $0.83 / week\n  free trial: 1 week free\n"
        "  discount against com.velquist.demo.pro.weekly: 85%\n"}) {
    EXPECT_NE(english.out.find(block), std::string::npos) << block << "\nin:\n" << english.out;
  }

  // Products the store lacks, roles naming products not on the paywall and a remote
  // configuration that is not an object are reported, and the rest is still shown.
  const auto document = writeTemporary("partial.json", R"({"id": "partial", "products": [
      {"productId": "nope"}, {"productId": "com.velquist.demo.pro.weekly"}],
      "remoteConfig": "{\"ios_selected_product_id\": \"nope\"} trailing"})");
  const RunResult partial = runVsk({"paywall", document, "--config", config});
  EXPECT_EQ(partial.exitCode, 0) << partial.err;
  EXPECT_EQ(partial.out,
            "paywall partial\nremote configuration: not a JSON object, ignored\nfilter pay-up-front product: yes\n"
            "not in the store: nope\n\ncom.velquist.demo.pro.weekly\n  title: Pro Weekly\n  price: $4.99 / week\n"
            "  per week: $4.99 / week\n  free trial: 3 days free\n");
  const auto roles = writeTemporary("roles.json", R"({"id": "roles", "products": [],
      "remoteConfig": {"ios_pay_up_front_product_id": "gone", "ios_filter_pay_up_front_product": 0}})");
  EXPECT_EQ(runVsk({"paywall", roles, "--config", config}).out,
            "paywall roles\nremote configuration: 2 keys\nfilter pay-up-front product: no\n"
            "pay up front: gone is not on the paywall\n");

  // The same paywall in German as one JSON document.
  const RunResult german =
      runVsk({"paywall", example("velquist_demo_paywall.json"), "--config", config, "--locale", "de_DE", "--json"});
  EXPECT_EQ(german.exitCode, 0) << german.err;
  const auto json = velquist::foundation::parseJson(german.out);
  for (const char* key : {"products", "roles", "filterPayUpFrontProduct"}) ASSERT_NE(json.find(key), nullptr) << key;
  const auto& products = json.find("products")->arrayValue();
  ASSERT_EQ(products.size(), 4u);
  const auto text = [](const velquist::foundation::JsonValue& object, const char* key) {
    const auto* value = object.find(key);
    return value && value->kind() == velquist::foundation::JsonValue::Kind::string ? value->stringValue() : "(none)";
  };
  EXPECT_EQ(text(products[0], "title"), "Pro wöchentlich");
  EXPECT_EQ(text(products[0], "freeTrial"), "3 Tage kostenlos");
  EXPECT_EQ(text(products[0], "discount"), "(none)");
  EXPECT_EQ(text(products[2], "id"), "com.velquist.demo.pro.yearly");
  EXPECT_EQ(text(products[2], "pricePerWeek"), "$0,83 / Woche");
  EXPECT_EQ(text(products[2], "discount"), "85\u00a0%");
  EXPECT_EQ(text(*json.find("roles"), "best value"), "com.velquist.demo.pro.yearly");
  EXPECT_EQ(text(json, "variantID"), "yearly-first");
  EXPECT_EQ(json.find("filterPayUpFrontProduct")->boolValue(), false);
}

// The lines of `text` that start with `prefix`, in order.
std::vector<std::string> linesStartingWith(const std::string& text, const std::string& prefix) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    if (line.starts_with(prefix)) lines.push_back(line);
  }
  return lines;
}

TEST(Vsk, SimulatePlaysAScenarioThroughEitherMechanism) {
  const auto storekit = example("velquist_demo.storekit");
  // Every classification rule through the sandbox store, as each mechanism logs and hands
  // on the transactions (the expected files were read line by line against the rules).
  const std::string data = std::string(VELQUIST_TEST_DATA_DIR) + "/";
  const RunResult listener = runVsk({"simulate", storekit, data + "every_rule.txt"});
  EXPECT_EQ(listener.exitCode, 0) << listener.err;
  EXPECT_EQ(listener.out, slurp(data + "every_rule.listener.out"));
  const RunResult stream = runVsk({"simulate", storekit, data + "every_rule.txt", "--mechanism", "stream", "--verbose"});
  EXPECT_EQ(stream.exitCode, 0) << stream.err;
  EXPECT_EQ(stream.out, slurp(data + "every_rule.stream.out"));

  // The stream keeps its set through the settings client; a second run in the same state
  // folder gets the unfinished purchase again and knows its renewal.
  const auto state = std::filesystem::temp_directory_path() / ("vsk_test_state_" + std::to_string(::getpid()));
  std::filesystem::remove_all(state);
  const auto first = runVsk({"simulate", storekit, writeTemporary("one.txt", "buy com.velquist.demo.pro.monthly\n"),
                             "--state", state.string(), "--mechanism", "stream"});
  ASSERT_EQ(first.exitCode, 0) << first.err;
  EXPECT_EQ(linesStartingWith(first.out, "  log info: filter"),
            std::vector<std::string>{"  log info: filter transaction: 1st purchase"});
  const auto second = runVsk({"simulate", storekit, writeTemporary("two.txt", "advance P1M\nfinish all\n"), "--state",
                              state.string(), "--mechanism", "stream"});
  ASSERT_EQ(second.exitCode, 0) << second.err;
  EXPECT_TRUE(second.out.starts_with("> (transactions an earlier run left unfinished)\n"
                                     "  store: com.velquist.demo.pro.monthly purchased #1\n"))
      << second.out;
  EXPECT_NE(second.out.find("  store: com.velquist.demo.pro.monthly purchased #2 of #1\n"
                            "  log info: fetch products success\n  log info: filter transaction…\n  stream: (nothing)\n"),
            std::string::npos)
      << second.out;
  std::filesystem::remove_all(state);

  // A step the store cannot take stops the run.
  const auto stuck = runVsk({"simulate", storekit, writeTemporary("stuck.txt", "buy com.velquist.demo.coins100\napprove\n")});
  EXPECT_EQ(stuck.exitCode, 1);
  EXPECT_NE(stuck.err.find("stuck.txt:2: no purchase waits for approval"), std::string::npos) << stuck.err;
}

TEST(Vsk, HelpListsEveryCommand) {
  const RunResult help = runVsk({"--help"});
  EXPECT_EQ(help.exitCode, 0);
  for (const char* command : {"period <ISO-8601 period>", "decode <type> <file.json>", "price <amount> --locale <id>",
                              "discount <amount> <period> <amount> <period>",
                              "paywall <paywall.json> --config <file.storekit>"}) {
    EXPECT_NE(help.out.find(command), std::string::npos) << command;
  }
  EXPECT_NE(runVsk({"price", "--help"}).out.find("Usage: vsk price"), std::string::npos);
}

}  // namespace
