#include "velquist/sandbox/sandbox_store.h"

#include <algorithm>
#include <condition_variable>
#include <future>
#include <map>
#include <stdexcept>
#include <thread>
#include <unordered_map>
#include <utility>

#include "catalogue.h"
#include "ledger.h"
#include "subscription_clock.h"
#include "velquist/foundation/bundle.h"
#include "velquist/foundation/file_io.h"
#include "velquist/platform/sk_payment_queue.h"
#include "velquist/sandbox/storefronts.h"
#include "velquist/support/log_sink.h"
#include "velquist/support/mutex.h"
#include "velquist/support/queue_scheduler.h"

namespace velquist::sandbox {

using platform::SKError;
using platform::SKPayment;
using platform::SKPaymentTransaction;
using platform::SKPaymentTransactionState;
using TransactionState = SKPaymentTransactionState;
using TransactionPointer = std::shared_ptr<SKPaymentTransaction>;
using Transactions = std::vector<TransactionPointer>;
using detail::CatalogueEntry;
using detail::Ledger;

namespace {

using std::chrono::steady_clock;

// The simulated failure of one store operation from the file's per-operation errors, e.g.
// "Load Products"; absent unless enabled.
std::optional<SKError> simulatedError(const Settings& settings, std::string_view operation) {
  for (const auto& simulated : settings.storeKitErrors) {
    if (simulated.name != operation || !simulated.enabled) continue;
    std::string message = "simulated " + simulated.name + " error";
    if (simulated.current) {
      message += " (" + simulated.current->type + " " + std::to_string(simulated.current->index) + ")";
    }
    return SKError(SKError::Code::unknown, message);
  }
  return std::nullopt;
}

StorefrontInfo requireStorefront(std::string_view countryCode, const std::string& file, const std::string& path) {
  if (auto storefront = storefrontNamed(countryCode)) return *storefront;
  throw StoreKitConfigurationError(file, path, "unknown storefront \"" + std::string(countryCode) + "\"");
}

std::filesystem::path defaultStateDirectory() {
  const auto bundleIdentifier = foundation::Bundle::main().bundleIdentifier();
  return foundation::dataDirectory() / "sandbox" / bundleIdentifier.value_or("app");
}

bool isFinal(TransactionState state) { return state != TransactionState::purchasing && state != TransactionState::deferred; }

// How a purchase or renewal is charged: under which offer, for how many periods of what.
struct Term {
  LedgerEntry::OfferKind offer = LedgerEntry::OfferKind::none;
  std::optional<std::string> offerIdentifier;
  std::int32_t offerPeriodIndex = 0;
  Period period;
  std::int64_t count = 1;
};

// The first term of an offer: pay-as-you-go offers go one period at a time, the others
// cover all their periods at once.
Term offerTerm(const Offer& offer, LedgerEntry::OfferKind kind, std::optional<std::string> identifier) {
  const bool stepwise = offer.paymentMode == PaymentMode::payAsYouGo;
  return Term{.offer = kind,
              .offerIdentifier = std::move(identifier),
              .offerPeriodIndex = stepwise ? 1 : offer.numberOfPeriods,
              .period = offer.period,
              .count = stepwise ? 1 : offer.numberOfPeriods};
}

// A code offer by its reference name or, failing that, its internal id.
const CodeOffer* codeOfferNamed(const Subscription& subscription, std::string_view name) {
  for (const auto& offer : subscription.codeOffers) {
    if (offer.referenceName == name) return &offer;
  }
  for (const auto& offer : subscription.codeOffers) {
    if (offer.internalID == name) return &offer;
  }
  return nullptr;
}

const Offer* offerOf(const Subscription& subscription, const LedgerEntry& entry) {
  if (entry.offer == LedgerEntry::OfferKind::introductory && subscription.introductoryOffer) {
    return &*subscription.introductoryOffer;
  }
  if (entry.offer == LedgerEntry::OfferKind::promotional) {
    for (const auto& offer : subscription.promotionalOffers) {
      if (offer.offerID == entry.offerIdentifier) return &offer;
    }
  }
  if (entry.offer == LedgerEntry::OfferKind::code && entry.offerIdentifier) {
    return codeOfferNamed(subscription, *entry.offerIdentifier);
  }
  return nullptr;
}

bool samePeriod(const Period& a, const Period& b) { return a.unit == b.unit && a.count == b.count; }

// Whether moving from `current` to `next` within a group waits for the next renewal: a
// downgrade does, and a crossgrade to another period.
bool waitsForRenewal(const Subscription& current, const Subscription& next) {
  if (next.groupNumber != current.groupNumber) return next.groupNumber > current.groupNumber;
  return !samePeriod(next.recurringSubscriptionPeriod, current.recurringSubscriptionPeriod);
}

// "new or expired"
std::string joinedWithOr(const std::vector<std::string>& words) {
  std::string text;
  for (std::size_t index = 0; index < words.size(); ++index) {
    if (index > 0) text += index + 1 == words.size() ? " or " : ", ";
    text += words[index];
  }
  return text.empty() ? "no" : text;
}

// The term that follows `previous`: the offer's next period while it lasts, else the
// subscription's own period at its full price.
Term nextTerm(const Subscription& subscription, const LedgerEntry& previous) {
  const Offer* offer = offerOf(subscription, previous);
  if (offer && offer->paymentMode == PaymentMode::payAsYouGo && previous.offerPeriodIndex < offer->numberOfPeriods) {
    return Term{.offer = previous.offer,
                .offerIdentifier = previous.offerIdentifier,
                .offerPeriodIndex = previous.offerPeriodIndex + 1,
                .period = offer->period};
  }
  return Term{.period = subscription.recurringSubscriptionPeriod};
}

}  // namespace

std::string_view name(SubscriptionStatus::State state) {
  using enum SubscriptionStatus::State;
  switch (state) {
    case subscribed: return "subscribed";
    case expired: return "expired";
    case inBillingRetryPeriod: return "inBillingRetryPeriod";
    case inGracePeriod: return "inGracePeriod";
    case revoked: return "revoked";
    case notSubscribed: break;
  }
  return "not subscribed";
}

class SandboxStore::State {
 public:
  State(StoreKitConfiguration configurationIn, std::string label, SandboxStoreOptions optionsIn)
      : configuration(std::move(configurationIn)), options(std::move(optionsIn)) {
    if (options.stateDirectory.empty()) options.stateDirectory = defaultStateDirectory();
    ledgerPath = options.stateDirectory / "ledger.json";
    receiptPath = options.stateDirectory / "receipt.json";
    const Settings& settings = configuration.settings;
    storefront_ = options.storefront ? requireStorefront(*options.storefront, label, "storefront option")
                                     : requireStorefront(settings.storefront, label, "settings._storefront");
    locale_ = options.locale ? options.locale : settings.locale;
    askToBuy_ = settings.askToBuyEnabled;
    if (settings.failTransactionsEnabled) {
      purchaseFailure_ = SKError(static_cast<SKError::Code>(settings.storeKitError.value_or(0)),
                                 "the store fails every transaction");
    } else {
      purchaseFailure_ = simulatedError(settings, "Purchase");
    }
    productsFailure_ = simulatedError(settings, "Load Products");
    restoreFailure_ = simulatedError(settings, "App Store Sync");
    billingFails_ = settings.renewalBillingIssuesEnabled;
    gracePeriod_ = settings.billingGracePeriodEnabled;
    interrupts_ = settings.billingIssuesEnabled;
    if (options.followsTimeRate) followedRate = detail::timeRateNamed(settings.timeRate);

    // One process at a time keeps the folder: two would each write their own ledger over the other's.
    folderLock.emplace(foundation::FileLock::acquire(options.stateDirectory / ".lock", options.lockWait));
    support::LockGuard lock(mutex);
    if (auto stored = detail::readLedger(ledgerPath)) {
      ledger_ = std::move(*stored);
    } else {
      ledger_.clock = options.clockStart.value_or(std::chrono::system_clock::now());
    }
    for (std::size_t index = 0; index < ledger_.entries.size(); ++index) {
      positions_.emplace(ledger_.entries[index].identifier, index);
    }
    anchorStore_ = ledger_.clock;
    anchorReal_ = steady_clock::now();
    save();
  }

  // --- settings and catalogue -------------------------------------------------------------

  std::string metadataLocale() const VELQUIST_REQUIRES(mutex) { return locale_.value_or("en_US"); }

  foundation::Locale priceLocale() const VELQUIST_REQUIRES(mutex) {
    return foundation::Locale(priceLocaleIdentifier(locale_, storefront_));
  }

  std::optional<platform::SKProduct> product(std::string_view productID) const VELQUIST_REQUIRES(mutex) {
    const auto entry = detail::findEntry(configuration, productID);
    if (!entry) return std::nullopt;
    return storeProduct(*entry, metadataLocale(), priceLocale());
  }

  // A product as the store sells it now: at the price the customer agreed to raise it to.
  platform::SKProduct storeProduct(const CatalogueEntry& entry, const std::string& language,
                                   const foundation::Locale& locale) const VELQUIST_REQUIRES(mutex) {
    platform::SKProduct product = detail::makeStoreProduct(entry, language, locale);
    if (const auto raised = ledger_.prices.find(product.productIdentifier); raised != ledger_.prices.end()) {
      product.price = raised->second;
    }
    return product;
  }

  // The price a renewal of the product is charged without an offer.
  Decimal currentPrice(const CatalogueEntry& entry) const VELQUIST_REQUIRES(mutex) {
    const auto raised = ledger_.prices.find(entry.product->productID);
    return raised != ledger_.prices.end() ? raised->second : entry.product->price;
  }

  std::variant<platform::SKProductsResponse, SKError> answer(const std::unordered_set<std::string>& identifiers) const
      VELQUIST_REQUIRES(mutex) {
    if (productsFailure_) return *productsFailure_;
    platform::SKProductsResponse response;
    const foundation::Locale locale = priceLocale();
    const std::string language = metadataLocale();
    // Products in the catalogue's order; unknown identifiers sorted so answers repeat.
    for (const std::string& identifier : detail::catalogueIdentifiers(configuration)) {
      if (identifiers.contains(identifier)) {
        response.products.push_back(storeProduct(*detail::findEntry(configuration, identifier), language, locale));
      }
    }
    for (const std::string& identifier : identifiers) {
      if (!detail::findEntry(configuration, identifier)) response.invalidProductIdentifiers.push_back(identifier);
    }
    std::ranges::sort(response.invalidProductIdentifiers);
    return response;
  }

  // Answers a request from the store's own queue; nothing waits for the answer meanwhile.
  void scheduleAnswer(std::uint64_t requestID, std::shared_ptr<SandboxStore> keepAlive) VELQUIST_REQUIRES(mutex) {
    answers.schedule([this, requestID, keepAlive = std::move(keepAlive)] {
      ProductsCompletion completion;
      std::variant<platform::SKProductsResponse, SKError> response = SKError(SKError::Code::unknown, "");
      {
        support::LockGuard lock(mutex);
        const auto found = pendingRequests_.find(requestID);
        if (found == pendingRequests_.end()) return;  // cancelled meanwhile
        if (holdsRequests_) return;                   // answered on release
        completion = std::move(found->second.completion);
        response = answer(found->second.identifiers);
        pendingRequests_.erase(found);
      }
      completion(std::move(response));
    });
  }

  // --- the clock -------------------------------------------------------------------------

  Date now() const VELQUIST_REQUIRES(mutex) {
    if (!followedRate) return anchorStore_;
    const auto elapsed = steady_clock::now() - anchorReal_;
    return anchorStore_ + std::chrono::duration_cast<Date::duration>(elapsed * followedRate->speed);
  }

  void advance(std::chrono::seconds amount) VELQUIST_REQUIRES(mutex) {
    anchorStore_ = now() + amount;
    anchorReal_ = steady_clock::now();
  }

  // --- the ledger ------------------------------------------------------------------------

  // Writes the ledger and the receipt; throws when a file cannot be written.
  void save() VELQUIST_REQUIRES(mutex) {
    ledger_.clock = now();
    detail::writeLedger(ledgerPath, ledger_);
    foundation::writeFileAtomically(receiptPath,
                                    detail::receiptText(ledger_, foundation::Bundle::main().bundleIdentifier()));
  }

  // The same for changes the app made through the store: those go on in memory when the
  // disk fails (the store cannot refuse a payment for it), and the next change retries.
  void saveOrLog() VELQUIST_REQUIRES(mutex) {
    try {
      save();
    } catch (const std::exception& error) {
      support::writeLogLine(std::string("sandbox store: cannot save the ledger: ") + error.what());
    }
  }

  LedgerEntry& record(LedgerEntry entry) VELQUIST_REQUIRES(mutex) {
    entry.identifier = std::to_string(ledger_.nextIdentifier++);
    positions_.emplace(entry.identifier, ledger_.entries.size());
    ledger_.entries.push_back(std::move(entry));
    return ledger_.entries.back();
  }

  LedgerEntry* entryNamed(const std::string& identifier) VELQUIST_REQUIRES(mutex) {
    const auto found = positions_.find(identifier);
    return found == positions_.end() ? nullptr : &ledger_.entries[found->second];
  }
  const LedgerEntry* entryNamed(const std::string& identifier) const VELQUIST_REQUIRES(mutex) {
    const auto found = positions_.find(identifier);
    return found == positions_.end() ? nullptr : &ledger_.entries[found->second];
  }

  // The app's transaction object for a ledger entry: the one it already holds, or a new one.
  TransactionPointer transactionFor(const LedgerEntry& entry) VELQUIST_REQUIRES(mutex) {
    if (auto found = objects_.find(entry.identifier); found != objects_.end()) return found->second;
    TransactionPointer original;
    if (entry.originalIdentifier) {
      if (const LedgerEntry* first = entryNamed(*entry.originalIdentifier)) original = transactionFor(*first);
    }
    SKPayment payment{.productIdentifier = entry.productIdentifier,
                      .quantity = entry.quantity,
                      .applicationUsername = entry.applicationUsername,
                      .paymentDiscount = entry.paymentDiscount,
                      .simulatesAskToBuyInSandbox = entry.simulatesAskToBuyInSandbox};
    auto transaction = std::make_shared<SKPaymentTransaction>(std::move(payment), progressOf(entry), std::move(original));
    objects_.emplace(entry.identifier, transaction);
    identifiers_.emplace(transaction.get(), entry.identifier);
    return transaction;
  }

  static SKPaymentTransaction::Progress progressOf(const LedgerEntry& entry) {
    SKPaymentTransaction::Progress progress{.state = entry.state};
    if (entry.state == TransactionState::purchased || entry.state == TransactionState::restored) {
      progress.transactionIdentifier = entry.identifier;
      progress.transactionDate = entry.purchaseDate;
    }
    if (entry.state == TransactionState::failed) {
      progress.error = SKError(entry.errorCode.value_or(SKError::Code::unknown), failureMessage(entry));
    }
    return progress;
  }

  static std::string failureMessage(const LedgerEntry& entry) {
    if (entry.interrupted) return "the purchase was interrupted: the customer must act before it completes";
    switch (entry.errorCode.value_or(SKError::Code::unknown)) {
      case SKError::Code::paymentCancelled: return "the purchase was declined";
      case SKError::Code::storeProductNotAvailable: return "the store does not sell \"" + entry.productIdentifier + "\"";
      case SKError::Code::paymentInvalid: return "the quantity must be at least 1";
      case SKError::Code::invalidOfferIdentifier:
        return "\"" + entry.productIdentifier + "\" has no promotional offer \"" + entry.offerIdentifier.value_or("") + "\"";
      case SKError::Code::missingOfferParams: return "the promotional offer lacks its key identifier, nonce or signature";
      default: return "the store failed the transaction";
    }
  }

  // Tells the observers, in order, after every report scheduled before: each transaction
  // takes its ledger state at that moment, so observers never see a later state early.
  void report(const std::vector<const LedgerEntry*>& entries) VELQUIST_REQUIRES(mutex) {
    if (entries.empty()) return;
    std::vector<std::pair<TransactionPointer, SKPaymentTransaction::Progress>> updates;
    for (const LedgerEntry* entry : entries) updates.emplace_back(transactionFor(*entry), progressOf(*entry));
    reports.schedule([updates = std::move(updates)] {
      Transactions batch;
      for (const auto& [transaction, progress] : updates) {
        transaction->update(progress);
        batch.push_back(transaction);
      }
      platform::SKPaymentQueue::defaultQueue().reportUpdatedTransactions(batch);
    });
  }

  // --- purchases -------------------------------------------------------------------------

  // A customer gets a group's introductory offers until they first subscribe in the group.
  bool isEligibleForIntroductoryOffer(const SubscriptionGroup& group, const LedgerEntry& purchase) const
      VELQUIST_REQUIRES(mutex) {
    return std::ranges::none_of(ledger_.entries, [&](const LedgerEntry& entry) {
      if (&entry == &purchase || entry.state != TransactionState::purchased) return false;
      const auto found = detail::findEntry(configuration, entry.productIdentifier);
      return found && found->group == &group;
    });
  }

  // The latest purchased entry of every subscription chain, as (first purchase, index),
  // in the order the chains began.
  std::vector<std::pair<std::string, std::size_t>> latestOfChains() const VELQUIST_REQUIRES(mutex) {
    std::vector<std::pair<std::string, std::size_t>> chains;
    std::unordered_map<std::string_view, std::size_t> position;
    for (std::size_t index = 0; index < ledger_.entries.size(); ++index) {
      const LedgerEntry& entry = ledger_.entries[index];
      if (entry.state != TransactionState::purchased || !entry.expiresDate) continue;
      const std::string& original = entry.originalIdentifier ? *entry.originalIdentifier : entry.identifier;
      const auto [found, isNew] = position.emplace(original, chains.size());
      if (isNew) chains.emplace_back(original, index);
      chains[found->second].second = index;
    }
    return chains;
  }

  // The first purchase a new purchase of `productID` continues, if any: a non-consumable
  // bought again hands back its first purchase, and a subscription continues its group's
  // subscription (a customer holds one per group, under one original transaction, through
  // upgrades, downgrades and returns).
  std::optional<std::string> originalFor(std::string_view productID) const VELQUIST_REQUIRES(mutex) {
    const auto found = detail::findEntry(configuration, productID);
    if (!found || (found->product->type != ProductType::nonConsumable && !found->subscription)) return std::nullopt;
    for (const LedgerEntry& earlier : ledger_.entries) {
      if (earlier.state != TransactionState::purchased) continue;
      const auto bought = detail::findEntry(configuration, earlier.productIdentifier);
      const bool continues = found->subscription ? bought && bought->group == found->group
                                                 : earlier.productIdentifier == productID;
      if (continues) return earlier.originalIdentifier.value_or(earlier.identifier);
    }
    return std::nullopt;
  }

  // Completes a purchase: fills in what it bought, or why it failed. A code offer, when
  // given, is what the customer redeemed.
  void complete(LedgerEntry& entry, const std::optional<platform::SKPaymentDiscount>& discount,
                const CodeOffer* codeOffer = nullptr) VELQUIST_REQUIRES(mutex) {
    auto fail = [&](SKError::Code code) {
      entry.state = TransactionState::failed;
      entry.errorCode = code;
    };
    const auto found = detail::findEntry(configuration, entry.productIdentifier);
    if (!found) return fail(SKError::Code::storeProductNotAvailable);
    if (entry.quantity < 1) return fail(SKError::Code::paymentInvalid);
    entry.purchaseDate = now();
    entry.state = TransactionState::purchased;
    if (!found->subscription) return;
    const Subscription& subscription = *found->subscription;
    Term term{.period = subscription.recurringSubscriptionPeriod};
    const bool introductory = subscription.introductoryOffer && isEligibleForIntroductoryOffer(*found->group, entry);
    if (codeOffer && codeOffer->isStackable && introductory) {
      term = offerTerm(*subscription.introductoryOffer, LedgerEntry::OfferKind::introductory, std::nullopt);
      entry.stackedCodeOffer = codeOffer->referenceName;
    } else if (codeOffer) {
      term = offerTerm(*codeOffer, LedgerEntry::OfferKind::code, codeOffer->referenceName);
    } else if (discount) {
      entry.offerIdentifier = discount->identifier;
      const auto offer = std::ranges::find(subscription.promotionalOffers, discount->identifier, &PromotionalOffer::offerID);
      if (offer == subscription.promotionalOffers.end()) return fail(SKError::Code::invalidOfferIdentifier);
      if (discount->keyIdentifier.empty() || discount->nonce.empty() || discount->signature.empty()) {
        return fail(SKError::Code::missingOfferParams);
      }
      term = offerTerm(*offer, LedgerEntry::OfferKind::promotional, offer->offerID);
    } else if (introductory) {
      term = offerTerm(*subscription.introductoryOffer, LedgerEntry::OfferKind::introductory, std::nullopt);
    }
    if (entry.originalIdentifier) {
      LedgerEntry* first = entryNamed(*entry.originalIdentifier);
      const LedgerEntry* latest = latestOfChain(*entry.originalIdentifier);
      if (first && latest && isSubscribed(*first, *latest)) {
        const auto current = detail::findEntry(configuration, latest->productIdentifier);
        if (current && current->subscription && waitsForRenewal(*current->subscription, subscription)) {
          // Nothing is charged now; the next renewal is of this product, under this offer.
          entry.changesAtRenewal = true;
          entry.offer = term.offer;
          entry.offerIdentifier = term.offerIdentifier;
          first->pendingChange = entry.identifier;
          first->autoRenewOff = false;
          return;
        }
      }
      // A change at once, or a return: the subscription starts afresh on this purchase.
      if (first) resetRenewalState(*first);
    }
    apply(entry, term, entry.purchaseDate);
  }

  static void resetRenewalState(LedgerEntry& first) {
    first.pendingChange.reset();
    first.autoRenewOff = false;
    first.billingIssueSince.reset();
    first.gracePeriodEnd.reset();
  }

  void apply(LedgerEntry& entry, const Term& term, Date start) {
    entry.offer = term.offer;
    entry.offerIdentifier = term.offerIdentifier;
    entry.offerPeriodIndex = term.offerPeriodIndex;
    entry.expiresDate = detail::periodEnd(start, term.period, term.count, followedRate);
  }

  // --- subscriptions ---------------------------------------------------------------------

  const LedgerEntry* latestOfChain(const std::string& original) const VELQUIST_REQUIRES(mutex) {
    for (const auto& [first, index] : latestOfChains()) {
      if (first == original) return &ledger_.entries[index];
    }
    return nullptr;
  }

  // The customer's subscription in a group, as (first purchase, index of the latest entry).
  std::optional<std::pair<std::string, std::size_t>> chainInGroup(const SubscriptionGroup& group) const
      VELQUIST_REQUIRES(mutex) {
    for (const auto& chain : latestOfChains()) {
      const auto found = detail::findEntry(configuration, ledger_.entries[chain.second].productIdentifier);
      if (found && found->group == &group) return chain;
    }
    return std::nullopt;
  }

  // In a paid-up period, with billing in order and no refund.
  bool isSubscribed(const LedgerEntry& first, const LedgerEntry& latest) const VELQUIST_REQUIRES(mutex) {
    return !latest.revocationDate && !first.billingIssueSince && *latest.expiresDate > now();
  }

  // The paid-up subscription in the product's group (whichever plan of the group it is now
  // on): its first purchase and its latest period; both null when there is none.
  struct HeldSubscription {
    LedgerEntry* first = nullptr;
    const LedgerEntry* latest = nullptr;
  };
  HeldSubscription heldSubscription(const std::string& productID) VELQUIST_REQUIRES(mutex) {
    const auto found = detail::findEntry(configuration, productID);
    const auto chain = found && found->group ? chainInGroup(*found->group) : std::nullopt;
    LedgerEntry* first = chain ? entryNamed(chain->first) : nullptr;
    if (!first || !isSubscribed(*first, ledger_.entries[chain->second])) return {};
    return {first, &ledger_.entries[chain->second]};
  }

  // How long access continues after a renewal fails to bill, and how long billing is
  // retried. The time rates that renew after a fixed time shorten both to that time.
  std::chrono::seconds gracePeriodLength(const Period& period) const {
    if (followedRate && followedRate->fixedPeriod) return *followedRate->fixedPeriod;
    const bool weekly = (period.unit == Period::Unit::week && period.count == 1) ||
                        (period.unit == Period::Unit::day && period.count <= 7);
    return std::chrono::days(weekly ? 6 : 16);
  }
  std::chrono::seconds billingRetryLength() const {
    if (followedRate && followedRate->fixedPeriod) return *followedRate->fixedPeriod * 2;
    return std::chrono::days(60);
  }

  SubscriptionStatus statusIn(const SubscriptionGroup& group) const VELQUIST_REQUIRES(mutex) {
    using enum SubscriptionStatus::State;
    const auto chain = chainInGroup(group);
    if (!chain) return {};
    const LedgerEntry& latest = ledger_.entries[chain->second];
    const LedgerEntry* first = entryNamed(chain->first);
    SubscriptionStatus status{.productIdentifier = latest.productIdentifier};
    const Date current = now();
    if (latest.revocationDate) {
      status.state = revoked;
    } else if (first && first->billingIssueSince) {
      const Date since = *first->billingIssueSince;
      if (first->gracePeriodEnd && current < *first->gracePeriodEnd) {
        status.state = inGracePeriod;
        status.expiresDate = first->gracePeriodEnd;
      } else {
        status.state = current < since + billingRetryLength() ? inBillingRetryPeriod : expired;
        status.expiresDate = since;
      }
    } else {
      status.state = *latest.expiresDate > current ? subscribed : expired;
      status.expiresDate = latest.expiresDate;
    }
    return status;
  }

  // Renews every subscription whose period ended by now, as often as it ended; one
  // report per subscription. True when the ledger changed (and was saved).
  bool renewDue() VELQUIST_REQUIRES(mutex) {
    const Date current = now();
    std::vector<std::vector<std::string>> batches;
    bool changed = false;
    for (const auto& [original, latestIndex] : latestOfChains()) {
      std::vector<std::string> renewed;
      changed |= catchUp(original, latestIndex, current, renewed);
      if (!renewed.empty()) batches.push_back(std::move(renewed));
    }
    if (batches.empty() && !changed) return false;
    saveOrLog();
    reportBatches(batches);
    return true;
  }

  void reportBatches(const std::vector<std::vector<std::string>>& batches) VELQUIST_REQUIRES(mutex) {
    for (const auto& batch : batches) {
      std::vector<const LedgerEntry*> entries;
      for (const auto& identifier : batch) entries.push_back(entryNamed(identifier));
      report(entries);
    }
  }

  // Renews one subscription as often as its period ended by `current`, appending the
  // renewals; stops at a refund, at auto-renew off, or where billing fails (noting when).
  // True when it changed the ledger.
  bool catchUp(const std::string& original, std::size_t index, Date current, std::vector<std::string>& renewed)
      VELQUIST_REQUIRES(mutex) {
    bool changed = false;
    while (*ledger_.entries[index].expiresDate <= current) {
      const LedgerEntry& latest = ledger_.entries[index];
      if (latest.revocationDate) break;
      LedgerEntry* first = entryNamed(original);
      if (first && (first->autoRenewOff || first->billingIssueSince)) break;
      if (first && first->priceIncrease) {  // no consent by the renewal: declined
        decline(*first);
        changed = true;
        break;
      }
      if (billingFails_) {
        if (!first) break;
        const auto found = detail::findEntry(configuration, latest.productIdentifier);
        first->billingIssueSince = latest.expiresDate;
        if (gracePeriod_ && found && found->subscription) {
          const Period& period = found->subscription->recurringSubscriptionPeriod;
          first->gracePeriodEnd = *latest.expiresDate + gracePeriodLength(period);
        }
        changed = true;
        break;
      }
      const Date due = *latest.expiresDate;
      if (!renew(index, due, due)) break;
      index = ledger_.entries.size() - 1;
      renewed.push_back(ledger_.entries[index].identifier);
      changed = true;
    }
    return changed;
  }

  // Appends the renewal of the purchased entry at `index`, dated `purchaseDate`, its period
  // starting at `start`: of the product a pending plan change names, else of the same
  // product. False when that product is no longer an auto-renewable subscription of the
  // catalogue.
  bool renew(std::size_t index, Date purchaseDate, Date start) VELQUIST_REQUIRES(mutex) {
    const LedgerEntry previous = ledger_.entries[index];
    const std::string original = previous.originalIdentifier.value_or(previous.identifier);
    std::string productID = previous.productIdentifier;
    std::optional<Term> term;
    if (LedgerEntry* first = entryNamed(original); first && first->pendingChange) {
      const LedgerEntry* change = entryNamed(*first->pendingChange);
      first->pendingChange.reset();
      const auto changed = change ? detail::findEntry(configuration, change->productIdentifier) : std::nullopt;
      if (changed && changed->subscription) {
        productID = change->productIdentifier;
        const Offer* offer = offerOf(*changed->subscription, *change);
        term = offer ? offerTerm(*offer, change->offer, change->offerIdentifier)
                     : Term{.period = changed->subscription->recurringSubscriptionPeriod};
      }
    }
    const auto found = detail::findEntry(configuration, productID);
    if (!found || !found->subscription) return false;
    std::optional<std::string> stacked;
    if (!term) {
      term = nextTerm(*found->subscription, previous);
      // A stacked code offer waits while the introductory offer runs, then follows it.
      if (previous.stackedCodeOffer && term->offer == LedgerEntry::OfferKind::introductory) {
        stacked = previous.stackedCodeOffer;
      } else if (previous.stackedCodeOffer) {
        if (const CodeOffer* code = codeOfferNamed(*found->subscription, *previous.stackedCodeOffer)) {
          term = offerTerm(*code, LedgerEntry::OfferKind::code, code->referenceName);
        }
      }
    }
    LedgerEntry& renewal = record(LedgerEntry{.originalIdentifier = original,
                                              .productIdentifier = productID,
                                              .quantity = previous.quantity,
                                              .applicationUsername = previous.applicationUsername,
                                              .state = TransactionState::purchased,
                                              .purchaseDate = purchaseDate});
    renewal.stackedCodeOffer = std::move(stacked);
    apply(renewal, *term, start);
    if (renewal.offer == LedgerEntry::OfferKind::none && ledger_.prices.contains(productID)) {
      renewal.price = ledger_.prices.at(productID);
    }
    return true;
  }

  // The customer declined a price increase: auto-renew goes off, as when they cancel.
  static void decline(LedgerEntry& first) {
    first.priceIncrease.reset();
    first.priceConsentShown = false;
    first.autoRenewOff = true;
    first.pendingChange.reset();
  }

  // The first purchase of the customer's renewing subscription to `productID`, the product
  // held now; null when there is none.
  LedgerEntry* renewingSubscription(const std::string& productID) VELQUIST_REQUIRES(mutex) {
    const HeldSubscription held = heldSubscription(productID);
    if (!held.first || held.first->autoRenewOff) return nullptr;
    return held.latest->productIdentifier == productID ? held.first : nullptr;
  }

  // The customer fixed their payment: every subscription within its retry window is charged
  // now (its period keeps its dates when still in grace), then caught up as usual.
  void resolveBillingIssues() VELQUIST_REQUIRES(mutex) {
    const Date current = now();
    std::vector<std::vector<std::string>> batches;
    bool changed = false;
    for (const auto& [original, latestIndex] : latestOfChains()) {
      LedgerEntry* first = entryNamed(original);
      if (!first || !first->billingIssueSince) continue;
      const Date since = *first->billingIssueSince;
      const bool inGrace = first->gracePeriodEnd && current < *first->gracePeriodEnd;
      const bool inRetry = current < since + billingRetryLength();
      const bool renews = !first->autoRenewOff && !ledger_.entries[latestIndex].revocationDate;
      first->billingIssueSince.reset();
      first->gracePeriodEnd.reset();
      changed = true;
      if (!inRetry) first->autoRenewOff = true;  // too late: it stays expired until bought again
      if (!inRetry || !renews) continue;
      if (!renew(latestIndex, current, inGrace ? since : current)) continue;
      std::vector<std::string> renewed{ledger_.entries.back().identifier};
      catchUp(original, ledger_.entries.size() - 1, current, renewed);
      batches.push_back(std::move(renewed));
    }
    if (!changed) return;
    saveOrLog();
    reportBatches(batches);
  }

  // --- the renewal timer, while following the file's time rate ----------------------------

  void runTimer(std::stop_token stop) VELQUIST_EXCLUDES(mutex) {
    support::LockGuard lock(mutex);
    while (!stop.stop_requested()) {
      std::optional<Date> next;
      for (const auto& [original, index] : latestOfChains()) {
        const LedgerEntry& latest = ledger_.entries[index];
        const LedgerEntry* first = entryNamed(original);
        if (latest.revocationDate || (first && (first->autoRenewOff || first->billingIssueSince))) continue;
        const Date expires = *latest.expiresDate;
        if (!next || expires < *next) next = expires;
      }
      // Sleeps until the next period ends, or until the ledger or the clock changes.
      auto changed = [this]() VELQUIST_REQUIRES(mutex) { return std::exchange(timerNeedsLook_, false); };
      if (!next) {
        timerWake_.wait(mutex, stop, changed);
        continue;
      }
      const auto storeWait = std::max(*next - now(), Date::duration::zero());
      const auto realWait = std::chrono::duration_cast<steady_clock::duration>(storeWait / followedRate->speed);
      if (timerWake_.wait_until(mutex, stop, steady_clock::now() + realWait, changed)) continue;
      if (!stop.stop_requested()) renewDue();
    }
  }

  void wakeTimer() VELQUIST_REQUIRES(mutex) {
    timerNeedsLook_ = true;
    timerWake_.notify_all();
  }

  StoreKitConfiguration configuration;
  SandboxStoreOptions options;
  std::filesystem::path ledgerPath;
  std::filesystem::path receiptPath;
  std::optional<detail::TimeRate> followedRate;
  std::optional<foundation::FileLock> folderLock;
  // Transaction reports and products answers go on separate queues, so an observer that
  // waits for a products request does not wait behind itself.
  support::QueueScheduler reports{"velquist.sandbox.transactions"};
  support::QueueScheduler answers{"velquist.sandbox.products"};

  mutable support::Mutex mutex;
  StorefrontInfo storefront_ VELQUIST_GUARDED_BY(mutex);
  std::optional<std::string> locale_ VELQUIST_GUARDED_BY(mutex);
  bool askToBuy_ VELQUIST_GUARDED_BY(mutex) = false;
  std::optional<SKError> purchaseFailure_ VELQUIST_GUARDED_BY(mutex);
  std::optional<SKError> productsFailure_ VELQUIST_GUARDED_BY(mutex);
  std::optional<SKError> restoreFailure_ VELQUIST_GUARDED_BY(mutex);
  bool billingFails_ VELQUIST_GUARDED_BY(mutex) = false;
  bool gracePeriod_ VELQUIST_GUARDED_BY(mutex) = false;
  bool interrupts_ VELQUIST_GUARDED_BY(mutex) = false;
  Ledger ledger_ VELQUIST_GUARDED_BY(mutex);
  // Where each ledger identifier sits in `ledger_.entries`, so catching up many renewals
  // stays linear.
  std::unordered_map<std::string, std::size_t> positions_ VELQUIST_GUARDED_BY(mutex);
  Date anchorStore_ VELQUIST_GUARDED_BY(mutex);
  steady_clock::time_point anchorReal_ VELQUIST_GUARDED_BY(mutex);
  // The transaction objects handed to the app, by ledger identifier, and back.
  std::unordered_map<std::string, TransactionPointer> objects_ VELQUIST_GUARDED_BY(mutex);
  std::unordered_map<const SKPaymentTransaction*, std::string> identifiers_ VELQUIST_GUARDED_BY(mutex);
  struct PendingRequest {
    std::unordered_set<std::string> identifiers;
    ProductsCompletion completion;
  };
  // Requests not answered yet, in the order they came (request numbers only grow).
  std::map<std::uint64_t, PendingRequest> pendingRequests_ VELQUIST_GUARDED_BY(mutex);
  bool holdsRequests_ VELQUIST_GUARDED_BY(mutex) = false;
  bool resumed_ VELQUIST_GUARDED_BY(mutex) = false;
  bool timerNeedsLook_ VELQUIST_GUARDED_BY(mutex) = false;
  std::condition_variable_any timerWake_;
  std::jthread timer;  // last: stopped and joined before the rest goes away
};

// --- SandboxStore ----------------------------------------------------------------------------

SandboxStore::SandboxStore(PrivateTag, std::unique_ptr<State> state) : state_(std::move(state)) {}

// The timer thread, if any, is stopped and joined first: it is the state's last member.
SandboxStore::~SandboxStore() = default;

std::shared_ptr<SandboxStore> SandboxStore::open(StoreKitConfiguration configuration, SandboxStoreOptions options) {
  const std::string label = configuration.identifier.value_or("configuration");
  auto store = std::make_shared<SandboxStore>(PrivateTag{},
                                              std::make_unique<State>(std::move(configuration), label, std::move(options)));
  State& state = *store->state_;
  if (state.options.publishesReceipt) foundation::Bundle::setMainAppStoreReceiptURL(state.receiptPath);
  if (state.followedRate) {
    state.timer = std::jthread([&state](std::stop_token stop) { state.runTimer(std::move(stop)); });
  }
  return store;
}

std::shared_ptr<SandboxStore> SandboxStore::open(const std::filesystem::path& configurationFile,
                                                 SandboxStoreOptions options) {
  StoreKitConfiguration configuration = loadStoreKitConfiguration(configurationFile);
  // Errors about the settings name the file, like the loader's own.
  try {
    return open(std::move(configuration), std::move(options));
  } catch (const StoreKitConfigurationError& error) {
    throw StoreKitConfigurationError(configurationFile.string(), error.path(), error.reason());
  }
}

std::shared_ptr<SandboxStore> SandboxStore::openAsDefault(const std::filesystem::path& configurationFile,
                                                          SandboxStoreOptions options) {
  auto store = open(configurationFile, std::move(options));
  platform::setDefaultStoreBackend(store);
  return store;
}

void SandboxStore::startProductsRequest(std::uint64_t requestID, const std::unordered_set<std::string>& identifiers,
                                        ProductsCompletion completion) {
  support::LockGuard lock(state_->mutex);
  state_->pendingRequests_.emplace(requestID, State::PendingRequest{identifiers, std::move(completion)});
  if (!state_->holdsRequests_) state_->scheduleAnswer(requestID, shared_from_this());
}

void SandboxStore::cancelProductsRequest(std::uint64_t requestID) {
  support::LockGuard lock(state_->mutex);
  state_->pendingRequests_.erase(requestID);
}

void SandboxStore::addPayment(const SKPayment& payment) {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  const std::optional<std::string> original = state.originalFor(payment.productIdentifier);
  LedgerEntry& entry = state.record(LedgerEntry{.originalIdentifier = original,
                                                .productIdentifier = payment.productIdentifier,
                                                .quantity = payment.quantity,
                                                .applicationUsername = payment.applicationUsername,
                                                .purchaseDate = state.now(),
                                                .paymentDiscount = payment.paymentDiscount,
                                                .simulatesAskToBuyInSandbox = payment.simulatesAskToBuyInSandbox});
  const std::string identifier = entry.identifier;
  // The app's object keeps the payment as given, discount included.
  auto transaction = std::make_shared<SKPaymentTransaction>(
      payment, SKPaymentTransaction::Progress{},
      original ? state.transactionFor(*state.entryNamed(*original)) : nullptr);
  state.objects_.emplace(identifier, transaction);
  state.identifiers_.emplace(transaction.get(), identifier);
  state.report({&entry});  // purchasing

  if (state.purchaseFailure_) {
    entry.state = TransactionState::failed;
    entry.errorCode = state.purchaseFailure_->code();
  } else if (state.interrupts_) {
    entry.state = TransactionState::failed;
    entry.errorCode = SKError::Code::unknown;
    entry.interrupted = true;
  } else if (state.askToBuy_ || payment.simulatesAskToBuyInSandbox) {
    entry.state = TransactionState::deferred;
  } else {
    state.complete(entry, payment.paymentDiscount);
  }
  // Pending approval, the discount is kept for when it is approved.
  if (entry.state == TransactionState::deferred && payment.paymentDiscount) entry.offerIdentifier = payment.paymentDiscount->identifier;
  state.saveOrLog();
  state.report({state.entryNamed(identifier)});
  state.wakeTimer();
}

void SandboxStore::finishTransaction(const TransactionPointer& transaction) {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  const auto found = state.identifiers_.find(transaction.get());
  if (found == state.identifiers_.end()) return;
  LedgerEntry* entry = state.entryNamed(found->second);
  // A transaction still in progress cannot be finished; one finished twice stays finished.
  if (!entry || !isFinal(entry->state) || entry->finished) return;
  entry->finished = true;
  state.saveOrLog();
  state.reports.schedule([transaction] {
    platform::SKPaymentQueue::defaultQueue().reportRemovedTransactions({transaction});
  });
}

void SandboxStore::restoreCompletedTransactions(const std::optional<std::string>&) {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  if (state.restoreFailure_) {
    state.reports.schedule([error = *state.restoreFailure_] {
      platform::SKPaymentQueue::defaultQueue().reportRestoreCompletedTransactionsFailed(error);
    });
    return;
  }
  const auto latest = state.latestOfChains();
  std::vector<std::string> restored;
  const std::size_t count = state.ledger_.entries.size();
  for (std::size_t index = 0; index < count; ++index) {
    const LedgerEntry first = state.ledger_.entries[index];
    if (first.state != TransactionState::purchased || first.originalIdentifier || first.revocationDate) continue;
    const auto found = detail::findEntry(state.configuration, first.productIdentifier);
    if (!found || (found->product->type != ProductType::nonConsumable && !found->subscription)) continue;
    LedgerEntry& entry = state.record(LedgerEntry{.originalIdentifier = first.identifier,
                                                  .productIdentifier = first.productIdentifier,
                                                  .quantity = first.quantity,
                                                  .applicationUsername = first.applicationUsername,
                                                  .state = TransactionState::restored,
                                                  .purchaseDate = state.now()});
    const auto chain = std::ranges::find(latest, first.identifier, &std::pair<std::string, std::size_t>::first);
    if (chain != latest.end()) entry.expiresDate = state.ledger_.entries[chain->second].expiresDate;
    restored.push_back(entry.identifier);
  }
  if (!restored.empty()) {
    state.saveOrLog();
    std::vector<const LedgerEntry*> entries;
    for (const auto& identifier : restored) entries.push_back(state.entryNamed(identifier));
    state.report(entries);
  }
  state.reports.schedule([] { platform::SKPaymentQueue::defaultQueue().reportRestoreCompletedTransactionsFinished(); });
}

std::optional<platform::SKStorefront> SandboxStore::storefront() const {
  support::LockGuard lock(state_->mutex);
  return platform::SKStorefront{.countryCode = std::string(state_->storefront_.countryCode),
                                .identifier = std::string(state_->storefront_.identifier)};
}

void SandboxStore::transactionObserverAdded() {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  if (std::exchange(state.resumed_, true)) return;
  // Transactions an earlier process left unfinished: this process has no object for them yet.
  std::vector<const LedgerEntry*> unfinished;
  for (const LedgerEntry& entry : state.ledger_.entries) {
    if (!entry.finished && entry.state != TransactionState::purchasing && !state.objects_.contains(entry.identifier)) {
      unfinished.push_back(&entry);
    }
  }
  state.report(unfinished);
}

const StoreKitConfiguration& SandboxStore::configuration() const { return state_->configuration; }

std::optional<platform::SKProduct> SandboxStore::product(std::string_view productIdentifier) const {
  support::LockGuard lock(state_->mutex);
  return state_->product(productIdentifier);
}

std::vector<std::string> SandboxStore::productIdentifiers() const {
  return detail::catalogueIdentifiers(state_->configuration);
}

foundation::Locale SandboxStore::priceLocale() const {
  support::LockGuard lock(state_->mutex);
  return state_->priceLocale();
}

const std::filesystem::path& SandboxStore::stateDirectory() const { return state_->options.stateDirectory; }

std::filesystem::path SandboxStore::receiptPath() const { return state_->receiptPath; }

void SandboxStore::setStorefront(std::string_view countryCode) {
  const auto storefront = storefrontNamed(countryCode);
  if (!storefront) throw std::invalid_argument("unknown storefront \"" + std::string(countryCode) + "\"");
  support::LockGuard lock(state_->mutex);
  if (std::exchange(state_->storefront_, *storefront).countryCode == storefront->countryCode) return;
  state_->reports.schedule([] { platform::SKPaymentQueue::defaultQueue().reportStorefrontDidChange(); });
}

void SandboxStore::setLocale(std::optional<std::string> localeIdentifier) {
  support::LockGuard lock(state_->mutex);
  state_->locale_ = std::move(localeIdentifier);
}

void SandboxStore::setAskToBuyEnabled(bool enabled) {
  support::LockGuard lock(state_->mutex);
  state_->askToBuy_ = enabled;
}

void SandboxStore::setFailTransactionsEnabled(bool enabled, SKError::Code code) {
  support::LockGuard lock(state_->mutex);
  state_->purchaseFailure_.reset();
  if (enabled) state_->purchaseFailure_ = SKError(code, "the store fails every transaction");
}

void SandboxStore::setProductsRequestFailure(std::optional<SKError> error) {
  support::LockGuard lock(state_->mutex);
  state_->productsFailure_ = std::move(error);
}

void SandboxStore::setHoldsProductsRequests(bool holds) {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  const bool held = std::exchange(state.holdsRequests_, holds);
  if (!held || holds) return;
  for (const auto& [requestID, request] : state.pendingRequests_) state.scheduleAnswer(requestID, shared_from_this());
}

std::vector<LedgerEntry> SandboxStore::deferredTransactions() const {
  support::LockGuard lock(state_->mutex);
  std::vector<LedgerEntry> deferred;
  for (const LedgerEntry& entry : state_->ledger_.entries) {
    if (entry.state == TransactionState::deferred && !entry.finished) deferred.push_back(entry);
  }
  return deferred;
}

void SandboxStore::approveAskToBuyTransaction(std::string_view identifier) {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  LedgerEntry* entry = state.entryNamed(std::string(identifier));
  if (!entry || entry->state != TransactionState::deferred || entry->finished) {
    throw std::invalid_argument("no purchase waits for approval as \"" + std::string(identifier) + "\"");
  }
  std::optional<platform::SKPaymentDiscount> discount;
  if (const auto found = state.objects_.find(entry->identifier); found != state.objects_.end()) {
    discount = found->second->payment().paymentDiscount;
  } else if (entry->paymentDiscount) {
    discount = entry->paymentDiscount;  // an earlier process took the payment
  } else if (entry->offerIdentifier) {
    // A ledger from before payments were kept whole names only the offer.
    discount = platform::SKPaymentDiscount{.identifier = *entry->offerIdentifier, .keyIdentifier = "ledger",
                                           .nonce = "ledger", .signature = "ledger"};
  }
  state.complete(*entry, discount);
  state.saveOrLog();
  state.report({entry});
  state.wakeTimer();
}

void SandboxStore::declineAskToBuyTransaction(std::string_view identifier) {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  LedgerEntry* entry = state.entryNamed(std::string(identifier));
  if (!entry || entry->state != TransactionState::deferred || entry->finished) {
    throw std::invalid_argument("no purchase waits for approval as \"" + std::string(identifier) + "\"");
  }
  if (state.options.declinedPurchaseOutcome == DeclinedPurchaseOutcome::failed) {
    entry->state = TransactionState::failed;
    entry->errorCode = SKError::Code::paymentCancelled;
    state.saveOrLog();
    state.report({entry});
  } else {
    entry->finished = true;
    state.saveOrLog();
  }
}

void SandboxStore::setRenewalBillingIssuesEnabled(bool enabled) {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  state.billingFails_ = enabled;
  if (!enabled) state.resolveBillingIssues();
  state.wakeTimer();
}

void SandboxStore::setBillingGracePeriodEnabled(bool enabled) {
  support::LockGuard lock(state_->mutex);
  state_->gracePeriod_ = enabled;
}

void SandboxStore::setInterruptedPurchasesEnabled(bool enabled) {
  support::LockGuard lock(state_->mutex);
  state_->interrupts_ = enabled;
}

std::string SandboxStore::resolveInterruptedPurchase() {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  const auto interrupted = std::ranges::find_if(state.ledger_.entries, [](const LedgerEntry& entry) {
    return entry.interrupted && !entry.interruptionResolved;
  });
  if (interrupted == state.ledger_.entries.end()) throw std::invalid_argument("no interrupted purchase waits");
  interrupted->interruptionResolved = true;
  LedgerEntry purchase{.originalIdentifier = state.originalFor(interrupted->productIdentifier),
                       .productIdentifier = interrupted->productIdentifier,
                       .quantity = interrupted->quantity,
                       .applicationUsername = interrupted->applicationUsername,
                       .paymentDiscount = interrupted->paymentDiscount,
                       .simulatesAskToBuyInSandbox = interrupted->simulatesAskToBuyInSandbox};
  LedgerEntry& entry = state.record(std::move(purchase));
  state.complete(entry, entry.paymentDiscount);
  const std::string identifier = entry.identifier;
  state.saveOrLog();
  state.report({state.entryNamed(identifier)});
  state.wakeTimer();
  return identifier;
}

std::string SandboxStore::purchaseOutsideApp(std::string_view productIdentifier) {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  const std::string productID(productIdentifier);
  if (!detail::findEntry(state.configuration, productID)) throw std::invalid_argument("no product \"" + productID + "\"");
  LedgerEntry& entry = state.record(LedgerEntry{.originalIdentifier = state.originalFor(productID),
                                                .productIdentifier = productID,
                                                .purchaseDate = state.now()});
  state.complete(entry, std::nullopt);
  const std::string identifier = entry.identifier;
  state.saveOrLog();
  state.report({state.entryNamed(identifier)});
  state.wakeTimer();
  return identifier;
}

void SandboxStore::cancelAutoRenew(std::string_view productIdentifier) {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  const std::string productID(productIdentifier);
  const auto [first, latest] = state.heldSubscription(productID);
  if (first && !first->autoRenewOff) {
    const LedgerEntry* pending = first->pendingChange ? state.entryNamed(*first->pendingChange) : nullptr;
    if (latest->productIdentifier == productID || (pending && pending->productIdentifier == productID)) {
      State::decline(*first);  // turning renewal off drops a plan change and a price increase with it
      state.saveOrLog();
      state.wakeTimer();
      return;
    }
  }
  throw std::invalid_argument("no active subscription to \"" + productID + "\" renews");
}

void SandboxStore::resumeAutoRenew(std::string_view productIdentifier) {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  const std::string productID(productIdentifier);
  const auto [first, latest] = state.heldSubscription(productID);
  if (!first || !first->autoRenewOff || latest->productIdentifier != productID) {
    throw std::invalid_argument("no active subscription to \"" + productID + "\" has auto-renew off");
  }
  first->autoRenewOff = false;
  state.saveOrLog();
  state.wakeTimer();
}

void SandboxStore::refund(std::string_view productIdentifier, std::int64_t reason) {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  auto& entries = state.ledger_.entries;
  const auto latest = std::ranges::find_if(entries.rbegin(), entries.rend(), [&](const LedgerEntry& entry) {
    return entry.productIdentifier == productIdentifier && entry.state == TransactionState::purchased &&
           !entry.changesAtRenewal && !entry.revocationDate;
  });
  if (latest == entries.rend()) {
    throw std::invalid_argument("no purchase of \"" + std::string(productIdentifier) + "\" to refund");
  }
  latest->revocationDate = state.now();
  latest->revocationReason = reason;
  state.saveOrLog();
  state.reports.schedule([products = std::vector<std::string>{std::string(productIdentifier)}] {
    platform::SKPaymentQueue::defaultQueue().reportDidRevokeEntitlements(products);
  });
  state.wakeTimer();
}

bool SandboxStore::requestPriceIncrease(std::string_view productIdentifier, const Decimal& newPrice) {
  State& state = *state_;
  const std::string productID(productIdentifier);
  std::string original;
  {
    support::LockGuard lock(state.mutex);
    LedgerEntry* first = state.renewingSubscription(productID);
    if (!first) throw std::invalid_argument("no active subscription to \"" + productID + "\" renews");
    if (first->priceIncrease) throw std::invalid_argument("a price increase of \"" + productID + "\" already waits");
    const Decimal current = state.currentPrice(*detail::findEntry(state.configuration, productID));
    if (newPrice.isNaN() || !(current < newPrice)) {
      throw std::invalid_argument("the new price " + newPrice.description() + " of \"" + productID +
                                  "\" is not above its price " + current.description());
    }
    first->priceIncrease = newPrice;
    first->priceConsentShown = false;
    original = first->identifier;
    state.saveOrLog();
    state.wakeTimer();
  }
  // The delegate is the app's code: it is asked without the store's lock.
  if (!platform::SKPaymentQueue::defaultQueue().shouldShowPriceConsent()) return false;
  support::LockGuard lock(state.mutex);
  LedgerEntry* first = state.entryNamed(original);
  if (!first || first->priceIncrease != newPrice) return false;  // answered or declined meanwhile
  first->priceConsentShown = true;
  state.saveOrLog();
  return true;
}

void SandboxStore::showPriceConsentIfNeeded() {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  bool changed = false;
  for (LedgerEntry& entry : state.ledger_.entries) {
    if (entry.priceIncrease && !entry.priceConsentShown) changed = entry.priceConsentShown = true;
  }
  if (changed) state.saveOrLog();
}

void SandboxStore::respondToPriceIncrease(std::string_view productIdentifier, bool agree) {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  const std::string productID(productIdentifier);
  LedgerEntry* first = state.renewingSubscription(productID);
  if (!first || !first->priceIncrease || !first->priceConsentShown) {
    throw std::invalid_argument("no price consent for \"" + productID + "\" waits for an answer");
  }
  if (agree) {
    state.ledger_.prices.insert_or_assign(productID, *first->priceIncrease);
    first->priceIncrease.reset();
    first->priceConsentShown = false;
  } else {
    State::decline(*first);
  }
  state.saveOrLog();
  state.wakeTimer();
}

std::vector<PriceConsent> SandboxStore::pendingPriceConsents() const {
  support::LockGuard lock(state_->mutex);
  std::vector<PriceConsent> consents;
  for (const LedgerEntry& entry : state_->ledger_.entries) {
    if (!entry.priceIncrease) continue;
    // The product the increase is for: the one the chain holds now.
    std::string productID = entry.productIdentifier;
    for (const LedgerEntry& later : state_->ledger_.entries) {
      if (later.originalIdentifier == entry.identifier && later.state == TransactionState::purchased &&
          !later.changesAtRenewal) {
        productID = later.productIdentifier;
      }
    }
    consents.push_back(
        {.productIdentifier = productID, .newPrice = *entry.priceIncrease, .shown = entry.priceConsentShown});
  }
  return consents;
}

std::optional<std::string> SandboxStore::redeemOfferCode(std::string_view productIdentifier, std::string_view offer) {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  const std::string productID(productIdentifier);
  const auto found = detail::findEntry(state.configuration, productID);
  if (!found || !found->subscription) throw std::invalid_argument("no subscription \"" + productID + "\"");
  const CodeOffer* code = codeOfferNamed(*found->subscription, offer);
  if (!code) throw std::invalid_argument("\"" + productID + "\" has no code offer \"" + std::string(offer) + "\"");
  // Which kind of customer this is in the group: new to it, subscribed now, or a former subscriber.
  std::string kind = "new";
  std::string described = "new to the group";
  if (const auto chain = state.chainInGroup(*found->group)) {
    const LedgerEntry* first = state.entryNamed(chain->first);
    const SubscriptionStatus status = state.statusIn(*found->group);
    using enum SubscriptionStatus::State;
    const bool holds = status.state == subscribed || status.state == inGracePeriod ||
                       status.state == inBillingRetryPeriod;
    if (first && holds) {
      kind = "existing";
      described = "subscribed in the group";
    } else {
      kind = "expired";
      described = "a former subscriber in the group";
    }
  }
  if (std::ranges::find(code->eligibility, kind) == code->eligibility.end()) {
    return "the offer is for " + joinedWithOr(code->eligibility) + " customers, and this customer is " + described;
  }
  LedgerEntry& entry = state.record(LedgerEntry{.originalIdentifier = state.originalFor(productID),
                                                .productIdentifier = productID,
                                                .purchaseDate = state.now()});
  state.complete(entry, std::nullopt, code);
  const std::string identifier = entry.identifier;
  state.saveOrLog();
  state.report({state.entryNamed(identifier)});
  state.wakeTimer();
  return std::nullopt;
}

SubscriptionStatus SandboxStore::subscriptionStatus(std::string_view productIdentifier) const {
  support::LockGuard lock(state_->mutex);
  const auto found = detail::findEntry(state_->configuration, productIdentifier);
  if (!found) throw std::invalid_argument("no product \"" + std::string(productIdentifier) + "\"");
  if (!found->group) return {};
  return state_->statusIn(*found->group);
}

SandboxStore::Date SandboxStore::now() const {
  support::LockGuard lock(state_->mutex);
  return state_->now();
}

void SandboxStore::advanceClock(std::chrono::seconds amount) {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  if (amount <= std::chrono::seconds::zero()) return;
  state.advance(amount);
  if (!state.renewDue()) state.saveOrLog();
  state.wakeTimer();
}

void SandboxStore::advanceClock(const Period& period) {
  const Date from = now();
  advanceClock(std::chrono::duration_cast<std::chrono::seconds>(detail::addPeriods(from, period, 1) - from));
}

void SandboxStore::forceRenewal(std::string_view productIdentifier) {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  for (const auto& [original, index] : state.latestOfChains()) {
    const LedgerEntry& latest = state.ledger_.entries[index];
    if (latest.productIdentifier != productIdentifier) continue;
    if (*latest.expiresDate <= state.now()) continue;  // lapsed: renewed by the clock, not here
    const LedgerEntry* first = state.entryNamed(original);
    if (latest.revocationDate || (first && (first->autoRenewOff || first->billingIssueSince))) continue;  // won't renew
    // The current period ends now, and the next begins.
    state.ledger_.entries[index].expiresDate = state.now();
    state.renewDue();
    state.wakeTimer();
    return;
  }
  throw std::invalid_argument("no active subscription to \"" + std::string(productIdentifier) + "\"");
}

std::vector<LedgerEntry> SandboxStore::transactions() const {
  support::LockGuard lock(state_->mutex);
  return state_->ledger_.entries;
}

void SandboxStore::clearTransactions() {
  State& state = *state_;
  support::LockGuard lock(state.mutex);
  state.ledger_.entries.clear();
  state.positions_.clear();
  state.objects_.clear();
  state.identifiers_.clear();
  state.saveOrLog();
  state.wakeTimer();
}

void SandboxStore::waitUntilIdle() const {
  // Each queue runs its jobs in order, so a marker job runs after everything before it. A
  // products answer may report nothing, but a report may be followed by nothing either, so
  // both queues are drained.
  for (const support::QueueScheduler* queue : {&state_->answers, &state_->reports}) {
    std::promise<void> drained;
    auto done = drained.get_future();
    queue->schedule([&drained] { drained.set_value(); });
    done.wait();
  }
}

}  // namespace velquist::sandbox
