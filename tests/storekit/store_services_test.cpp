#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_set>
#include <vector>

#include "common/scripted_store_backend.h"
#include "velquist/storekit/store/product_request.h"
#include "velquist/storekit/store/storefront.h"
#include "velquist/support/cancellation_error.h"

namespace velquist::storekit {
namespace {

using platform::SKError;
using platform::SKProduct;
using testing::ScriptedStoreBackend;
using testing::StoreBackendScope;
using Identifiers = std::unordered_set<std::string>;

std::vector<std::string> identifiersOf(const std::vector<SKProduct>& products) {
  std::vector<std::string> ids;
  for (const auto& product : products) ids.push_back(product.productIdentifier);
  return ids;
}

class ProductRequest : public ::testing::Test {
 protected:
  ProductRequest() { backend->setCatalogue({{.productIdentifier = "c"}, {.productIdentifier = "a"}, {.productIdentifier = "b"}}); }
  std::shared_ptr<ScriptedStoreBackend> backend = std::make_shared<ScriptedStoreBackend>();
  StoreBackendScope scope{backend};
};

TEST_F(ProductRequest, AsksOnceForEachIdentifierAndAnswersInTheStoresOrder) {
  struct Example {
    std::string name;
    std::vector<std::string> asked;
    Identifiers request;
    std::vector<std::string> found;
  };
  const std::vector<Example> examples = {
      {"duplicates collapse", {"a", "a"}, {"a"}, {"a"}},
      {"unknown identifiers are left out, store order kept", {"b", "zzz", "c", "a"}, {"a", "b", "c", "zzz"},
       {"c", "a", "b"}},
      {"only unknown identifiers", {"x"}, {"x"}, {}},
      {"nothing asked still asks the store", {}, {}, {}},
  };
  for (const auto& example : examples) {
    SCOPED_TRACE(example.name);
    const auto before = backend->requests().size();
    EXPECT_EQ(identifiersOf(products(example.asked)), example.found);
    ASSERT_EQ(backend->requests().size(), before + 1);
    EXPECT_EQ(backend->requests().back(), example.request);
  }
  EXPECT_EQ(backend->cancelled(), 0u);  // an answered request has nothing to cancel
}

TEST_F(ProductRequest, AnyRangeOfTextWillDo) {
  const std::list<std::string_view> asked = {"b", "a"};
  EXPECT_EQ(identifiersOf(products(asked)), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(identifiersOf(products(Identifiers{"c"})), std::vector<std::string>{"c"});
  EXPECT_EQ(identifiersOf(products({"a", "c", "a"})), (std::vector<std::string>{"c", "a"}));
}

TEST_F(ProductRequest, TheStoresErrorIsPassedOnUnchanged) {
  const SKError offline(SKError::Code::cloudServiceNetworkConnectionFailed, "offline");
  const std::vector<std::pair<std::shared_ptr<ScriptedStoreBackend>, SKError>> examples = {
      {backend, offline},
      {nullptr, SKError::noStoreBackend()},
  };
  backend->setFailure(offline);
  for (const auto& [server, expected] : examples) {
    SCOPED_TRACE(expected.what());
    platform::setDefaultStoreBackend(server);
    try {
      products(std::vector<std::string>{"a"});
      ADD_FAILURE() << "no error thrown";
    } catch (const SKError& error) {
      EXPECT_EQ(error, expected);
    }
  }
}

TEST_F(ProductRequest, StoppingBeforeTheAnswerEndsTheWaitAndCancelsTheStoreRequest) {
  backend->holdAnswers(true);
  std::stop_source stop;
  std::optional<std::string> outcome;
  std::jthread caller([&] {
    try {
      products(std::vector<std::string>{"a"}, stop.get_token());
      outcome = "answered";
    } catch (const support::CancellationError&) {
      outcome = "cancelled";
    }
  });
  stop.request_stop();  // whether the caller is already waiting or not, the answer is held
  caller.join();
  EXPECT_EQ(outcome, "cancelled");
  EXPECT_EQ(backend->cancelled(), 1u);

  backend->releaseHeld();  // a late answer reaches nobody
  backend->waitForAnswers();
}

TEST(Storefront, ReadAfreshFromThePaymentQueue) {
  EXPECT_EQ(Storefront::current(), std::nullopt);  // no backend

  auto backend = std::make_shared<ScriptedStoreBackend>();
  StoreBackendScope scope(backend);
  EXPECT_EQ(Storefront::current(), std::nullopt);  // the store has not been reached

  backend->setStorefront(platform::SKStorefront{"USA", "143441"});
  const auto american = Storefront::current();
  ASSERT_TRUE(american);
  EXPECT_EQ(american->countryCode(), "USA");
  EXPECT_EQ(american->id(), "143441");

  backend->setStorefront(platform::SKStorefront{"FRA", "143442"});
  const auto french = Storefront::current();
  ASSERT_TRUE(french);
  EXPECT_EQ(french->countryCode(), "FRA");
  EXPECT_EQ(french->id(), "143442");
  EXPECT_NE(american, french);
  EXPECT_EQ(std::hash<Storefront>{}(*french), std::hash<Storefront>{}(*Storefront::current()));
}

}  // namespace
}  // namespace velquist::storekit
