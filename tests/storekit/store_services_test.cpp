#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <memory>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <unordered_set>
#include <vector>

#include "common/deadline.h"
#include "common/scripted_store_backend.h"
#include "velquist/storekit/store/product_request.h"
#include "velquist/storekit/store/storefront.h"
#include "velquist/support/cancellation_error.h"

namespace velquist::storekit {
namespace {

using platform::SKError;
using testing::ScriptedStoreBackend;
using testing::StoreBackendScope;
using Identifiers = std::unordered_set<std::string>;

class ProductRequest : public ::testing::Test {
 protected:
  ProductRequest() { backend->setCatalogue({{.productIdentifier = "c"}, {.productIdentifier = "a"}, {.productIdentifier = "b"}}); }
  std::shared_ptr<ScriptedStoreBackend> backend = std::make_shared<ScriptedStoreBackend>();
  StoreBackendScope scope{backend};
};

TEST_F(ProductRequest, AsksOnceForEachIdentifierOfAnyRangeAndAnswersInTheStoresOrder) {
  using Call = std::function<std::vector<platform::SKProduct>()>;
  const std::vector<std::tuple<Call, Identifiers, std::vector<std::string>>> examples = {
      {[] { return products({"a", "c", "a"}); }, {"a", "c"}, {"c", "a"}},  // duplicates collapse
      {[] { return products(std::list<std::string_view>{"b", "z", "c", "a"}); }, {"a", "b", "c", "z"}, {"c", "a", "b"}},
      {[] { return products(std::vector<std::string>{"x"}); }, {"x"}, {}},
      {[] { return products(Identifiers{}); }, {}, {}},  // nothing asked still asks the store
  };
  for (const auto& [call, asked, found] : examples) {
    std::vector<std::string> ids;
    for (const auto& product : call()) ids.push_back(product.productIdentifier);
    EXPECT_EQ(ids, found);
    EXPECT_EQ(backend->requests().back(), asked);
  }
  EXPECT_EQ(backend->requests().size(), examples.size());
  EXPECT_EQ(backend->cancelled(), 0u);  // an answered request has nothing to cancel
}

TEST_F(ProductRequest, TheStoresErrorIsPassedOnUnchanged) {
  const SKError offline(SKError::Code::cloudServiceNetworkConnectionFailed, "offline");
  backend->setFailure(offline);
  try {
    products({"a"});
    ADD_FAILURE() << "no error thrown";
  } catch (const SKError& error) {
    EXPECT_EQ(error, offline);
  }
}

TEST_F(ProductRequest, StoppingBeforeTheAnswerEndsTheWaitAndCancelsTheStoreRequest) {
  backend->holdAnswers(true);
  std::stop_source stop;
  testing::GuardedThread caller([&] { EXPECT_THROW(products({"a"}, stop.get_token()), support::CancellationError); });
  stop.request_stop();  // whether the caller is already waiting or not, the answer is held
  caller.join("the stopped products request to return");
  // Stopped before the call, the store is never asked; after it, its request is cancelled.
  EXPECT_EQ(backend->cancelled(), backend->requests().size());
  backend->releaseHeld();  // a late answer reaches nobody
  backend->waitForAnswers();
}

TEST_F(ProductRequest, AnAlreadyStoppedTokenFailsEveryTimeWithoutAskingTheStore) {
  std::stop_source stop;
  stop.request_stop();
  for (int attempt = 0; attempt < 20; ++attempt) {
    EXPECT_THROW(products({"a"}, stop.get_token()), support::CancellationError) << attempt;
  }
  EXPECT_TRUE(backend->requests().empty());
}

TEST(Storefront, ReadAfreshFromThePaymentQueue) {
  EXPECT_EQ(Storefront::current(), std::nullopt);  // no backend
  auto backend = std::make_shared<ScriptedStoreBackend>();
  StoreBackendScope scope(backend);
  EXPECT_EQ(Storefront::current(), std::nullopt);  // the store has not been reached
  for (const auto& [country, id] : {std::pair{"USA", "143441"}, std::pair{"FRA", "143442"}}) {
    backend->setStorefront(platform::SKStorefront{country, id});
    const auto current = Storefront::current();
    ASSERT_TRUE(current);
    EXPECT_EQ(current->countryCode(), country);
    EXPECT_EQ(current->id(), id);
  }
}

}  // namespace
}  // namespace velquist::storekit
