#pragma once

#include "velquist/export.h"
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "velquist/foundation/locale.h"
#include "velquist/platform/sk_error.h"
#include "velquist/platform/sk_payment.h"
#include "velquist/platform/sk_product.h"
#include "velquist/platform/store_backend.h"
#include "velquist/sandbox/storekit_configuration.h"

VELQUIST_API_BEGIN
namespace velquist::sandbox {

/// What a declined Ask to Buy purchase turns into.
enum class DeclinedPurchaseOutcome {
  /// The deferred transaction fails with `SKError::Code::paymentCancelled`.
  failed,
  /// The deferred transaction stays deferred and is dropped from the queue: the app hears
  /// nothing more about it.
  staysDeferred,
};

/// How a `SandboxStore` is set up beyond its catalogue file.
struct SandboxStoreOptions {
  /// Where the ledger, clock and receipt are kept (created when missing). Empty: a folder
  /// per application under the library's data folder, `dataDirectory()/sandbox/<bundle id>`
  /// ("app" without a bundle identifier).
  std::filesystem::path stateDirectory;
  /// How long `open` waits for another process that has the state folder open (each store
  /// holds an advisory lock on "<stateDirectory>/.lock" while it lives) before it throws
  /// `foundation::FileInUseError` naming that process.
  std::chrono::milliseconds lockWait = std::chrono::seconds(10);
  /// Replaces the file's `_storefront` (three-letter code).
  std::optional<std::string> storefront;
  /// Replaces the file's `_locale` (`de_DE`, `ja`).
  std::optional<std::string> locale;
  /// Lets the store's clock also run with real time, as fast as the file's `_timeRate` says
  /// (see `SandboxStore::advanceClock`). Off by default: the clock then moves only when the
  /// caller advances it, which keeps tests and scripted runs repeatable.
  bool followsTimeRate = false;
  DeclinedPurchaseOutcome declinedPurchaseOutcome = DeclinedPurchaseOutcome::failed;
  /// Points the main bundle's receipt location at this store's receipt file.
  bool publishesReceipt = true;
  /// Where the clock of a new ledger starts (default: the current time). A ledger that
  /// already exists keeps its own clock. Scripted runs set it so their dates repeat.
  std::optional<std::chrono::system_clock::time_point> clockStart;
};

/// One entry of the sandbox store's ledger: a purchase, renewal, restore, failure or a
/// purchase waiting for approval, as the store keeps it across launches.
struct LedgerEntry {
  using Date = std::chrono::system_clock::time_point;

  /// Which offer a purchase or renewal was charged under.
  enum class OfferKind { none, introductory, promotional, code };

  /// The store's identifier of the transaction. Deferred and failed purchases have one in
  /// the ledger too, but the app's transaction shows it only once it is purchased or
  /// restored.
  std::string identifier;
  /// The first purchase this renews or restores; absent for a first purchase.
  std::optional<std::string> originalIdentifier;
  std::string productIdentifier;
  std::int64_t quantity = 1;
  std::optional<std::string> applicationUsername;
  platform::SKPaymentTransactionState state = platform::SKPaymentTransactionState::purchasing;
  std::optional<platform::SKError::Code> errorCode;  ///< why it failed
  Date purchaseDate;
  /// When the period it paid for ends; for auto-renewable subscriptions only.
  std::optional<Date> expiresDate;
  OfferKind offer = OfferKind::none;
  /// The promotional offer's identifier, or the code offer's reference name.
  std::optional<std::string> offerIdentifier;
  /// How many offer periods this entry used up, counted from the first purchase (an
  /// introductory pay-as-you-go offer of three months runs through entries 1, 2, 3).
  std::int32_t offerPeriodIndex = 0;
  /// The app finished the transaction; unfinished ones come back on the next launch.
  bool finished = false;
  /// The promotional offer the payment carried, signature included, and its Ask to Buy
  /// flag: a later process hands the app the payment exactly as it was made.
  std::optional<platform::SKPaymentDiscount> paymentDiscount;
  bool simulatesAskToBuyInSandbox = false;
  /// A stackable code offer redeemed with the introductory offer: it follows once the
  /// introductory periods end (carried from entry to entry until then).
  std::optional<std::string> stackedCodeOffer;
  /// A purchase of a lower level (or of the same level with another period) in a group the
  /// customer is subscribed to: it is purchased but charges nothing, and the subscription
  /// switches to its product at the next renewal. It has no expiry date of its own.
  bool changesAtRenewal = false;
  /// The purchase failed because it was interrupted (`interruptionResolved` once the customer
  /// dealt with it and a new purchase completed it).
  bool interrupted = false;
  bool interruptionResolved = false;
  /// When it was refunded, and why (0 other, 1 a problem with the app): the entitlement ended then.
  std::optional<Date> revocationDate;
  std::optional<std::int64_t> revocationReason;
  /// What a renewal was charged when the customer agreed to a higher price than the file's.
  std::optional<Decimal> price;

  // The renewal state of a subscription, kept on its first purchase for the whole chain.

  /// The `changesAtRenewal` purchase the next renewal switches to.
  std::optional<std::string> pendingChange;
  /// The customer turned auto-renew off: the subscription ends with its current period.
  bool autoRenewOff = false;
  /// When a renewal fell due while billing failed; the subscription waits for the customer
  /// to fix it, for `gracePeriodEnd` with access and until the retry window closes without.
  std::optional<Date> billingIssueSince;
  std::optional<Date> gracePeriodEnd;
  /// A price increase waiting for the customer's consent, and whether the consent sheet was
  /// shown (not while the payment queue's delegate defers it).
  std::optional<Decimal> priceIncrease;
  bool priceConsentShown = false;

  friend bool operator==(const LedgerEntry&, const LedgerEntry&) = default;
};

/// Where a customer's subscription in a group stands, as the store would tell the app.
/// A plain value; `vsk simulate` prints it as
///
///     status: com.example.pro.monthly inGracePeriod expires 2027-03-17T00:00:00Z
struct SubscriptionStatus {
  enum class State { notSubscribed, subscribed, expired, inBillingRetryPeriod, inGracePeriod, revoked };

  State state = State::notSubscribed;
  /// The product the customer holds in the group now; absent when not subscribed.
  std::optional<std::string> productIdentifier;
  /// When access ends or ended: the end of the period (subscribed, expired), of the grace
  /// period (in grace), the date the renewal failed (in billing retry); absent otherwise.
  std::optional<std::chrono::system_clock::time_point> expiresDate;

  friend bool operator==(const SubscriptionStatus&, const SubscriptionStatus&) = default;
};

/// A price increase of a subscription waiting for the customer's consent.
struct PriceConsent {
  std::string productIdentifier;
  Decimal newPrice;
  /// The consent sheet was shown; false while the payment queue's delegate defers it.
  bool shown = false;

  friend bool operator==(const PriceConsent&, const PriceConsent&) = default;
};

/// The platform's name of a state: "subscribed", "expired", "inBillingRetryPeriod",
/// "inGracePeriod", "revoked", "not subscribed".
std::string_view name(SubscriptionStatus::State state);

/// A local store that sells the products of an Xcode StoreKit configuration file (`.storekit`)
/// and behaves like the platform's test store: it is the library's default `StoreBackend`
/// for development, tests and the command-line tool.
///
/// - Products requests are answered from the catalogue on a background queue: unknown
///   identifiers come back as invalid, a simulated "Load Products" error fails the request.
///   Titles follow the locale (`_locale`), prices are the file's numbers in the currency of
///   the storefront (`_storefront`), with the price locale the platform forms, such as
///   `en_PT@currency=EUR`.
/// - Payments go through purchasing to purchased; to failed while failing transactions
///   is on (`_failTransactionsEnabled`, or a simulated "Purchase" error); to deferred while
///   Ask to Buy is on, until approved (purchased) or declined.
/// - Auto-renewable subscriptions: the introductory offer applies to the first purchase in
///   a subscription group only; a promotional offer is chosen by the payment's discount
///   identifier (an unknown one fails with `invalidOfferIdentifier`). Subscriptions renew
///   on the store's clock; each renewal is a new purchased transaction whose original
///   transaction is the first purchase. A customer holds one subscription per group:
///   buying another one of the group (or the same one again) continues it under the same
///   first purchase, at the new product's terms from when the change takes effect (below).
///   A non-consumable bought again is handed back the same way, with its first purchase
///   as original.
/// - Plan changes follow the group levels (`groupNumber`, 1 the highest): buying a higher
///   level while subscribed upgrades at once; a lower level (or the same level with another
///   period) is purchased without a charge and the subscription switches to it at the next
///   renewal, still under the same first purchase.
/// - Billing trouble: while renewal billing fails (`_renewalBillingIssuesEnabled`), a renewal
///   that falls due is not charged; the subscription is in its grace period (when
///   `_billingGracePeriodEnabled`: 6 days for weekly subscriptions, 16 for the others) and
///   then in billing retry, for 60 days from the failed renewal. Under the time rates that
///   renew after a fixed time, grace lasts one such time and retry two. Fixing billing
///   charges the renewal at once; a subscription not fixed in time expires.
/// - Auto-renew can be turned off (the subscription runs out) and on again; a transaction can
///   be refunded (the entitlement ends and observers hear that it was revoked); offer codes
///   are redeemed by reference name or internal id for eligible customers (a stackable one
///   follows the introductory offer of a customer new to the group); purchases can be
///   interrupted (`_billingIssuesEnabled`: they fail until resolved, then a new purchased
///   transaction arrives).
/// - Price increases: the customer is asked to consent (the sheet shows at once unless the
///   payment queue's delegate defers it until `showPriceConsentIfNeeded`). Agreeing charges
///   the new price from the next renewal on, and products show it from then; declining, or
///   not answering before the renewal falls due, lets the subscription run out.
/// - Restoring reports a restored transaction for every non-consumable and every first
///   purchase of a subscription (the original being the purchase), then that it finished.
/// - The ledger (transactions, clock, offers used) lives in `ledger.json` in the state
///   folder and the receipt in `receipt.json`, both rewritten atomically after each change,
///   so a process started later resumes where an earlier one stopped, and transactions the
///   app had not finished are reported again once an observer is added.
///
/// Every report reaches the default payment queue's observers from one serial background
/// queue, in the order the store made them; no thread waits for a pending request.
///
///     auto store = SandboxStore::open("Products.storekit");
///     platform::setDefaultStoreBackend(store);
///     platform::SKPaymentQueue::defaultQueue().add({.productIdentifier = "com.example.pro"});
///     store->advanceClock(std::chrono::days(31));  // the subscription renews
///
/// Thread-safety: every member may be called from any thread.
class SandboxStore final : public platform::StoreBackend, public std::enable_shared_from_this<SandboxStore> {
 public:
  using Date = std::chrono::system_clock::time_point;

  /// Opens the store over a catalogue, resuming the ledger in the state folder. Throws
  /// `StoreKitConfigurationError` for a storefront the store does not know or a file that
  /// does not load, and `std::runtime_error` naming the file when the ledger cannot be
  /// read or written.
  static std::shared_ptr<SandboxStore> open(StoreKitConfiguration configuration, SandboxStoreOptions options = {});
  static std::shared_ptr<SandboxStore> open(const std::filesystem::path& configurationFile,
                                            SandboxStoreOptions options = {});
  /// Opens a store as above and makes it the process-wide store backend.
  static std::shared_ptr<SandboxStore> openAsDefault(const std::filesystem::path& configurationFile,
                                                     SandboxStoreOptions options = {});

  ~SandboxStore() override;
  SandboxStore(const SandboxStore&) = delete;
  SandboxStore& operator=(const SandboxStore&) = delete;

  // The store backend.
  void startProductsRequest(std::uint64_t requestID, const std::unordered_set<std::string>& productIdentifiers,
                            ProductsCompletion completion) override;
  void cancelProductsRequest(std::uint64_t requestID) override;
  void addPayment(const platform::SKPayment& payment) override;
  void finishTransaction(const std::shared_ptr<platform::SKPaymentTransaction>& transaction) override;
  void restoreCompletedTransactions(const std::optional<std::string>& applicationUsername) override;
  std::optional<platform::SKStorefront> storefront() const override;
  void transactionObserverAdded() override;
  /// Shows every price consent sheet the delegate deferred; see `pendingPriceConsents`.
  void showPriceConsentIfNeeded() override;

  /// The catalogue as loaded.
  const StoreKitConfiguration& configuration() const;
  /// A product as a products request would return it now; absent for an unknown identifier.
  std::optional<platform::SKProduct> product(std::string_view productIdentifier) const;
  /// Every product of the catalogue in file order: products, non-renewing subscriptions,
  /// then each group's subscriptions.
  std::vector<std::string> productIdentifiers() const;
  /// The locale prices are given in, e.g. `en_PT@currency=EUR`.
  foundation::Locale priceLocale() const;
  const std::filesystem::path& stateDirectory() const;
  /// The receipt file, rewritten after each change of the ledger.
  std::filesystem::path receiptPath() const;

  // Test settings, starting from the file's values.

  /// Switches the storefront (three-letter code); throws `std::invalid_argument` for a
  /// code the store does not know. Later answers use the new currency, and the payment
  /// queue's observers hear of the change.
  void setStorefront(std::string_view countryCode);
  void setLocale(std::optional<std::string> localeIdentifier);
  void setAskToBuyEnabled(bool enabled);
  /// While on, every payment fails with `code`.
  void setFailTransactionsEnabled(bool enabled, platform::SKError::Code code = platform::SKError::Code::unknown);
  /// While set, every products request fails with this error.
  void setProductsRequestFailure(std::optional<platform::SKError> error);
  /// While on, products requests get no answer, as over a slow network; switching it off
  /// answers the held ones (the cancelled ones excepted), in the order they came. Nothing
  /// waits meanwhile: a held request is only an entry in a list.
  void setHoldsProductsRequests(bool holds);

  /// The purchases waiting for approval, oldest first.
  std::vector<LedgerEntry> deferredTransactions() const;
  /// Approves or declines a purchase waiting for approval; throws `std::invalid_argument`
  /// when no deferred purchase has this ledger identifier.
  void approveAskToBuyTransaction(std::string_view identifier);
  void declineAskToBuyTransaction(std::string_view identifier);

  /// While on, every renewal that falls due fails to bill (billing retry, with a grace
  /// period first when that is on). Turning it off is the customer fixing the payment: every
  /// subscription still within its retry window is charged at once.
  void setRenewalBillingIssuesEnabled(bool enabled);
  /// Whether a renewal that fails to bill starts with a grace period.
  void setBillingGracePeriodEnabled(bool enabled);
  /// While on, every purchase fails as interrupted until resolved.
  void setInterruptedPurchasesEnabled(bool enabled);
  /// Completes the oldest interrupted purchase: a new purchased transaction for its product
  /// and payment is reported, and its ledger identifier returned. Throws
  /// `std::invalid_argument` when no interrupted purchase waits.
  std::string resolveInterruptedPurchase();

  /// Makes a purchase as if outside the app (a promoted purchase, or one in the store's own
  /// app): the observers hear of a purchased transaction they never saw purchasing. Returns
  /// its ledger identifier; throws `std::invalid_argument` for an unknown product.
  std::string purchaseOutsideApp(std::string_view productIdentifier);

  // Subscriptions and refunds.

  /// Turns auto-renew off for the active subscription of the product's group: it runs to
  /// the end of its period and expires without a transaction. Throws `std::invalid_argument`
  /// when the customer has no active subscription to that product.
  void cancelAutoRenew(std::string_view productIdentifier);
  /// Turns auto-renew back on before the period ends; throws `std::invalid_argument` when
  /// there is no active subscription with auto-renew off.
  void resumeAutoRenew(std::string_view productIdentifier);
  /// Refunds the latest purchase of a product: the receipt records the cancellation date and
  /// reason, a subscription stops renewing and becomes revoked, and the payment queue's
  /// observers hear that the entitlement to the product was revoked. Throws
  /// `std::invalid_argument` when there is no such purchase.
  void refund(std::string_view productIdentifier, std::int64_t reason = 0);
  /// Raises the price of a subscription the customer holds, pending their consent. Asks the
  /// payment queue's delegate (outside the store's lock) whether to show the consent sheet
  /// now and returns whether it was shown. Throws `std::invalid_argument` when the customer
  /// has no active subscription to the product that renews, when an increase already waits,
  /// or when `newPrice` is not above the current price.
  bool requestPriceIncrease(std::string_view productIdentifier, const Decimal& newPrice);
  /// The customer answers the shown consent sheet: agreeing charges the new price from the
  /// next renewal on; declining turns auto-renew off, as `cancelAutoRenew` does. Throws
  /// `std::invalid_argument` when no shown consent sheet waits for the product.
  void respondToPriceIncrease(std::string_view productIdentifier, bool agree);
  /// The price increases waiting for consent, in ledger order.
  std::vector<PriceConsent> pendingPriceConsents() const;
  /// Redeems a code offer of a subscription, named by its reference name or internal id:
  /// a purchased transaction at the offer's price and periods is reported, and nothing is
  /// returned. A customer outside the offer's eligibility gets nothing; the reason is
  /// returned, e.g. "the offer is for new or expired customers, and this customer is
  /// subscribed in the group". Throws `std::invalid_argument` for an unknown product or offer.
  std::optional<std::string> redeemOfferCode(std::string_view productIdentifier, std::string_view offer);
  /// The customer's subscription in the product's group; `notSubscribed` for products that
  /// are not auto-renewable subscriptions. Throws `std::invalid_argument` for an unknown product.
  SubscriptionStatus subscriptionStatus(std::string_view productIdentifier) const;

  // The clock.

  /// The store's time: when the ledger was made, moved on by every `advanceClock` and,
  /// when following the file's time rate, by real time at that rate (`_timeRate` 0 is real
  /// time, 6 one day per second, 13 a month per five minutes, 1005 every subscription
  /// period in two seconds, ...).
  Date now() const;
  /// Moves the clock forward (a negative or zero amount changes nothing) and renews every
  /// subscription whose period ended, as often as it ended, reporting the renewals in one
  /// batch per subscription.
  void advanceClock(std::chrono::seconds amount);
  /// The same by a calendar period (`P1M` from 31 January ends on the last day of February).
  void advanceClock(const Period& period);
  /// Renews an active subscription now, as if its period had just ended; throws
  /// `std::invalid_argument` when the product has no active subscription that renews
  /// (refunded, auto-renew off or waiting for billing to be fixed).
  void forceRenewal(std::string_view productIdentifier);

  // The ledger.

  std::vector<LedgerEntry> transactions() const;
  /// Forgets every transaction and every offer used (the clock stays).
  void clearTransactions();

  /// Returns once every report scheduled so far has reached the payment queue's observers.
  /// For tests and the command-line tool; must not be called from an observer.
  void waitUntilIdle() const;

 private:
  class State;
  struct PrivateTag {};

 public:
  SandboxStore(PrivateTag, std::unique_ptr<State> state);

 private:
  std::unique_ptr<State> state_;
};

}  // namespace velquist::sandbox
VELQUIST_API_END
