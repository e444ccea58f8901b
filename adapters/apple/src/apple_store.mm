// The store backend over the platform's store framework. The framework talks to three kinds
// of objects of ours: a transaction observer on its payment queue and one delegate per
// products request, which turn what they hear into the library's values on the thread the
// framework calls them on (the main thread), then hand the reporting to serial queues of
// the library, so the main thread never waits for the library's observers; and the payment
// queue's delegate, whose one question (may a price consent sheet show now?) needs its
// answer at once, so it asks the app's delegate on the framework's thread.

// The library's headers come before any Objective-C header: Objective-C defines `nil` as a
// macro, and the library uses it as a name.
#include "velquist/apple/apple_store.h"
#include "velquist/foundation/bundle.h"
#include "velquist/logging/logger.h"
#include "velquist/platform/sk_payment_queue.h"
#include "velquist/platform/store_review_controller.h"
#include "velquist/support/mutex.h"
#include "velquist/support/queue_scheduler.h"

#import "store_records.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

namespace velquist::apple::detail {
class Core;
}

using velquist::apple::detail::Core;

// Hears the framework's payment queue and passes everything on to the core.
@interface VSKPaymentQueueObserver : NSObject <SKPaymentTransactionObserver> {
  std::weak_ptr<Core>* core_;
}
- (instancetype)initWithCore:(const std::shared_ptr<Core>&)core;
@end

// Answers the framework's payment queue with what the library's queue delegate decides.
@interface VSKPaymentQueueDelegate : NSObject <SKPaymentQueueDelegate>
@end

// Hears one products request.
@interface VSKProductsRequestDelegate : NSObject <SKProductsRequestDelegate> {
  std::weak_ptr<Core>* core_;
  std::uint64_t requestID_;
}
- (instancetype)initWithCore:(const std::shared_ptr<Core>&)core requestID:(std::uint64_t)requestID;
@end

namespace velquist::apple::detail {
namespace {

using platform::SKPaymentQueue;
using StandIn = std::shared_ptr<platform::SKPaymentTransaction>;
using Lock = support::LockGuard<support::Mutex>;

const logging::Logger& logger() { return logging::Logger::named("velquist.apple-store", "StoreKit"); }

// An autorelease pool for the length of a call that may come from a thread of the library.
class AutoreleasePool {
 public:
  AutoreleasePool() : pool_([[NSAutoreleasePool alloc] init]) {}
  ~AutoreleasePool() { [pool_ drain]; }
  AutoreleasePool(const AutoreleasePool&) = delete;
  AutoreleasePool& operator=(const AutoreleasePool&) = delete;

 private:
  NSAutoreleasePool* pool_;
};

// Originals of originals are followed this far at most.
constexpr int maxOriginalDepth = 4;

// Serialises changes of the framework queue's delegate: an adapter going away must not
// clear the one a newer adapter has just set.
support::Mutex queueDelegateMutex;

}  // namespace

class Core : public std::enable_shared_from_this<Core> {
 public:
  using ProductsCompletion = platform::StoreBackend::ProductsCompletion;

  Core() = default;
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  ~Core() {
    AutoreleasePool pool;
    stop();
    Lock lock(mutex_);
    for (auto& [requestID, pending] : requests_) {
      [pending.request setDelegate:nil];
      [pending.request cancel];
      [pending.request release];
      [pending.delegate release];
    }
    for (auto& [object, standIn] : standIns_) [object release];
  }

  // --- products ---

  void startProducts(std::uint64_t requestID, const std::unordered_set<std::string>& identifiers,
                     ProductsCompletion completion) {
    AutoreleasePool pool;
    NSMutableSet* set = [NSMutableSet setWithCapacity:identifiers.size()];
    for (const auto& identifier : identifiers) [set addObject:nsString(identifier)];
    SKProductsRequest* request = [[SKProductsRequest alloc] initWithProductIdentifiers:set];
    VSKProductsRequestDelegate* delegate = [[VSKProductsRequestDelegate alloc] initWithCore:shared_from_this()
                                                                                  requestID:requestID];
    request.delegate = delegate;
    {
      Lock lock(mutex_);
      requests_[requestID] = {[request retain], [delegate retain], std::move(completion)};
    }
    // A cancel may come in between and release the map's references; ours keep the request
    // and its delegate alive while it starts.
    [request start];
    [request release];
    [delegate release];
  }

  void cancelProducts(std::uint64_t requestID) {
    AutoreleasePool pool;
    auto pending = take(requestID);
    if (!pending) return;
    [pending->request setDelegate:nil];
    [pending->request cancel];
    [pending->request release];
    [pending->delegate release];
  }

  // From a request's delegate, on the framework's thread.
  void answerProducts(std::uint64_t requestID, std::variant<platform::SKProductsResponse, platform::SKError> answer) {
    auto pending = take(requestID);
    if (!pending) return;  // cancelled: the answer is no longer wanted
    // The framework is calling the delegate right now and may still call `requestDidFinish:`.
    [pending->request autorelease];
    [pending->delegate autorelease];
    answers_.schedule([completion = std::move(pending->completion), answer = std::move(answer)] { completion(answer); });
  }

  // --- payments and transactions ---

  void addPayment(const platform::SKPayment& payment) {
    AutoreleasePool pool;
    auto made = makePayment(payment);
    if (auto* refused = std::get_if<platform::SKError>(&made)) {
      logger().error("payment refused: %{public}@", std::string(refused->what()));
      auto standIn = std::make_shared<platform::SKPaymentTransaction>(
          payment, platform::SKPaymentTransactionProgress{.state = platform::SKPaymentTransactionState::failed,
                                                          .error = *refused});
      reports_.schedule([standIn] { SKPaymentQueue::defaultQueue().reportUpdatedTransactions({standIn}); });
      return;
    }
    [[::SKPaymentQueue defaultQueue] addPayment:std::get<SKMutablePayment*>(made)];
  }

  void finish(const StandIn& standIn) {
    AutoreleasePool pool;
    SKPaymentTransaction* object = nil;
    {
      Lock lock(mutex_);
      if (auto found = objects_.find(standIn.get()); found != objects_.end()) object = [[found->second retain] autorelease];
    }
    if (!object) {
      logger().error("finish transaction %{public}@: not on the store's queue (finished already, or not the store's)",
                     standIn ? standIn->transactionIdentifier().value_or("without identifier") : "none");
      return;
    }
    if (object.transactionState == SKPaymentTransactionStatePurchasing) {
      // The framework refuses (raises) to finish a transaction still being purchased.
      logger().error("finish transaction %{public}@: still purchasing, left on the queue",
                     standIn->payment().productIdentifier);
      return;
    }
    [[::SKPaymentQueue defaultQueue] finishTransaction:object];
  }

  void restore(const std::optional<std::string>& applicationUsername) {
    AutoreleasePool pool;
    if (applicationUsername) {
      [[::SKPaymentQueue defaultQueue] restoreCompletedTransactionsWithApplicationUsername:nsString(applicationUsername)];
    } else {
      [[::SKPaymentQueue defaultQueue] restoreCompletedTransactions];
    }
  }

  std::optional<platform::SKStorefront> currentStorefront() const {
    AutoreleasePool pool;
    return storefront([[::SKPaymentQueue defaultQueue] storefront]);
  }

  // Starts observing the framework's queue, once; the framework then reports the
  // transactions it still has.
  void observe() {
    AutoreleasePool pool;
    VSKPaymentQueueObserver* observer = nil;
    {
      Lock lock(mutex_);
      if (observer_) return;
      observer_ = [[VSKPaymentQueueObserver alloc] initWithCore:shared_from_this()];
      observer = [[observer_ retain] autorelease];
    }
    [[::SKPaymentQueue defaultQueue] addTransactionObserver:observer];
  }

  void stopObserving() {
    VSKPaymentQueueObserver* observer = nil;
    {
      Lock lock(mutex_);
      observer = std::exchange(observer_, nil);
    }
    if (!observer) return;
    [[::SKPaymentQueue defaultQueue] removeTransactionObserver:observer];
    [observer release];
  }

  // --- the framework queue's delegate ---

  // Makes a delegate of ours the framework queue's, once; the framework holds it weakly,
  // this core keeps it alive.
  void becomeQueueDelegate() {
    AutoreleasePool pool;
    Lock lock(queueDelegateMutex);
    if (queueDelegate_) return;
    queueDelegate_ = [[VSKPaymentQueueDelegate alloc] init];
    [[::SKPaymentQueue defaultQueue] setDelegate:queueDelegate_];
  }

  // Clears the framework queue's delegate if it is still ours (a newer adapter may have put
  // its own there), and lets ours go.
  void resignQueueDelegate() {
    AutoreleasePool pool;
    Lock lock(queueDelegateMutex);
    if (!queueDelegate_) return;
    ::SKPaymentQueue* queue = [::SKPaymentQueue defaultQueue];
    if ([queue delegate] == queueDelegate_) [queue setDelegate:nil];
    [queueDelegate_ release];
    queueDelegate_ = nil;
  }

  void stop() {
    stopObserving();
    resignQueueDelegate();
  }

  void showPriceConsentIfNeeded() {
    AutoreleasePool pool;
    [[::SKPaymentQueue defaultQueue] showPriceConsentIfNeeded];
  }

  // --- what the framework's queue reports, on its thread ---

  void updated(NSArray* transactions) {
    std::vector<std::pair<StandIn, platform::SKPaymentTransactionProgress>> moved;
    SKPaymentQueue::Transactions batch;
    for (id element in transactions) {
      if (![element isKindOfClass:[SKPaymentTransaction class]]) continue;
      SKPaymentTransaction* transaction = element;
      auto now = progress(transaction);
      if (StandIn known = standInFor(transaction)) {
        batch.push_back(known);
        moved.emplace_back(std::move(known), std::move(now));
        continue;
      }
      auto made = std::make_shared<platform::SKPaymentTransaction>(
          payment(transaction.payment), std::move(now), originalFor(transaction.originalTransaction, 1));
      batch.push_back(keep(transaction, std::move(made)));
    }
    if (batch.empty()) return;
    // The stand-ins change state in order with the reports, never under a report still running.
    reports_.schedule([moved = std::move(moved), batch = std::move(batch)] {
      for (const auto& [standIn, now] : moved) standIn->update(now);
      SKPaymentQueue::defaultQueue().reportUpdatedTransactions(batch);
    });
  }

  void removed(NSArray* transactions) {
    SKPaymentQueue::Transactions batch;
    {
      Lock lock(mutex_);
      for (id element in transactions) {
        auto found = standIns_.find(element);
        if (found == standIns_.end()) continue;
        batch.push_back(found->second);
        objects_.erase(found->second.get());
        [found->first release];
        standIns_.erase(found);
      }
    }
    if (batch.empty()) return;
    reports_.schedule([batch = std::move(batch)] { SKPaymentQueue::defaultQueue().reportRemovedTransactions(batch); });
  }

  void restoreFinished() {
    reports_.schedule([] { SKPaymentQueue::defaultQueue().reportRestoreCompletedTransactionsFinished(); });
  }

  void restoreFailed(NSError* failure) {
    reports_.schedule([reason = error(failure)] { SKPaymentQueue::defaultQueue().reportRestoreCompletedTransactionsFailed(reason); });
  }

  void revoked(NSArray* productIdentifiers) {
    std::vector<std::string> identifiers;
    for (id element in productIdentifiers) {
      if ([element isKindOfClass:[NSString class]]) identifiers.push_back(utf8(element));
    }
    reports_.schedule([identifiers = std::move(identifiers)] {
      SKPaymentQueue::defaultQueue().reportDidRevokeEntitlements(identifiers);
    });
  }

  void storefrontChanged() {
    reports_.schedule([] { SKPaymentQueue::defaultQueue().reportStorefrontDidChange(); });
  }

 private:
  struct PendingRequest {
    SKProductsRequest* request;            // retained
    VSKProductsRequestDelegate* delegate;  // retained: the request holds it weakly
    ProductsCompletion completion;
  };

  std::optional<PendingRequest> take(std::uint64_t requestID) {
    Lock lock(mutex_);
    auto found = requests_.find(requestID);
    if (found == requests_.end()) return std::nullopt;
    PendingRequest pending = std::move(found->second);
    requests_.erase(found);
    return pending;
  }

  StandIn standInFor(SKPaymentTransaction* transaction) {
    Lock lock(mutex_);
    auto found = standIns_.find(transaction);
    return found == standIns_.end() ? nullptr : found->second;
  }

  // Records the stand-in for a framework transaction, unless another thread got there first.
  StandIn keep(SKPaymentTransaction* transaction, StandIn made) {
    Lock lock(mutex_);
    auto [entry, inserted] = standIns_.try_emplace(transaction, std::move(made));
    if (inserted) {
      [transaction retain];
      objects_[entry->second.get()] = transaction;
    }
    return entry->second;
  }

  // The transaction a restore or renewal goes back to: its stand-in while the framework
  // still has it on the queue, a record of its own otherwise.
  StandIn originalFor(SKPaymentTransaction* original, int depth) {
    if (!original) return nullptr;
    if (StandIn known = standInFor(original)) return known;
    return std::make_shared<platform::SKPaymentTransaction>(
        payment(original.payment), progress(original),
        depth < maxOriginalDepth ? originalFor(original.originalTransaction, depth + 1) : nullptr);
  }

  mutable support::Mutex mutex_;
  std::unordered_map<std::uint64_t, PendingRequest> requests_ VELQUIST_GUARDED_BY(mutex_);
  // One stand-in per framework transaction while the framework keeps it (keys retained),
  // and the way back.
  std::unordered_map<id, StandIn> standIns_ VELQUIST_GUARDED_BY(mutex_);
  std::unordered_map<const platform::SKPaymentTransaction*, SKPaymentTransaction*> objects_ VELQUIST_GUARDED_BY(mutex_);
  VSKPaymentQueueObserver* observer_ VELQUIST_GUARDED_BY(mutex_) = nil;  // retained
  VSKPaymentQueueDelegate* queueDelegate_ VELQUIST_GUARDED_BY(queueDelegateMutex) = nil;  // retained

  support::QueueScheduler reports_{"velquist.apple-store.transactions"};
  support::QueueScheduler answers_{"velquist.apple-store.products"};
};

namespace {

class AppleStoreBackend final : public platform::StoreBackend {
 public:
  AppleStoreBackend() : core_(std::make_shared<Core>()) {}
  ~AppleStoreBackend() override { core_->stop(); }

  void startProductsRequest(std::uint64_t requestID, const std::unordered_set<std::string>& productIdentifiers,
                            ProductsCompletion completion) override {
    core_->startProducts(requestID, productIdentifiers, std::move(completion));
  }
  void cancelProductsRequest(std::uint64_t requestID) override { core_->cancelProducts(requestID); }
  void addPayment(const platform::SKPayment& payment) override { core_->addPayment(payment); }
  void finishTransaction(const StandIn& transaction) override { core_->finish(transaction); }
  void restoreCompletedTransactions(const std::optional<std::string>& applicationUsername) override {
    core_->restore(applicationUsername);
  }
  std::optional<platform::SKStorefront> storefront() const override { return core_->currentStorefront(); }
  void transactionObserverAdded() override { core_->observe(); }
  void showPriceConsentIfNeeded() override { core_->showPriceConsentIfNeeded(); }

  void becomeQueueDelegate() { core_->becomeQueueDelegate(); }
  void stop() { core_->stop(); }

 private:
  std::shared_ptr<Core> core_;
};

struct Installed {
  std::shared_ptr<AppleStoreBackend> backend;
  bool reviewPrompt = false;
};

std::mutex installMutex;
Installed installed;  // guarded by installMutex

void pointBundleAtMainBundle() {
  NSBundle* bundle = [NSBundle mainBundle];
  NSURL* receipt = [bundle appStoreReceiptURL];
  if (receipt && [receipt isFileURL]) foundation::Bundle::setMainAppStoreReceiptURL(utf8([receipt path]));
  NSString* identifier = [bundle bundleIdentifier];
  if (identifier && !foundation::Bundle::main().infoDictionary()) {
    foundation::Bundle::setMainInfoDictionary(
        foundation::JsonValue(foundation::JsonValue::Object{{"CFBundleIdentifier", foundation::JsonValue(utf8(identifier))}}));
  }
}

}  // namespace
}  // namespace velquist::apple::detail

@implementation VSKPaymentQueueObserver

- (instancetype)initWithCore:(const std::shared_ptr<Core>&)core {
  if ((self = [super init])) core_ = new std::weak_ptr<Core>(core);
  return self;
}

- (void)dealloc {
  delete core_;
  [super dealloc];
}

- (void)paymentQueue:(SKPaymentQueue*)queue updatedTransactions:(NSArray<SKPaymentTransaction*>*)transactions {
  if (auto core = core_->lock()) core->updated(transactions);
}

- (void)paymentQueue:(SKPaymentQueue*)queue removedTransactions:(NSArray<SKPaymentTransaction*>*)transactions {
  if (auto core = core_->lock()) core->removed(transactions);
}

- (void)paymentQueue:(SKPaymentQueue*)queue restoreCompletedTransactionsFailedWithError:(NSError*)error {
  if (auto core = core_->lock()) core->restoreFailed(error);
}

- (void)paymentQueueRestoreCompletedTransactionsFinished:(SKPaymentQueue*)queue {
  if (auto core = core_->lock()) core->restoreFinished();
}

- (void)paymentQueue:(SKPaymentQueue*)queue didRevokeEntitlementsForProductIdentifiers:(NSArray<NSString*>*)productIdentifiers {
  if (auto core = core_->lock()) core->revoked(productIdentifiers);
}

- (void)paymentQueueDidChangeStorefront:(SKPaymentQueue*)queue {
  if (auto core = core_->lock()) core->storefrontChanged();
}

@end

@implementation VSKPaymentQueueDelegate

// The framework waits on its (main) thread for the answer, so the app's delegate is asked
// right here, with no lock of the adapter held.
- (BOOL)paymentQueueShouldShowPriceConsent:(SKPaymentQueue*)paymentQueue {
  return velquist::platform::SKPaymentQueue::defaultQueue().shouldShowPriceConsent() ? YES : NO;
}

@end

@implementation VSKProductsRequestDelegate

- (instancetype)initWithCore:(const std::shared_ptr<Core>&)core requestID:(std::uint64_t)requestID {
  if ((self = [super init])) {
    core_ = new std::weak_ptr<Core>(core);
    requestID_ = requestID;
  }
  return self;
}

- (void)dealloc {
  delete core_;
  [super dealloc];
}

- (void)productsRequest:(SKProductsRequest*)request didReceiveResponse:(SKProductsResponse*)response {
  if (auto core = core_->lock()) core->answerProducts(requestID_, velquist::apple::detail::productsResponse(response));
}

- (void)request:(SKRequest*)request didFailWithError:(NSError*)error {
  if (auto core = core_->lock()) core->answerProducts(requestID_, velquist::apple::detail::error(error));
}

- (void)requestDidFinish:(SKRequest*)request {
  // The response came just before; nothing more to tell.
}

@end

namespace velquist::apple {

std::shared_ptr<platform::StoreBackend> installAppleStore(const AppleStoreOptions& options) {
  detail::AutoreleasePool pool;
  auto backend = std::make_shared<detail::AppleStoreBackend>();
  std::shared_ptr<detail::AppleStoreBackend> previous;
  {
    std::lock_guard lock(detail::installMutex);
    previous = std::exchange(detail::installed.backend, backend);
    detail::installed.reviewPrompt = options.reviewPrompt;
  }
  if (previous) previous->stop();
  backend->becomeQueueDelegate();
  platform::setDefaultStoreBackend(backend);
  if (options.reviewPrompt) {
    platform::SKStoreReviewController::setHandler([](const std::shared_ptr<platform::UIWindowScene>&) {
      detail::AutoreleasePool requestPool;
      // The scene-less form: the library's scene stand-ins are not the framework's scenes.
      // Deprecated in newer SDKs, still served.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
      [SKStoreReviewController requestReview];
#pragma clang diagnostic pop
    });
  } else {
    platform::SKStoreReviewController::setHandler(nullptr);
  }
  if (options.bundle) detail::pointBundleAtMainBundle();
  if (!platform::SKPaymentQueue::defaultQueue().transactionObservers().empty()) backend->transactionObserverAdded();
  return backend;
}

void uninstallAppleStore() {
  detail::Installed was;
  {
    std::lock_guard lock(detail::installMutex);
    was = std::exchange(detail::installed, {});
  }
  if (!was.backend) return;
  was.backend->stop();
  if (platform::defaultStoreBackend() == was.backend) platform::setDefaultStoreBackend(nullptr);
  if (was.reviewPrompt) platform::SKStoreReviewController::setHandler(nullptr);
}

}  // namespace velquist::apple
