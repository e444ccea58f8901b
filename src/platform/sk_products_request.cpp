#include "velquist/platform/sk_products_request.h"

#include <atomic>
#include <utility>
#include <variant>

#include "velquist/platform/store_backend.h"

namespace velquist::platform {
namespace {

std::uint64_t nextRequestID() {
  static std::atomic<std::uint64_t> last = 0;
  return ++last;
}

}  // namespace

void SKProductsRequestDelegate::requestDidFailWithError(SKProductsRequest&, const SKError&) {}
void SKProductsRequestDelegate::requestDidFinish(SKProductsRequest&) {}

std::shared_ptr<SKProductsRequest> SKProductsRequest::create(std::unordered_set<std::string> productIdentifiers) {
  return std::shared_ptr<SKProductsRequest>(new SKProductsRequest(std::move(productIdentifiers)));
}

std::shared_ptr<SKProductsRequestDelegate> SKProductsRequest::delegate() const {
  support::LockGuard lock(mutex_);
  return delegate_.lock();
}

void SKProductsRequest::setDelegate(std::weak_ptr<SKProductsRequestDelegate> delegate) {
  support::LockGuard lock(mutex_);
  delegate_ = std::move(delegate);
}

void SKProductsRequest::start() {
  const auto backend = defaultStoreBackend();
  const std::uint64_t requestID = nextRequestID();
  {
    support::LockGuard lock(mutex_);
    if (stage_ != Stage::created) return;
    stage_ = Stage::running;
    backendRequestID_ = requestID;
    backend_ = backend;
  }
  if (!backend) {
    const SKError error = SKError::noStoreBackend();
    receive(nullptr, &error);
    return;
  }
  // The answer may come after this request is gone; it is then dropped.
  backend->startProductsRequest(requestID, productIdentifiers_,
                                [weakSelf = weak_from_this()](std::variant<SKProductsResponse, SKError> answer) {
                                  const auto self = weakSelf.lock();
                                  if (!self) return;
                                  if (const auto* response = std::get_if<SKProductsResponse>(&answer)) {
                                    self->receive(response, nullptr);
                                  } else {
                                    self->receive(nullptr, &std::get<SKError>(answer));
                                  }
                                });
}

void SKProductsRequest::cancel() {
  std::shared_ptr<StoreBackend> backend;
  std::uint64_t requestID = 0;
  {
    support::LockGuard lock(mutex_);
    const Stage previous = std::exchange(stage_, Stage::ended);
    if (previous != Stage::running) return;  // not started yet, or already answered
    backend = backend_.lock();
    requestID = backendRequestID_;
  }
  if (backend) backend->cancelProductsRequest(requestID);
}

void SKProductsRequest::receive(const SKProductsResponse* response, const SKError* error) {
  std::shared_ptr<SKProductsRequestDelegate> delegate;
  {
    support::LockGuard lock(mutex_);
    if (stage_ != Stage::running) return;
    stage_ = Stage::ended;
    delegate = delegate_.lock();
  }
  if (!delegate) return;
  if (response) {
    delegate->productsRequestDidReceive(*this, *response);
    delegate->requestDidFinish(*this);
  } else {
    delegate->requestDidFailWithError(*this, *error);
  }
}

}  // namespace velquist::platform
