// End-to-end tests of the command-line tool: each case runs the real `vsk` binary.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

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

TEST(VskPeriod, PrintsUnitValueDaysAndAnalyticsValue) {
  const struct {
    const char* period;
    const char* expected;
  } cases[] = {
      {"P1W", "unit: week\nvalue: 1\ndays: 7\nanalytics: 7_day\n"},
      {"P2W", "unit: week\nvalue: 2\ndays: 14\nanalytics: 2_week\n"},
      {"P3M", "unit: month\nvalue: 3\ndays: 84\nanalytics: 3_month\n"},
      {"P1Y", "unit: year\nvalue: 1\ndays: 336\nanalytics: 1_year\n"},
      {"P7D", "unit: day\nvalue: 7\ndays: 7\nanalytics: 7_day\n"},
  };
  for (const auto& c : cases) {
    const RunResult result = runVsk({"period", c.period});
    EXPECT_EQ(result.exitCode, 0) << c.period << ": " << result.err;
    EXPECT_EQ(result.out, c.expected) << c.period;
  }
}

TEST(VskPeriod, RefusesWhatIsNotASinglePeriodWithExitCodeTwo) {
  for (const char* bad : {"P1Y2M", "1W", "P1w", "PT1H", "P", "PW", "P-1D", "P1.5M", "", "P99999999999999999999D",
                          "P9223372036854775807Y"}) {
    const RunResult result = runVsk({"period", bad});
    EXPECT_EQ(result.exitCode, 2) << bad;
    EXPECT_EQ(result.out, "") << bad;
    EXPECT_NE(result.err.find("vsk period:"), std::string::npos) << bad;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << "one line for " << bad;
  }
  EXPECT_EQ(runVsk({"period"}).exitCode, 2);
  EXPECT_EQ(runVsk({"period", "P1W", "P1M"}).exitCode, 2);
}

TEST(VskHelp, ListsEveryCommandAndRejectsUnknownOnes) {
  const RunResult help = runVsk({"--help"});
  EXPECT_EQ(help.exitCode, 0);
  for (const char* command : {"period <ISO-8601 period>", "decode <type> <file.json>"}) {
    EXPECT_NE(help.out.find(command), std::string::npos) << command;
  }
  const RunResult periodHelp = runVsk({"period", "--help"});
  EXPECT_EQ(periodHelp.exitCode, 0);
  EXPECT_NE(periodHelp.out.find("Usage: vsk period"), std::string::npos);

  const RunResult unknown = runVsk({"frobnicate"});
  EXPECT_EQ(unknown.exitCode, 2);
  EXPECT_NE(unknown.err.find("unknown command 'frobnicate'"), std::string::npos);
}

}  // namespace

namespace {

std::string example(const char* name) { return std::string(VELQUIST_SOURCE_DIR) + "/examples/" + name; }

TEST(VskDecode, PrintsTheDumpOfEachShippedExample) {
  const RunResult period = runVsk({"decode", "period", example("period.json")});
  EXPECT_EQ(period.exitCode, 0) << period.err;
  EXPECT_EQ(period.out, "Product.SubscriptionPeriod(\n  unit: .week,\n  value: 1\n)\n");

  const RunResult offer = runVsk({"decode", "offer", example("offer.json")});
  EXPECT_EQ(offer.exitCode, 0) << offer.err;
  EXPECT_EQ(offer.out, R"(Product.SubscriptionOffer(
  id: Tagged(rawValue: "winback.3months"),
  type: .promotional,
  price: 4.99,
  priceLocale: Locale(en_US),
  displayPrice: "$4.99",
  period: Product.SubscriptionPeriod(
    unit: .month,
    value: 3
  ),
  paymentMode: .payUpFront
)
)");

  const RunResult info = runVsk({"decode", "subscription-info", example("subscription_info.json")});
  EXPECT_EQ(info.exitCode, 0) << info.err;
  EXPECT_NE(info.out.find("  promotionalOffers: [\n    [0]: Product.SubscriptionOffer(\n"), std::string::npos)
      << info.out;
}

TEST(VskDecode, BadInputGivesOneLineNamingTheKeyPathAndExitCodeTwo) {
  const struct {
    std::vector<std::string> arguments;
    const char* expectedInError;
  } cases[] = {
      {{"decode", "subscription-info", example("broken_subscription_info.json")},
       "promotionalOffers[0].paymentMode: Cannot initialize PaymentMode from invalid String value freeTrial"},
      {{"decode", "period", writeTemporary("unit.json", R"({"unit": 9, "value": 1})")}, "at unit:"},
      {{"decode", "unit", writeTemporary("text.json", R"("month")")}, "typeMismatch"},
      {{"decode", "offer", writeTemporary("garbage.json", "{\"type\": \n")}, "not valid JSON"},
      {{"decode", "offer", writeTemporary("binary.json", std::string("\xff\xfe\x00\x01", 4))}, "not valid JSON"},
      {{"decode", "period", "/nonexistent/period.json"}, "cannot read /nonexistent/period.json"},
      {{"decode", "product", example("period.json")}, "unknown type 'product'"},
      {{"decode", "period"}, "expected a type and a file"},
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

}  // namespace

namespace {

TEST(VskPrice, PrintsTheAmountAndItsDisplayPrice) {
  const struct {
    std::vector<std::string> arguments;
    const char* expected;
  } cases[] = {
      {{"price", "9.99", "--locale", "en_US"}, "amount: 9.99\ndisplay price: $9.99\n"},
      {{"price", "4.99", "--locale", "en_US", "--per", "P1W", "--to", "P1Y"},
       "amount: 260.3712140000000510976\ndisplay price: $260.37\n"},
      {{"price", "4.99", "--locale", "en_US", "--per", "P1W", "--to", "P1Y", "--rounding", "up"},
       "amount: 260.3712140000000510976\ndisplay price: $260.38\n"},
      {{"price", "1234.5", "--locale", "de_DE"}, "amount: 1234.5\ndisplay price: 1.234,50\u00a0€\n"},
      {{"price", "199", "--locale", "ru_RU"}, "amount: 199\ndisplay price: 199₽\n"},
  };
  for (const auto& c : cases) {
    const RunResult result = runVsk(c.arguments);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, c.expected);
  }
}

TEST(VskDiscount, PrintsTheSavingAndItsPercentage) {
  const struct {
    std::vector<std::string> arguments;
    const char* expected;
  } cases[] = {
      {{"discount", "39.99", "P1Y", "4.99", "P1W", "--locale", "en_US"}, "discount: 0.85\ndisplay discount: 85%\n"},
      {{"discount", "0.99", "P1W", "2.99", "P1M", "--locale", "en_US"}, "discount: -0.44\ndisplay discount: -44%\n"},
      {{"discount", "12.5", "once", "100", "once", "--locale", "de_DE"},
       "discount: 0.88\ndisplay discount: 88\u00a0%\n"},
  };
  for (const auto& c : cases) {
    const RunResult result = runVsk(c.arguments);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, c.expected);
  }
}

TEST(VskPriceAndDiscount, BadArgumentsGiveOneLineAndExitCodeTwo) {
  const struct {
    std::vector<std::string> arguments;
    const char* expectedInError;
  } cases[] = {
      {{"price", "9.99"}, "--locale is required"},
      {{"price", "abc", "--locale", "en_US"}, "'abc' is not an amount"},
      {{"price", "9.99$", "--locale", "en_US"}, "'9.99$' is not an amount"},
      {{"price", "9.99", "--locale", "en_US", "--rounding", "nearest"}, "unknown rounding rule 'nearest'"},
      {{"price", "9.99", "--locale", "en_US", "--per", "P1W"}, "--per and --to go together"},
      {{"price", "9.99", "--locale", "en_US", "--per", "P0W", "--to", "P1Y"}, "'P0W' is not a period"},
      {{"price", "9.99", "--locale"}, "option --locale needs a value"},
      {{"price", "9.99", "--currency", "EUR"}, "unknown option --currency"},
      {{"discount", "39.99", "P1Y", "4.99"}, "expected <amount> <period> <amount> <period>"},
      {{"discount", "39.99", "yearly", "4.99", "P1W"}, "'yearly' is not a period"},
  };
  for (const auto& c : cases) {
    const RunResult result = runVsk(c.arguments);
    EXPECT_EQ(result.exitCode, 2) << c.arguments[1];
    EXPECT_NE(result.err.find(c.expectedInError), std::string::npos) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  }
}

}  // namespace
