#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <list>
#include <stop_token>
#include <string_view>
#include <tuple>

#include "common/deadline.h"
#include "common/scripted_store_backend.h"
#include "common/signal_recorder.h"
#include "velquist/foundation/bundle.h"
#include "velquist/storekit/store/product_request.h"
#include "velquist/storekit/store/receipt.h"
#include "velquist/storekit/store/storefront.h"
#include "velquist/support/cancellation_error.h"

namespace velquist::storekit {
namespace {

namespace fs = std::filesystem;
using platform::SKError;
using testing::ScriptedStoreBackend;
using testing::StoreBackendScope;
using Identifiers = std::unordered_set<std::string>;
using Events = std::vector<std::string>;

const SKError offline(SKError::Code::cloudServiceNetworkConnectionFailed, "offline");

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
  backend->setFailure(offline);
  try {
    products({"a"});
    ADD_FAILURE() << "no error thrown";
  } catch (const SKError& error) {
    EXPECT_EQ(error, offline);  // the store's error, unchanged
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
  // An already stopped token fails every time without asking the store.
  const auto asked = backend->requests().size();
  for (int attempt = 0; attempt < 20; ++attempt) {
    EXPECT_THROW(products({"a"}, stop.get_token()), support::CancellationError) << attempt;
  }
  EXPECT_EQ(backend->requests().size(), asked);
}

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

using Recorder = testing::SignalRecorder<std::vector<platform::SKProduct>>;

TEST_F(ProductRequest, EachStartOfTheProducerAsksTheStoreOnceAndPassesOnItsAnswer) {
  const std::vector<std::tuple<std::vector<std::string>, std::optional<SKError>, Events>> examples = {
      {{"b", "a"}, {}, {"[a,b]", "completed"}},  // in the store's order
      {{"zzz", "b", "b"}, {}, {"[b]", "completed"}},  // unknown left out
      {{"a"}, offline, {"failed: 7 offline"}},
  };
  for (const auto& [identifiers, failure, heard] : examples) {
    backend->setFailure(failure);
    const auto before = backend->requests().size();
    const auto producer = productsProducer(identifiers);
    EXPECT_EQ(backend->requests().size(), before);  // cold: nothing asked before a start
    Recorder first(identifiersOf, storeError), second(identifiersOf, storeError);
    producer.start(first.handlers()), producer.start(second.handlers());
    EXPECT_EQ(first.waitForEnd(), heard);
    EXPECT_EQ(second.waitForEnd(), heard);
    const auto requests = backend->requests();  // one a start, for the identifiers asked, each once
    const Identifiers asked(identifiers.begin(), identifiers.end());
    EXPECT_EQ(std::vector(requests.begin() + static_cast<std::ptrdiff_t>(before), requests.end()), std::vector(2, asked));
  }
}

TEST_F(ProductRequest, DisposingTheProducersSubscriptionBeforeTheAnswerCancelsTheRequestAndDeliversNothing) {
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

TEST(Storefront, ReadAfreshFromThePaymentQueue) {
  EXPECT_EQ(Storefront::current(), std::nullopt);  // no backend
  auto backend = std::make_shared<ScriptedStoreBackend>();
  StoreBackendScope scope(backend);
  EXPECT_EQ(Storefront::current(), std::nullopt);  // the store has not been reached
  for (const auto& [country, id] : {std::pair{"USA", "143441"}, std::pair{"FRA", "143442"}}) {
    backend->setStorefront(platform::SKStorefront{country, id});
    const auto current = Storefront::current();
    ASSERT_TRUE(current);
    EXPECT_EQ(current->countryCode() + " " + current->id(), std::string(country) + " " + id);
  }
}

using Bytes = std::optional<std::vector<std::uint8_t>>;

// The size, and the bytes themselves while few; a longer receipt by a fingerprint of its bytes.
std::string describe(const Bytes& bytes) {
  if (!bytes) return "absent";
  std::string text = std::to_string(bytes->size()) + " bytes:";
  if (bytes->size() > 8) {
    std::uint64_t hash = 14695981039346656037u;  // FNV-1a
    for (const std::uint8_t byte : *bytes) hash = (hash ^ byte) * 1099511628211u;
    return text + " fnv " + std::to_string(hash);
  }
  for (const std::uint8_t byte : *bytes) text += " " + std::to_string(byte);
  return text;
}

// `size` bytes in which no 16 KiB block repeats another.
std::string longReceipt(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 16384);
  return bytes;
}

Events heardFor(const std::string& contents) {
  return {describe(std::vector<std::uint8_t>(contents.begin(), contents.end())), "completed"};
}

TEST(ReceiptData, EachStartReadsAfreshAbsentWithoutAFileFailedWhenUnreadable) {
  const fs::path folder = fs::temp_directory_path() / ("velquist-receipt-" + std::to_string(::getpid()));
  const fs::path receipt = folder / "receipt";
  fs::create_directories(folder);
  const auto producer = Receipt::receiptData();  // one producer, started for each example
  const std::vector<std::tuple<std::optional<fs::path>, std::optional<std::string>, Events>> examples = {
      {std::nullopt, "A", {"absent", "completed"}},  // no receipt location
      {receipt, std::nullopt, {"absent", "completed"}},
      {receipt, "", {"0 bytes:", "completed"}},
      {receipt, std::string("\x00\xff\r\n", 4), {"4 bytes: 0 255 13 10", "completed"}},
      // Around the 16 KiB the file is read by at a time.
      {receipt, longReceipt(16384), heardFor(longReceipt(16384))},
      {receipt, longReceipt(16385), heardFor(longReceipt(16385))},
      {receipt, longReceipt(50000), heardFor(longReceipt(50000))},
      {folder, std::nullopt, {"failed: filesystem error: cannot read the store receipt: Is a directory [" + folder.string() + "]"}},
  };
  for (const auto& [url, contents, heard] : examples) {
    fs::remove_all(receipt);
    if (contents) std::ofstream(receipt, std::ios::binary) << *contents;
    foundation::Bundle::setMainAppStoreReceiptURL(url);
    testing::SignalRecorder<Bytes> recorder(describe);
    producer.start(recorder.handlers());
    EXPECT_EQ(recorder.events(), heard);  // read on this thread, before start returned
  }
  foundation::Bundle::setMainAppStoreReceiptURL(std::nullopt);
  fs::remove_all(folder);
}

}  // namespace
}  // namespace velquist::storekit
