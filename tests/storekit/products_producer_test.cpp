#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "common/scripted_store_backend.h"
#include "common/signal_recorder.h"
#include "velquist/storekit/store/product_request.h"

namespace velquist::storekit {
namespace {

using platform::SKError;
using platform::SKProduct;
using testing::ScriptedStoreBackend;
using testing::StoreBackendScope;
using Events = std::vector<std::string>;
using Recorder = testing::SignalRecorder<std::vector<SKProduct>>;

std::string identifiersOf(const std::vector<SKProduct>& products) {
  std::string text;
  for (const auto& product : products) text += (text.empty() ? "" : ",") + product.productIdentifier;
  return "[" + text + "]";
}

class ProductsSignal : public ::testing::Test {
 protected:
  ProductsSignal() { backend->setCatalogue({{.productIdentifier = "c"}, {.productIdentifier = "a"}, {.productIdentifier = "b"}}); }
  std::shared_ptr<ScriptedStoreBackend> backend = std::make_shared<ScriptedStoreBackend>();
  StoreBackendScope scope{backend};
};

TEST_F(ProductsSignal, EachStartSendsOneRequestAndHearsTheProductsThenCompleted) {
  struct Example {
    std::string name;
    std::vector<std::string> asked;
    std::unordered_set<std::string> request;
    Events heard;
  };
  const std::vector<Example> examples = {
      {"found, in the store's order", {"b", "a"}, {"a", "b"}, {"[a,b]", "completed"}},
      {"duplicates asked once, unknown left out", {"zzz", "b", "b"}, {"b", "zzz"}, {"[b]", "completed"}},
      {"nothing asked still asks", {}, {}, {"[]", "completed"}},
  };
  for (const auto& example : examples) {
    SCOPED_TRACE(example.name);
    const auto producer = productsProducer(example.asked);
    const auto before = backend->requests().size();
    EXPECT_EQ(backend->requests().size(), before);  // cold: nothing asked yet
    Recorder first(identifiersOf), second(identifiersOf);
    producer.start(first.handlers());
    producer.start(second.handlers());
    EXPECT_EQ(first.waitForEnd(), example.heard);
    EXPECT_EQ(second.waitForEnd(), example.heard);
    const auto requests = backend->requests();
    ASSERT_EQ(requests.size(), before + 2);
    EXPECT_EQ(requests[before], example.request);
    EXPECT_EQ(requests[before + 1], example.request);
  }
  EXPECT_EQ(backend->cancelled(), 0u);  // answered requests have nothing to cancel
}

TEST_F(ProductsSignal, TheStoresErrorIsTheFailureUnchanged) {
  const SKError offline(SKError::Code::cloudServiceNetworkConnectionFailed, "offline");
  backend->setFailure(offline);
  const std::vector<std::pair<std::shared_ptr<ScriptedStoreBackend>, SKError>> examples = {
      {backend, offline},
      {nullptr, SKError::noStoreBackend()},
  };
  for (const auto& [server, expected] : examples) {
    SCOPED_TRACE(expected.what());
    platform::setDefaultStoreBackend(server);
    std::exception_ptr failure;
    const auto disposable = productsProducer({"a"}).start({.failed = [&](std::exception_ptr error) { failure = error; }});
    backend->waitForAnswers();
    ASSERT_TRUE(failure);
    try {
      std::rethrow_exception(failure);
    } catch (const SKError& error) {
      EXPECT_EQ(error, expected);
    }
    EXPECT_TRUE(disposable.isDisposed());
  }
}

TEST_F(ProductsSignal, DisposingBeforeTheAnswerCancelsTheRequestAndDeliversNothing) {
  backend->holdAnswers(true);
  Recorder recorder(identifiersOf);
  const auto subscription = productsProducer({"a", "b"}).start(recorder.handlers());
  ASSERT_EQ(backend->heldCount(), 1u);
  EXPECT_EQ(backend->cancelled(), 0u);

  subscription.dispose();
  EXPECT_EQ(backend->cancelled(), 1u);
  backend->releaseHeld();  // the store answers anyway
  backend->waitForAnswers();
  EXPECT_EQ(recorder.events(), Events{});
  subscription.dispose();
  EXPECT_EQ(backend->cancelled(), 1u);
}

}  // namespace
}  // namespace velquist::storekit
