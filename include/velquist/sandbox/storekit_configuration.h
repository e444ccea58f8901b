#pragma once

#include "velquist/export.h"
#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "velquist/foundation/decimal.h"

VELQUIST_API_BEGIN
namespace velquist::sandbox {

using foundation::Decimal;

// The catalogue and test settings of an Xcode StoreKit configuration file (`.storekit`), as
// plain values. Field names follow the keys of the file; where the file's text is turned into
// a value (prices, periods, payment modes) the field says what it was read from.
//
// Every type here is a value type: distinct objects may be used from different threads
// freely, and one object may be read from several threads at once.

/// The display name and description of a product or subscription group in one locale.
/// `locale` is written with an underscore (`en_US`, `pt_BR`) or is a bare language (`ar`);
/// the texts may be empty.
struct Localization {
  std::string locale;
  std::string displayName;
  std::string description;

  friend bool operator==(const Localization&, const Localization&) = default;
};

/// A period of a single ISO 8601 component, `P<count><D|W|M|Y>`: a subscription's renewal
/// period or the length of one offer period. `iso8601` keeps the text as written (`P2W`),
/// `unit` and `count` are read from it (week, 2).
struct Period {
  enum class Unit { day, week, month, year };

  std::string iso8601;
  Unit unit = Unit::month;
  std::int32_t count = 1;

  friend bool operator==(const Period&, const Period&) = default;
};

/// How an offer is paid, as the file names it: a free trial, a reduced price for each of
/// several periods, or one reduced price for the whole offer.
enum class PaymentMode { free, payAsYouGo, payUpFront };

/// The file's name of a payment mode: "free", "payAsYouGo", "payUpFront".
std::string_view rawValue(PaymentMode mode);

/// The kind of a product, from its `type`: "Consumable", "NonConsumable",
/// "NonRenewingSubscription", "RecurringSubscription" (an auto-renewable subscription).
enum class ProductType { consumable, nonConsumable, nonRenewingSubscription, autoRenewableSubscription };

/// The file's name of a product type, e.g. "NonConsumable".
std::string_view rawValue(ProductType type);

/// A discount on an auto-renewable subscription: `numberOfPeriods` periods of `period` each,
/// paid as `paymentMode` says.
struct Offer {
  std::string internalID;
  PaymentMode paymentMode = PaymentMode::free;
  /// From `subscriptionPeriod`: the length of one offer period.
  Period period;
  /// How often the period repeats; 1 when the file leaves it out.
  std::int32_t numberOfPeriods = 1;
  /// From `displayPrice`: per period for payAsYouGo, the whole offer for payUpFront, and
  /// always zero for a free trial (a price the editor left behind on one is ignored).
  Decimal price;
  /// `BILLED_UPFRONT` or `MONTHLY` in newer files; absent in older ones.
  std::optional<std::string> billingPlanType;

  friend bool operator==(const Offer&, const Offer&) = default;
};

/// A promotional offer (the file's `adHocOffers`): an app applies it to a purchase by its
/// `offerID`, which is unique within one subscription but may recur on others.
struct PromotionalOffer : Offer {
  std::string offerID;
  std::string referenceName;

  friend bool operator==(const PromotionalOffer&, const PromotionalOffer&) = default;
};

/// An offer code (the file's `codeOffers`), redeemed through the offer-code sheet.
struct CodeOffer : Offer {
  std::string referenceName;
  /// Which customers may redeem it, as written: any of "new", "existing", "expired".
  std::vector<std::string> eligibility;
  /// Whether it may be combined with an introductory offer instead of replacing it.
  bool isStackable = false;

  friend bool operator==(const CodeOffer&, const CodeOffer&) = default;
};

/// A consumable, non-consumable or non-renewing subscription; also the common part of an
/// auto-renewable `Subscription`.
struct Product {
  std::string productID;
  ProductType type = ProductType::consumable;
  /// The internal name; never shown to customers.
  std::string referenceName;
  /// From `displayPrice`, an exact decimal in the currency of the active storefront.
  Decimal price;
  bool familyShareable = false;
  std::string internalID;
  std::vector<Localization> localizations;

  friend bool operator==(const Product&, const Product&) = default;
};

/// An auto-renewable subscription; its `type` is always autoRenewableSubscription.
struct Subscription : Product {
  /// The `id` of the group the subscription belongs to.
  std::string subscriptionGroupID;
  /// The service level within the group (the file's `groupNumber`): 1 is the highest tier,
  /// larger numbers are lower tiers, and several subscriptions may share a level.
  std::int32_t groupNumber = 1;
  /// From `recurringSubscriptionPeriod`: how often it renews at `price`.
  Period recurringSubscriptionPeriod;
  /// From `introductoryOffer`, or else the first entry of `introductoryOffers`; absent when
  /// the file has neither.
  std::optional<Offer> introductoryOffer;
  /// From `adHocOffers`, in file order.
  std::vector<PromotionalOffer> promotionalOffers;
  std::vector<CodeOffer> codeOffers;

  friend bool operator==(const Subscription&, const Subscription&) = default;
};

/// Auto-renewable subscriptions among which a customer holds at most one at a time.
struct SubscriptionGroup {
  std::string id;
  /// The internal name of the group.
  std::string name;
  /// The group's customer-facing name per locale; usually empty.
  std::vector<Localization> localizations;
  std::vector<Subscription> subscriptions;

  friend bool operator==(const SubscriptionGroup&, const SubscriptionGroup&) = default;
};

/// The simulated failure of one store API (an entry of `_storeKitErrors`).
struct SimulatedError {
  /// The chosen error: its family (`type`, e.g. "generic", "purchase") and the case number
  /// within that family (`index`).
  struct Selection {
    std::string type;
    std::int64_t index = 0;

    friend bool operator==(const Selection&, const Selection&) = default;
  };

  /// The API, e.g. "Load Products", "Purchase", "Offer Code Redeem Sheet".
  std::string name;
  bool enabled = false;
  std::optional<Selection> current;

  friend bool operator==(const SimulatedError&, const SimulatedError&) = default;
};

/// A fallback time rate for systems that lack the chosen one (`_compatibilityTimeRate`).
/// The file writes either a plain integer, read as one entry with an empty `key`, or an
/// object such as `{"3": 6}`, read as one entry per member in file order.
struct CompatibilityTimeRate {
  std::string key;
  std::int64_t timeRate = 0;

  friend bool operator==(const CompatibilityTimeRate&, const CompatibilityTimeRate&) = default;
};

/// The initial state of the test environment (the file's `settings`, whose keys start with
/// `_`). A key the file leaves out, or a missing `settings` object, gives the default shown.
struct Settings {
  /// The storefront country as an ISO 3166-1 alpha-3 code (three upper-case letters).
  std::string storefront = "USA";
  /// The locale whose localizations are served (`en_US`, `pt_BR`, `ja`). Absent when the file
  /// names none: metadata then falls back to en_US and prices to the storefront's locale.
  std::optional<std::string> locale;
  bool askToBuyEnabled = false;
  /// Legacy switch: every purchase fails with `storeKitError`.
  bool failTransactionsEnabled = false;
  /// Legacy error code used by `failTransactionsEnabled` (older files only).
  std::optional<std::int64_t> storeKitError;
  /// Per-API simulated errors (newer files), in file order.
  std::vector<SimulatedError> storeKitErrors;
  /// Purchases are interrupted by a billing issue until it is resolved (`_billingIssuesEnabled`,
  /// or `_interruptedPurchasesEnabled` in hand-made files).
  bool billingIssuesEnabled = false;
  /// Renewals fail and enter billing retry.
  bool renewalBillingIssuesEnabled = false;
  /// Billing retry starts with a grace period.
  bool billingGracePeriodEnabled = false;
  bool disableDialogs = false;
  /// The raw value of the subscription clock speed: 0 real time, 6 one second per day,
  /// 13 monthly renewal every five minutes, 1004 one renewal every ten seconds, ...
  std::int64_t timeRate = 0;
  std::vector<CompatibilityTimeRate> compatibilityTimeRates;
  /// Informational values of a file synced from the developer's store account.
  std::optional<std::string> applicationInternalID;
  std::optional<std::string> developerTeamID;
  /// Seconds since 2001-01-01 00:00 UTC, exactly as written.
  std::optional<Decimal> lastSynchronizedDate;

  friend bool operator==(const Settings&, const Settings&) = default;
};

/// The key that signs promotional offers in the test environment (`subscriptionOffersKeyPair`):
/// its identifier and the base64 text of its PKCS#8 private key.
struct SubscriptionOffersKeyPair {
  std::string id;
  std::string privateKey;

  friend bool operator==(const SubscriptionOffersKeyPair&, const SubscriptionOffersKeyPair&) = default;
};

/// One whole configuration file: the products on sale and the test settings.
///
/// Product identifiers are unique across `products`, `nonRenewingSubscriptions` and every
/// group (the loader refuses a file that repeats one). Parts of the file a store does not
/// serve (app policies, billing plans, win-back offers) are not kept.
struct StoreKitConfiguration {
  struct Version {
    std::int64_t major = 0;
    std::int64_t minor = 0;

    friend bool operator==(const Version&, const Version&) = default;
  };

  /// Absent in the oldest files.
  std::optional<std::string> identifier;
  Version version;
  /// Consumables and non-consumables.
  std::vector<Product> products;
  std::vector<Product> nonRenewingSubscriptions;
  std::vector<SubscriptionGroup> subscriptionGroups;
  Settings settings;
  std::optional<SubscriptionOffersKeyPair> subscriptionOffersKeyPair;

  /// The product of any kind with this identifier (a subscription as its Product part), or
  /// nullptr. The pointer is valid while the configuration is neither changed nor destroyed.
  const Product* findProduct(std::string_view productID) const;
  /// The auto-renewable subscription with this identifier, or nullptr; valid as above.
  const Subscription* findSubscription(std::string_view productID) const;

  friend bool operator==(const StoreKitConfiguration&, const StoreKitConfiguration&) = default;
};

/// Why a configuration could not be loaded: the file could not be read, is not JSON, or holds
/// a value the loader cannot use. Names the file, the JSON path of the value at fault (empty
/// when the fault is not in one value) and the reason:
///
///     what() -> "Products.storekit: subscriptionGroups[0].subscriptions[2].introductoryOffer
///                .paymentMode: unknown payment mode \"weekly\" (expected \"free\",
///                \"payAsYouGo\" or \"payUpFront\")"   (one line)
///     what() -> "Missing.storekit: cannot be opened: No such file or directory"
///
/// Immutable; copies share their contents, so copying never throws. Safe to read from any
/// thread.
class StoreKitConfigurationError : public std::exception {
 public:
  StoreKitConfigurationError(std::string file, std::string path, std::string reason);

  const std::string& file() const noexcept { return details_->file; }
  /// Keys joined by dots, array positions in brackets: `products[3].displayPrice`.
  const std::string& path() const noexcept { return details_->path; }
  const std::string& reason() const noexcept { return details_->reason; }
  /// "<file>: <path>: <reason>", or "<file>: <reason>" when the path is empty.
  const char* what() const noexcept override { return details_->message.c_str(); }

 private:
  struct Details {
    std::string file;
    std::string path;
    std::string reason;
    std::string message;
  };
  std::shared_ptr<const Details> details_;
};

/// Reads a configuration from JSON text. `name` only labels errors (usually the file name).
///
/// Accepts every format version seen (1.0 to 6.3) and any other; keys the loader does not
/// know are ignored at every level, and `null` counts as absent for an optional key. A UTF-8
/// byte order mark before the text is skipped. Throws StoreKitConfigurationError for
/// anything else that is not a usable configuration; never crashes, whatever the bytes.
StoreKitConfiguration parseStoreKitConfiguration(std::string_view text, std::string_view name);

/// Reads the configuration file at `path`; errors name the path as given. Throws
/// StoreKitConfigurationError when the file cannot be read or parsed.
StoreKitConfiguration loadStoreKitConfiguration(const std::filesystem::path& path);

}  // namespace velquist::sandbox
VELQUIST_API_END
