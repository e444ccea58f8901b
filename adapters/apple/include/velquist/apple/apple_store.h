#pragma once

#include "velquist/export.h"
#include <memory>

#include "velquist/platform/store_backend.h"

VELQUIST_API_BEGIN
namespace velquist::apple {

/// The library's store stand-ins served by the platform's store framework: products
/// requests, payments, transactions, restores, the storefront and its changes, revoked
/// entitlements, the price consent questions (the adapter is the framework queue's delegate
/// and asks the library queue's), the review prompt and the receipt location.
///
/// This header is plain C++; the implementation is Objective-C++ (adapters/apple/src),
/// built with manual reference counting (-fno-objc-arc).
///
/// Thread-safety: `installAppleStore` and `uninstallAppleStore` may be called from any
/// thread; the backend they install accepts every call from any thread.
///
///     // early in application(_:didFinishLaunchingWithOptions:)
///     velquist::apple::installAppleStore();
///     velquist::storekit::TransactionQueue::live()->add(listener);

/// What `installAppleStore` sets up besides the store backend.
struct AppleStoreOptions {
  /// Routes `SKStoreReviewController::requestReview` (and so `requestReview()`) to the
  /// framework's review prompt, replacing any handler set before.
  bool reviewPrompt = true;
  /// Points `foundation::Bundle` at the main bundle's receipt file, and gives it the main
  /// bundle's identifier when the host set no information dictionary.
  bool bundle = true;
};

/// Makes the store framework the process-wide store backend (replacing any other) and
/// returns it. Calling it again replaces the earlier adapter with a new one. The framework
/// is asked for transactions once the library's payment queue has its first observer (at
/// once if it already has one), so transactions left unfinished by an earlier run reach
/// that observer.
std::shared_ptr<platform::StoreBackend> installAppleStore(const AppleStoreOptions& options = {});

/// Stops observing the framework's payment queue, clears its delegate if it is still the
/// adapter's, and removes the adapter (the store backend, and the review handler if it was
/// set); transactions already handed to the library are still reported to it. Does nothing
/// when no adapter is installed.
void uninstallAppleStore();

}  // namespace velquist::apple
VELQUIST_API_END
