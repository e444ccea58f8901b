#include <exception>
#include <memory>
#include <type_traits>
#include <utility>

#include "velquist/platform/sk_products_request.h"
#include "velquist/storekit/store/product_request.h"

namespace velquist::storekit {
namespace {

using Observer = ProductsProducer::Observer;

// Passes the store's answer to the subscriber of a started producer: the products as one
// value and completed, or the store's error as the failure.
class ProductRequest final : public platform::SKProductsRequestDelegate {
 public:
  ProductRequest() = delete;
  explicit ProductRequest(Observer subscriber) : subscriber_(std::move(subscriber)) {}

  void productsRequestDidReceive(platform::SKProductsRequest&, const platform::SKProductsResponse& response) override {
    subscriber_.send(response.products);  // the unknown identifiers are simply not there
    subscriber_.sendCompleted();
  }

  void requestDidFailWithError(platform::SKProductsRequest&, const platform::SKError& error) override {
    subscriber_.sendFailed(std::make_exception_ptr(error));
  }

 private:
  Observer subscriber_;
};

static_assert(!std::is_default_constructible_v<ProductRequest>, "a delegate is useless without its subscriber");

// The delegate's only strong owner: the request holds its delegate weakly, and the
// subscription's clean-up empties the box to let the delegate go.
struct DelegateBox {
  std::shared_ptr<ProductRequest> delegate;
};

}  // namespace

ProductsProducer detail::productsProducer(std::unordered_set<std::string> identifiers) {
  return ProductsProducer([identifiers = std::move(identifiers)](Observer observer, support::Lifetime lifetime) {
    auto request = platform::SKProductsRequest::create(identifiers);
    auto box = std::make_shared<DelegateBox>();
    box->delegate = std::make_shared<ProductRequest>(std::move(observer));
    request->setDelegate(box->delegate);
    request->start();
    // However the subscription ends, this keeps the request and its delegate alive until
    // then, and afterwards cancels the request (nothing happens when it has answered),
    // detaches the delegate so that no late answer can reach it, and lets it go.
    lifetime.observeEnded([request, box] {
      request->cancel();
      request->setDelegate({});
      box->delegate.reset();
    });
  });
}

}  // namespace velquist::storekit
