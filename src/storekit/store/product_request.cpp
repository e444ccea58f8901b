#include "velquist/storekit/store/product_request.h"

#include <exception>
#include <memory>
#include <utility>

#include "velquist/platform/sk_products_request.h"
#include "velquist/support/async_stream.h"
#include "velquist/support/cancellation_error.h"

namespace velquist::storekit {
namespace {

using Stream = support::AsyncStream<std::vector<platform::SKProduct>>;

// Passes the store's answer into the stream the caller waits on: the products as one
// element, or the store's error.
class ProductRequest final : public platform::SKProductsRequestDelegate {
 public:
  ProductRequest() = delete;
  explicit ProductRequest(Stream::Continuation continuation) : continuation_(std::move(continuation)) {}

  void productsRequestDidReceive(platform::SKProductsRequest&, const platform::SKProductsResponse& response) override {
    continuation_.yield(response.products);  // the unknown identifiers are simply not there
    continuation_.finish();
  }

  void requestDidFailWithError(platform::SKProductsRequest&, const platform::SKError& error) override {
    continuation_.finish(std::make_exception_ptr(error));
  }

 private:
  Stream::Continuation continuation_;
};

}  // namespace

std::vector<platform::SKProduct> detail::requestProducts(const std::unordered_set<std::string>& identifiers,
                                                         std::stop_token stop) {
  // Already stopped: the answer would be thrown away whatever it is, so the store is not asked.
  if (stop.stop_requested()) throw support::CancellationError();
  Stream stream([&identifiers](Stream::Continuation continuation) {
    auto request = platform::SKProductsRequest::create(identifiers);
    auto delegate = std::make_shared<ProductRequest>(continuation);
    request->setDelegate(delegate);
    request->start();
    // The request holds its delegate only weakly: this handler keeps both alive until the
    // stream ends, however it ends, and then cancels the request (nothing happens when it
    // has already answered).
    continuation.onTermination([request, delegate] { request->cancel(); });
  });
  // Leaving this function destroys the stream, which ends it and runs the handler.
  if (auto element = stream.next(std::move(stop))) return std::move(*element);
  throw support::CancellationError();
}

}  // namespace velquist::storekit
