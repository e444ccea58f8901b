#pragma once

#include "velquist/export.h"
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <variant>

#include "velquist/platform/sk_error.h"
#include "velquist/platform/sk_payment.h"
#include "velquist/platform/sk_products_request.h"
#include "velquist/platform/sk_storefront.h"

VELQUIST_API_BEGIN
namespace velquist::platform {

/// The store itself, behind the store stand-ins: it answers products requests, takes
/// payments, finishes and restores transactions, and gives the storefront. The payment
/// queue and products requests forward their work to the process-wide backend; the
/// backend reports transactions through `SKPaymentQueue::defaultQueue().report...`.
///
/// A backend must not block its callers: it answers requests and reports transactions
/// later, from a thread of its own choosing.
///
/// Thread-safety: implementations must accept every call from any thread.
class StoreBackend {
 public:
  /// Receives the answer to one products request: a response or an error. Call it once,
  /// from any thread; it returns quickly and may be called after the request is gone.
  using ProductsCompletion = std::function<void(std::variant<SKProductsResponse, SKError> answer)>;

  virtual ~StoreBackend() = default;

  /// Starts answering the products request numbered `requestID` (unique in the process).
  virtual void startProductsRequest(std::uint64_t requestID, const std::unordered_set<std::string>& productIdentifiers,
                                    ProductsCompletion completion) = 0;
  /// The request was cancelled before its answer arrived; the answer is no longer wanted.
  virtual void cancelProductsRequest(std::uint64_t requestID) = 0;

  virtual void addPayment(const SKPayment& payment) = 0;
  virtual void finishTransaction(const std::shared_ptr<SKPaymentTransaction>& transaction) = 0;
  virtual void restoreCompletedTransactions(const std::optional<std::string>& applicationUsername) = 0;
  virtual std::optional<SKStorefront> storefront() const = 0;
  /// An observer was added to the default payment queue (called outside any lock of the
  /// queue). A store that resumes after a restart reports the transactions the app had not
  /// finished from here on. Does nothing unless overridden.
  virtual void transactionObserverAdded() {}
  /// The app asks for the price consent sheets its queue delegate deferred to be shown now.
  /// Does nothing unless overridden.
  virtual void showPriceConsentIfNeeded() {}
};

/// The backend every store stand-in uses; empty until the host sets one.
std::shared_ptr<StoreBackend> defaultStoreBackend();
/// Replaces the process-wide backend (empty to have none). Work already handed to the old
/// backend stays with it.
void setDefaultStoreBackend(std::shared_ptr<StoreBackend> backend);

}  // namespace velquist::platform
VELQUIST_API_END
