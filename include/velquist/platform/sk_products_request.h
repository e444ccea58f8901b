#pragma once

#include "velquist/export.h"
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "velquist/platform/sk_error.h"
#include "velquist/platform/sk_product.h"
#include "velquist/support/mutex.h"

VELQUIST_API_BEGIN
namespace velquist::platform {

class StoreBackend;

/// The store's answer to a products request: the products it sells, in its own order, and
/// the identifiers it does not know.
struct SKProductsResponse {
  std::vector<SKProduct> products;
  std::vector<std::string> invalidProductIdentifiers;

  friend bool operator==(const SKProductsResponse&, const SKProductsResponse&) = default;
};

class SKProductsRequest;

/// Hears how a products request ended: exactly one of `productsRequestDidReceive` (then
/// `requestDidFinish`) or `requestDidFailWithError`, once, on a thread of the store's
/// choosing; never after the request was cancelled.
class SKProductsRequestDelegate {
 public:
  virtual ~SKProductsRequestDelegate() = default;

  virtual void productsRequestDidReceive(SKProductsRequest& request, const SKProductsResponse& response) = 0;
  // The two below do nothing unless overridden.
  virtual void requestDidFailWithError(SKProductsRequest& request, const SKError& error);
  /// Follows a received response.
  virtual void requestDidFinish(SKProductsRequest& request);
};

/// Asks the store for the products with the given identifiers. The request holds its
/// delegate weakly, as the store does: whoever sets the delegate keeps it alive, and a
/// request nobody holds any longer drops its answer.
///
///     auto request = SKProductsRequest::create({"com.example.pro", "com.example.lifetime"});
///     request->setDelegate(delegate);
///     request->start();  // the delegate hears the answer later, on another thread
///
/// The process-wide store backend (store_backend.h) answers; while none is set, `start`
/// fails the request with `SKError::noStoreBackend()` before it returns.
///
/// Life of a request: created, started (a second `start` does nothing), then answered,
/// failed or cancelled, once. `cancel` before the answer tells the backend and silences
/// the delegate; after the answer it does nothing.
///
/// Thread-safety: every member may be called from any thread; the delegate is called
/// without any lock held, so it may cancel the request or drop the last reference to it.
class SKProductsRequest : public std::enable_shared_from_this<SKProductsRequest> {
 public:
  static std::shared_ptr<SKProductsRequest> create(std::unordered_set<std::string> productIdentifiers);

  SKProductsRequest(const SKProductsRequest&) = delete;
  SKProductsRequest& operator=(const SKProductsRequest&) = delete;

  const std::unordered_set<std::string>& productIdentifiers() const { return productIdentifiers_; }

  std::shared_ptr<SKProductsRequestDelegate> delegate() const VELQUIST_EXCLUDES(mutex_);
  void setDelegate(std::weak_ptr<SKProductsRequestDelegate> delegate) VELQUIST_EXCLUDES(mutex_);

  void start() VELQUIST_EXCLUDES(mutex_);
  void cancel() VELQUIST_EXCLUDES(mutex_);

 private:
  enum class Stage { created, running, ended };

  explicit SKProductsRequest(std::unordered_set<std::string> productIdentifiers)
      : productIdentifiers_(std::move(productIdentifiers)) {}

  // Where the backend's answer arrives; only the first end of the request counts.
  void receive(const SKProductsResponse* response, const SKError* error) VELQUIST_EXCLUDES(mutex_);

  const std::unordered_set<std::string> productIdentifiers_;
  mutable support::Mutex mutex_;
  std::weak_ptr<SKProductsRequestDelegate> delegate_ VELQUIST_GUARDED_BY(mutex_);
  Stage stage_ VELQUIST_GUARDED_BY(mutex_) = Stage::created;
  std::uint64_t backendRequestID_ VELQUIST_GUARDED_BY(mutex_) = 0;
  std::weak_ptr<StoreBackend> backend_ VELQUIST_GUARDED_BY(mutex_);  // the one that was asked
};

}  // namespace velquist::platform
VELQUIST_API_END
