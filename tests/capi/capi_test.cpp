// The C interface over the library: results handed out as text the caller frees, bad input
// refused with a status and a per-thread message (never a crash or a half-filled out
// parameter), and the sandbox's purchase story through both transaction mechanisms. The
// figures and words themselves are the library's tests' business; here they show that each
// argument reached the right place.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "velquist/foundation/json.h"
#include "velquist/foundation/locale.h"
#include "velquist/storekit/transactions/payment_queue.h"
#include "velquist/usersettings/user_settings_client.h"
#include "velquist/velquist.h"

namespace {

using velquist::foundation::JsonValue;
using velquist::foundation::parseJson;

const std::string storekitFile = std::string(VELQUIST_SOURCE_DIR) + "/examples/velquist_demo.storekit";
const std::string paywallFile = std::string(VELQUIST_SOURCE_DIR) + "/examples/velquist_demo_paywall.json";

// The member `key` of a JSON object; a test failure (by exception) when it is missing.
const JsonValue& field(const JsonValue& object, std::string_view key) {
  const auto* member = object.find(key);
  if (!member) throw std::runtime_error("no member " + std::string(key));
  return *member;
}

// Takes a library string into a std::string and frees it.
std::string take(char* text) {
  EXPECT_NE(text, nullptr);
  std::string copy = text ? text : "";
  velquist_string_free(text);
  return copy;
}

// Each argument reaches the library: the rounding rule (down when NULL), the locale, a sign
// or exponent in the amount, the periods in their order, the discount's out parameters
// (either may be left out) and each period option. The last row has no locale: the calls
// before it in other locales must have put the current one back.
TEST(CInterface, TextsHandedOut) {
  velquist::foundation::Locale::setCurrent(velquist::foundation::Locale("en_US"));
  const velquist_period_format_options always{.always_show_value = 1}, collapsed{.units_collapsed = "day"},
      shortYear{.unit_style = "shortened", .units_expanded = "year"}, recurrent{.unit_style = "recurrent"};
  const struct {
    std::function<int(char**)> call;
    const char* expected;
  } cases[] = {
      {[](char** o) { return velquist_display_price("1234.567", "en_US", "down", o); }, "$1234.56"},
      {[](char** o) { return velquist_display_price("1234.567", "de_DE", nullptr, o); }, "1.234,56\u00a0€"},
      {[](char** o) { return velquist_display_price("9.985", "en_US", "toNearestOrAwayFromZero", o); }, "$9.99"},
      {[](char** o) { return velquist_display_price("-0.5", "en_US", "up", o); }, "-$0.50"},
      {[](char** o) { return velquist_display_price("1e2", "ja_JP", "down", o); }, "￥100"},
      {[](char** o) { return velquist_convert_price("4.99", "P1W", "P1Y", o); }, "260.3712140000000510976"},
      {[](char** o) { return velquist_discount("39.99", "P1Y", "4.99", "P1W", "en_US", o, nullptr); }, "0.85"},
      {[](char** o) { return velquist_discount("39.99", "P1Y", "4.99", "P1W", "de_DE", nullptr, o); }, "85\u00a0%"},
      {[](char** o) { return velquist_discount("49.99", "once", "39.99", "P1Y", nullptr, o, nullptr); }, "-0.25"},
      {[](char** o) { return velquist_period_text("P1W", "en_US", nullptr, o); }, "week"},
      {[&](char** o) { return velquist_period_text("P1W", "en_US", &always, o); }, "1 week"},
      {[&](char** o) { return velquist_period_text("P7D", "en_US", &collapsed, o); }, "week"},
      {[&](char** o) { return velquist_period_text("P1Y", "en_US", &shortYear, o); }, "12 mo"},
      {[&](char** o) { return velquist_period_text("P1M", "en_US", &recurrent, o); }, "monthly"},
      {[](char** o) { return velquist_period_text("P5D", "ru_RU", nullptr, o); }, "5 дней"},
      {[](char** o) { return velquist_period_text("P3M", nullptr, nullptr, o); }, "3 months"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    char* text = reinterpret_cast<char*>(1);
    ASSERT_EQ(c.call(&text), VELQUIST_OK) << velquist_last_error();
    EXPECT_EQ(take(text), c.expected);
  }
}

TEST(CInterface, BadInputIsRefusedWithAMessage) {
  constexpr int file = VELQUIST_ERROR_FILE;
  constexpr int bad = VELQUIST_ERROR_INVALID_ARGUMENT;
  velquist_period_format_options badStyle{.unit_style = "tiny"};
  velquist_period_format_options badUnit{.units_collapsed = "day,fortnight"};
  velquist_sandbox* sandbox = nullptr;
  const struct {
    const char* name;
    std::function<int(char**)> call;
    const char* message;  // a part of the last error
    int status = VELQUIST_ERROR_INVALID_ARGUMENT;
    bool handsOutText = true;  // whether `call` passes its argument as the text out parameter
  } cases[] = {
      {"null amount", [](char** o) { return velquist_display_price(nullptr, "en_US", nullptr, o); },
       "velquist_display_price: amount is NULL"},
      {"comma amount", [](char** o) { return velquist_display_price("12,5", "en_US", nullptr, o); }, "'12,5' is not a"},
      {"empty amount", [](char** o) { return velquist_display_price("", "en_US", nullptr, o); }, "is not a decimal"},
      {"unknown language", [](char** o) { return velquist_display_price("1", "qq_US", nullptr, o); }, "locale 'qq_US'"},
      {"unknown region", [](char** o) { return velquist_display_price("1", "en_QQ", nullptr, o); }, "locale 'en_QQ'"},
      {"unknown rule", [](char** o) { return velquist_display_price("1", "en_US", "sideways", o); }, "rule 'sideways'"},
      {"null out", [](char**) { return velquist_display_price("1", "en_US", nullptr, nullptr); }, "out_text is NULL",
       bad, false},
      {"two parts", [](char** o) { return velquist_convert_price("1", "P1W2D", "P1Y", o); }, "'P1W2D' is not a period"},
      {"zero period", [](char** o) { return velquist_convert_price("1", "P0W", "P1Y", o); }, "'P0W' is not a period"},
      {"huge period", [](char** o) { return velquist_convert_price("1", "P1W", "P9223372036854775807Y", o); },
       "is not a period"},
      {"null period", [](char** o) { return velquist_period_text(nullptr, "en_US", nullptr, o); }, "period is NULL"},
      {"bad unit style", [&](char** o) { return velquist_period_text("P1W", "en_US", &badStyle, o); }, "style 'tiny'"},
      {"bad unit", [&](char** o) { return velquist_period_text("P1W", "en_US", &badUnit, o); }, "unit 'fortnight'"},
      {"discount bad plan", [](char** o) { return velquist_discount("1", "weekly", "2", "P1W", nullptr, o, nullptr); },
       "'weekly' is not a period"},
      {"discount null", [](char** o) { return velquist_discount("1", "P1W", nullptr, "P1W", nullptr, o, nullptr); },
       "other_amount is NULL"},
      {"missing file", [&](char**) { return velquist_sandbox_open("/no/such/file.storekit", nullptr, &sandbox); },
       "/no/such/file.storekit", file, false},
      {"null sandbox", [](char** o) { return velquist_products_json(nullptr, nullptr, 0, o); }, "sandbox is NULL"},
      {"null sandbox buy", [](char**) { return velquist_buy(nullptr, "x", nullptr); }, "sandbox is NULL", bad, false},
      {"null observation", [](char**) { return velquist_observation_wait(nullptr, 1, 0); }, "observation is NULL", bad,
       false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    char* out = reinterpret_cast<char*>(1);
    sandbox = reinterpret_cast<velquist_sandbox*>(1);
    EXPECT_EQ(c.call(&out), c.status);
    EXPECT_NE(std::string(velquist_last_error()).find(c.message), std::string::npos) << velquist_last_error();
    // On failure nothing is handed out and the out parameter is NULL.
    if (c.handsOutText) {
      EXPECT_EQ(out, nullptr);
    }
    if (c.status == file) {
      EXPECT_EQ(sandbox, nullptr);
    }
  }
  velquist_string_free(nullptr);
  velquist_sandbox_close(nullptr);
  velquist_observation_end(nullptr);
}

// Odd texts where numbers, periods and locales go are answered, never crash: either a
// result or a refusal with a message.
TEST(CInterface, OddTextsAreAnsweredOrRefused) {
  const char* texts[] = {"1e400", "-1e-400", "-", ".", "1e", "+", "0x10", "\xef\xbc\x91", "1..2", "99999999999999999999999999999999999999999",
                         "P", "P-1W", "P1", "PT1H", "P1Y1M", "en_US@currency=", "@", "_", "en__US", "\xff\xfe"};
  for (const char* text : texts) {
    char* out = nullptr;
    const int results[] = {
        velquist_display_price(text, "en_US", nullptr, &out),
        (velquist_string_free(out), out = nullptr, velquist_display_price("1", text, nullptr, &out)),
        (velquist_string_free(out), out = nullptr, velquist_convert_price("1", text, "P1Y", &out)),
        (velquist_string_free(out), out = nullptr, velquist_period_text(text, nullptr, nullptr, &out)),
    };
    velquist_string_free(out);
    for (const int status : results) {
      EXPECT_TRUE(status == VELQUIST_OK || status == VELQUIST_ERROR_INVALID_ARGUMENT) << text << ": " << status;
    }
  }
}

// The last error is the calling thread's, and the next call that succeeds clears it.
TEST(CInterface, LastErrorBelongsToTheThread) {
  char* text = nullptr;
  ASSERT_NE(velquist_display_price("x", "en_US", nullptr, &text), VELQUIST_OK);
  std::string other;
  std::thread([&] {
    other = velquist_last_error();
    char* price = nullptr;
    EXPECT_NE(velquist_display_price("1", "zz", nullptr, &price), VELQUIST_OK);
  }).join();
  EXPECT_EQ(other, "");
  EXPECT_NE(std::string(velquist_last_error()).find("'x'"), std::string::npos) << velquist_last_error();
  ASSERT_EQ(velquist_display_price("1", "en_US", nullptr, &text), VELQUIST_OK);
  velquist_string_free(text);
  EXPECT_STREQ(velquist_last_error(), "");
}

// Period texts in two locales at once: each call's locale is its own for the whole call.
TEST(CInterface, PeriodTextsFromManyThreads) {
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (const char* locale : {"en_US", "de_DE", "en_US", "de_DE"}) {
    threads.emplace_back([&wrong, locale] {
      const std::string expected = locale[0] == 'd' ? "3 Monate" : "3 months";
      for (int round = 0; round < 50; ++round) {
        char* text = nullptr;
        if (velquist_period_text("P3M", locale, nullptr, &text) != VELQUIST_OK || take(text) != expected) ++wrong;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

// The sandbox tests keep the user defaults (where the remembered first purchases go) in a
// folder of the program's own.
class CSandbox : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    home_ = std::filesystem::temp_directory_path() / ("velquist-capi-test-" + std::to_string(::getpid()));
    std::filesystem::remove_all(home_);
    std::filesystem::create_directories(home_);
    ::setenv("VELQUIST_HOME", home_.c_str(), 1);
  }
  static void TearDownTestSuite() {
    std::error_code ignored;  // a last write of the user defaults may still be settling
    std::filesystem::remove_all(home_, ignored);
  }

  // Each test starts with a store that has sold nothing, in a state folder of its own, and
  // no first purchase remembered from another test.
  void SetUp() override {
    velquist::storekit::setOriginalTransactionIDs(velquist::usersettings::UserSettingsClient::live(), {});
    const auto state = home_ / std::to_string(++opened_);
    ASSERT_EQ(velquist_sandbox_open(storekitFile.c_str(), state.c_str(), &sandbox_), VELQUIST_OK) << velquist_last_error();
  }
  void TearDown() override { velquist_sandbox_close(sandbox_); }

  static inline std::filesystem::path home_;
  static inline int opened_ = 0;
  velquist_sandbox* sandbox_ = nullptr;
};

TEST_F(CSandbox, OneSandboxAtATime) {
  velquist_sandbox* second = nullptr;
  EXPECT_EQ(velquist_sandbox_open(storekitFile.c_str(), nullptr, &second), VELQUIST_ERROR_STATE);
  EXPECT_EQ(second, nullptr);
}

TEST_F(CSandbox, ProductsInTheOrderAskedUnknownOnesLeftOut) {
  const char* ids[] = {"com.velquist.demo.pro.yearly", "nope", "com.velquist.demo.lifetime",
                       "com.velquist.demo.pro.yearly"};
  char* json = nullptr;
  ASSERT_EQ(velquist_products_json(sandbox_, ids, 4, &json), VELQUIST_OK) << velquist_last_error();
  const auto products = parseJson(take(json));
  ASSERT_EQ(products.arrayValue().size(), 2u);
  const auto& yearly = products.arrayValue()[0];
  EXPECT_EQ(field(yearly, "id").stringValue(), "com.velquist.demo.pro.yearly");
  EXPECT_EQ(field(yearly, "price").stringValue(), "39.99");
  EXPECT_EQ(field(yearly, "displayPrice").stringValue(), "$39.99");
  EXPECT_EQ(field(products.arrayValue()[1], "id").stringValue(), "com.velquist.demo.lifetime");

  const char* withNull[] = {"com.velquist.demo.lifetime", nullptr};
  EXPECT_EQ(velquist_products_json(sandbox_, withNull, 2, &json), VELQUIST_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(velquist_products_json(sandbox_, nullptr, 1, &json), VELQUIST_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(velquist_products_json(sandbox_, nullptr, 0, &json), VELQUIST_OK);
  EXPECT_EQ(parseJson(take(json)).arrayValue().size(), 8u);
}

TEST_F(CSandbox, PaywallWithRoles) {
  char* json = nullptr;
  ASSERT_EQ(velquist_paywall_json(sandbox_, paywallFile.c_str(), &json), VELQUIST_OK) << velquist_last_error();
  const auto paywall = parseJson(take(json));
  EXPECT_EQ(field(field(paywall, "roles"), "selected").stringValue(), "com.velquist.demo.pro.yearly");
  const auto& yearly = field(paywall, "products").arrayValue()[2];
  EXPECT_EQ(field(yearly, "id").stringValue(), "com.velquist.demo.pro.yearly");
  EXPECT_EQ(field(yearly, "roles").arrayValue().size(), 3u);

  EXPECT_EQ(velquist_paywall_json(sandbox_, storekitFile.c_str(), &json), VELQUIST_ERROR_FILE);
  EXPECT_NE(std::string(velquist_last_error()).find("velquist_demo.storekit"), std::string::npos);
}

// Collects the records of the batches a mechanism delivers.
struct Records {
  std::mutex mutex;
  std::vector<JsonValue> received;

  static void callback(const char* json, void* context) {
    auto& self = *static_cast<Records*>(context);
    const JsonValue batch = parseJson(json);
    std::lock_guard lock(self.mutex);
    for (const auto& record : batch.arrayValue()) self.received.push_back(record);
  }
  std::vector<JsonValue> all() {
    std::lock_guard lock(mutex);
    return received;
  }
};

// The first delivered record of `product` in `state`, waiting for up to `limit` batches.
std::optional<JsonValue> awaitRecord(velquist_observation* observation, Records& records, const std::string& product,
                                     const std::string& state, std::size_t limit = 6) {
  for (std::size_t count = 1; count <= limit; ++count) {
    for (const auto& record : records.all()) {
      if (field(record, "productID").stringValue() == product && field(record, "state").stringValue() == state) {
        return record;
      }
    }
    if (velquist_observation_wait(observation, count, 5000) != VELQUIST_OK) break;
  }
  return std::nullopt;
}

class CSandboxMechanism : public CSandbox, public testing::WithParamInterface<const char*> {};

// The purchase story through either mechanism: the first purchase starts the free trial, a
// restore brings it back as restored, finishing works by identifier, and an ended
// observation hears nothing more. The store waits for the mechanism after each report, so
// no transaction is delivered twice in the same state.
TEST_P(CSandboxMechanism, PurchaseStory) {
  const std::string product = "com.velquist.demo.pro.weekly";
  Records records;
  velquist_observation* observation = nullptr;
  ASSERT_EQ(velquist_follow_transactions(sandbox_, GetParam(), &Records::callback, &records, &observation), VELQUIST_OK)
      << velquist_last_error();

  ASSERT_EQ(velquist_buy(sandbox_, product.c_str(), nullptr), VELQUIST_OK);
  const auto purchased = awaitRecord(observation, records, product, "purchased");
  ASSERT_TRUE(purchased) << velquist_last_error();
  EXPECT_TRUE(field(*purchased, "isStartTrial").boolValue());
  const std::string id = field(*purchased, "id").stringValue();
  EXPECT_EQ(velquist_finish(sandbox_, id.c_str()), VELQUIST_OK) << velquist_last_error();
  EXPECT_EQ(velquist_finish(sandbox_, "no-such-transaction"), VELQUIST_ERROR_INVALID_ARGUMENT);

  ASSERT_EQ(velquist_restore(sandbox_), VELQUIST_OK);
  const auto restored = awaitRecord(observation, records, product, "restored");
  ASSERT_TRUE(restored);
  EXPECT_FALSE(field(*restored, "isStartTrial").boolValue());
  EXPECT_EQ(field(*restored, "originalID").stringValue(), id);
  EXPECT_EQ(velquist_finish(sandbox_, nullptr), VELQUIST_OK);
  ASSERT_EQ(velquist_sandbox_wait_until_idle(sandbox_), VELQUIST_OK);

  std::set<std::string> seen;
  for (const auto& record : records.all()) {
    const std::string key = velquist::foundation::toJsonText(field(record, "id")) + " " + field(record, "state").stringValue();
    EXPECT_TRUE(seen.insert(key).second) << "delivered twice: " << key;
  }

  velquist_observation_end(observation);
  const std::size_t after = records.all().size();
  ASSERT_EQ(velquist_buy(sandbox_, "com.velquist.demo.coins100", nullptr), VELQUIST_OK);
  ASSERT_EQ(velquist_sandbox_wait_until_idle(sandbox_), VELQUIST_OK);
  EXPECT_EQ(records.all().size(), after) << "no callback after the observation ended";
}

INSTANTIATE_TEST_SUITE_P(Mechanisms, CSandboxMechanism, testing::Values("listener", "stream"));

}  // namespace
