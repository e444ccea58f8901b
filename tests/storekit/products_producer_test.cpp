#include <gtest/gtest.h>

#include "common/scripted_store_backend.h"
#include "common/signal_recorder.h"
#include "velquist/storekit/store/product_request.h"

namespace velquist::storekit {
namespace {

using platform::SKError;
using Events = std::vector<std::string>;
using Recorder = testing::SignalRecorder<std::vector<platform::SKProduct>>;

std::string identifiersOf(const std::vector<platform::SKProduct>& products) {
  std::string text;
  for (const auto& product : products) text += (text.empty() ? "" : ",") + product.productIdentifier;
  return "[" + text + "]";
}

// The store's error as code and message; anything else means it was not passed on unchanged.
std::string storeError(const std::exception_ptr& failure) try {
  std::rethrow_exception(failure);
} catch (const SKError& error) {
  return std::to_string(static_cast<int>(error.code())) + " " + error.what();
} catch (...) {
  return "not the store's error";
}

class ProductsSignal : public ::testing::Test {
 protected:
  ProductsSignal() { backend->setCatalogue({{.productIdentifier = "c"}, {.productIdentifier = "a"}, {.productIdentifier = "b"}}); }
  std::shared_ptr<testing::ScriptedStoreBackend> backend = std::make_shared<testing::ScriptedStoreBackend>();
  testing::StoreBackendScope scope{backend};
};

TEST_F(ProductsSignal, EachStartAsksTheStoreOnceAndPassesOnItsAnswer) {
  struct Example { std::vector<std::string> asked; std::optional<SKError> failure; Events heard; };
  const std::vector<Example> examples = {
      {{"b", "a"}, {}, {"[a,b]", "completed"}},  // in the store's order
      {{"zzz", "b", "b"}, {}, {"[b]", "completed"}},  // unknown left out
      {{}, {}, {"[]", "completed"}},
      {{"a"}, SKError(SKError::Code::cloudServiceNetworkConnectionFailed, "offline"), {"failed: 7 offline"}},
  };
  for (const auto& example : examples) {
    backend->setFailure(example.failure);
    const auto before = backend->requests().size();
    const auto producer = productsProducer(example.asked);
    EXPECT_EQ(backend->requests().size(), before);  // cold: nothing asked before a start
    Recorder first(identifiersOf, storeError), second(identifiersOf, storeError);
    producer.start(first.handlers()), producer.start(second.handlers());
    EXPECT_EQ(first.waitForEnd(), example.heard);
    EXPECT_EQ(second.waitForEnd(), example.heard);
    const auto requests = backend->requests();  // one a start, for the identifiers asked, each once
    const std::unordered_set<std::string> asked(example.asked.begin(), example.asked.end());
    EXPECT_EQ(std::vector(requests.begin() + static_cast<std::ptrdiff_t>(before), requests.end()), std::vector(2, asked));
  }
}

TEST_F(ProductsSignal, DisposingBeforeTheAnswerCancelsTheRequestAndDeliversNothing) {
  backend->holdAnswers(true);
  Recorder recorder(identifiersOf);
  const auto subscription = productsProducer({"a", "b"}).start(recorder.handlers());
  EXPECT_EQ(backend->cancelled(), 0u);
  subscription.dispose(), subscription.dispose();
  EXPECT_EQ(backend->cancelled(), 1u);
  backend->releaseHeld();  // the store answers anyway
  backend->waitForAnswers();
  EXPECT_EQ(recorder.events(), Events{});
}

}  // namespace
}  // namespace velquist::storekit
