#include "velquist/sandbox/storekit_configuration.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <set>
#include <system_error>
#include <utility>

#include "velquist/foundation/coding_error.h"
#include "velquist/foundation/json.h"

namespace velquist::sandbox {

using foundation::JsonValue;

std::string_view rawValue(PaymentMode mode) {
  switch (mode) {
    case PaymentMode::free:
      return "free";
    case PaymentMode::payAsYouGo:
      return "payAsYouGo";
    case PaymentMode::payUpFront:
      return "payUpFront";
  }
  return "";
}

std::string_view rawValue(ProductType type) {
  switch (type) {
    case ProductType::consumable:
      return "Consumable";
    case ProductType::nonConsumable:
      return "NonConsumable";
    case ProductType::nonRenewingSubscription:
      return "NonRenewingSubscription";
    case ProductType::autoRenewableSubscription:
      return "RecurringSubscription";
  }
  return "";
}

const Product* StoreKitConfiguration::findProduct(std::string_view productID) const {
  for (const std::vector<Product>* list : {&products, &nonRenewingSubscriptions}) {
    for (const Product& product : *list) {
      if (product.productID == productID) return &product;
    }
  }
  return findSubscription(productID);
}

const Subscription* StoreKitConfiguration::findSubscription(std::string_view productID) const {
  for (const SubscriptionGroup& group : subscriptionGroups) {
    for (const Subscription& subscription : group.subscriptions) {
      if (subscription.productID == productID) return &subscription;
    }
  }
  return nullptr;
}

StoreKitConfigurationError::StoreKitConfigurationError(std::string file, std::string path, std::string reason) {
  std::string message = file + ": " + (path.empty() ? "" : path + ": ") + reason;
  details_ =
      std::make_shared<const Details>(Details{std::move(file), std::move(path), std::move(reason), std::move(message)});
}

namespace {

/// A JSON value together with its path from the document root, for error messages.
struct Node {
  const JsonValue& value;
  std::string path;
};

std::string inQuotes(std::string_view text) { return "\"" + std::string(text) + "\""; }

/// Reads the document tree into the configuration. Every accessor checks the kind of value
/// before touching it, so a value of the wrong kind is reported rather than thrown as a
/// logic error.
class Reader {
 public:
  explicit Reader(std::string_view name) : name_(name) {}

  StoreKitConfiguration configuration(const Node& root) const {
    requireKind(root, JsonValue::Kind::object);
    StoreKitConfiguration result;
    if (auto identifier = optionalMember(root, "identifier")) result.identifier = string(*identifier);
    const Node version = member(root, "version");
    result.version = {integer(member(version, "major"), 0, maxCount), integer(member(version, "minor"), 0, maxCount)};
    result.products = array<Product>(member(root, "products"), [this](const Node& node) { return product(node); });
    if (auto list = optionalMember(root, "nonRenewingSubscriptions")) {
      result.nonRenewingSubscriptions = array<Product>(*list, [this](const Node& node) { return product(node); });
    }
    result.subscriptionGroups =
        array<SubscriptionGroup>(member(root, "subscriptionGroups"), [this](const Node& node) { return group(node); });
    if (auto settingsNode = optionalMember(root, "settings")) result.settings = settings(*settingsNode);
    if (auto keyPair = optionalMember(root, "subscriptionOffersKeyPair")) {
      result.subscriptionOffersKeyPair =
          SubscriptionOffersKeyPair{string(member(*keyPair, "id")), string(member(*keyPair, "privateKey"))};
    }
    checkUniqueProductIDs(root, result);
    return result;
  }

 private:
  // Counts (versions, periods, levels) stay far below this; it keeps them in an int32.
  static constexpr std::int64_t maxCount = 1'000'000;

  [[noreturn]] void fail(const std::string& path, std::string reason) const {
    throw StoreKitConfigurationError(std::string(name_), path, std::move(reason));
  }

  void requireKind(const Node& node, JsonValue::Kind kind) const {
    if (node.value.kind() != kind) {
      fail(node.path, "expected " + std::string(foundation::kindName(kind)) + ", found " +
                          std::string(foundation::kindName(node.value.kind())));
    }
  }

  static std::string childPath(const Node& object, std::string_view key) {
    return object.path.empty() ? std::string(key) : object.path + "." + std::string(key);
  }

  /// The member `key` of an object; absent when missing or null.
  std::optional<Node> optionalMember(const Node& object, std::string_view key) const {
    requireKind(object, JsonValue::Kind::object);
    const JsonValue* value = object.value.find(key);
    if (value == nullptr || value->isNull()) return std::nullopt;
    return Node{*value, childPath(object, key)};
  }

  Node member(const Node& object, std::string_view key) const {
    std::optional<Node> node = optionalMember(object, key);
    if (!node) {
      const JsonValue* value = object.value.find(key);
      fail(childPath(object, key), value == nullptr ? "required key is missing" : "required value is null");
    }
    return *node;
  }

  std::string string(const Node& node) const {
    requireKind(node, JsonValue::Kind::string);
    return node.value.stringValue();
  }

  bool boolean(const Node& node) const {
    requireKind(node, JsonValue::Kind::boolean);
    return node.value.boolValue();
  }

  std::int64_t integer(const Node& node, std::int64_t min, std::int64_t max) const {
    requireKind(node, JsonValue::Kind::number);
    const std::string& text = node.value.numberText();
    const char* const last = text.data() + text.size();
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), last, value);
    if (error == std::errc::invalid_argument || end != last) fail(node.path, "expected an integer, found " + text);
    if (error == std::errc::result_out_of_range || value < min || value > max) {
      fail(node.path, "integer " + text + " is out of range " + std::to_string(min) + "..." + std::to_string(max));
    }
    return value;
  }

  std::string optionalString(const Node& object, std::string_view key, std::string fallback = {}) const {
    auto node = optionalMember(object, key);
    return node ? string(*node) : fallback;
  }

  bool optionalBoolean(const Node& object, std::string_view key) const {
    auto node = optionalMember(object, key);
    return node ? boolean(*node) : false;
  }

  template <class T, class ReadElement>
  std::vector<T> array(const Node& node, ReadElement readElement) const {
    requireKind(node, JsonValue::Kind::array);
    const JsonValue::Array& elements = node.value.arrayValue();
    std::vector<T> result;
    result.reserve(elements.size());
    for (std::size_t index = 0; index < elements.size(); ++index) {
      result.push_back(readElement(Node{elements[index], node.path + "[" + std::to_string(index) + "]"}));
    }
    return result;
  }

  std::vector<Localization> localizations(const Node& object) const {
    auto list = optionalMember(object, "localizations");
    if (!list) return {};
    return array<Localization>(*list, [this](const Node& node) {
      return Localization{string(member(node, "locale")), optionalString(node, "displayName"),
                          optionalString(node, "description")};
    });
  }

  /// A price: plain decimal digits with an optional fraction (`29`, `0.99`, `6.00`), read
  /// exactly. Signs, exponents, spaces and group separators are refused rather than guessed.
  Decimal price(const Node& node) const {
    const std::string text = string(node);
    const auto isDigits = [](std::string_view part) {
      return !part.empty() && std::all_of(part.begin(), part.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    const std::size_t point = text.find('.');
    const std::string_view whole = std::string_view(text).substr(0, point);
    const std::string_view fraction = point == std::string::npos ? "" : std::string_view(text).substr(point + 1);
    if (!isDigits(whole) || (point != std::string::npos && !isDigits(fraction))) {
      fail(node.path, "price " + inQuotes(text) + " is not a decimal number");
    }
    // A decimal holds 38 digits exactly; more would be cut off silently.
    if (whole.size() + fraction.size() > 38) fail(node.path, "price " + inQuotes(text) + " has more than 38 digits");
    return *Decimal::fromString(text);
  }

  Period period(const Node& node) const {
    static constexpr std::string_view units = "DWMY";
    const std::string text = string(node);
    std::int32_t count = 0;
    bool valid = text.size() >= 3 && text.front() == 'P' && text[1] >= '0' && text[1] <= '9' &&
                 units.find(text.back()) != std::string_view::npos;
    if (valid) {
      const char* const digitsEnd = text.data() + text.size() - 1;
      const auto [end, error] = std::from_chars(text.data() + 1, digitsEnd, count);
      valid = error == std::errc() && end == digitsEnd && count >= 1 && count <= maxCount;
    }
    if (!valid) fail(node.path, "period " + inQuotes(text) + " is not an ISO 8601 duration like P1W, P3M or P1Y");
    return Period{text, static_cast<Period::Unit>(units.find(text.back())), count};
  }

  template <class Enum>
  Enum enumeration(const Node& node, std::initializer_list<Enum> cases, std::string_view what) const {
    const std::string text = string(node);
    std::string expected;
    for (Enum candidate : cases) {
      if (rawValue(candidate) == text) return candidate;
      expected += (expected.empty() ? "" : ", ") + inQuotes(rawValue(candidate));
    }
    fail(node.path, "unknown " + std::string(what) + " " + inQuotes(text) + " (expected one of " + expected + ")");
  }

  Product product(const Node& node) const {
    Product result;
    result.productID = string(member(node, "productID"));
    result.type = enumeration(
        member(node, "type"),
        {ProductType::consumable, ProductType::nonConsumable, ProductType::nonRenewingSubscription}, "product type");
    fillCommon(node, result);
    return result;
  }

  // The keys a subscription shares with the other products, apart from `productID` and `type`.
  void fillCommon(const Node& node, Product& product) const {
    product.referenceName = optionalString(node, "referenceName");
    product.price = price(member(node, "displayPrice"));
    product.familyShareable = optionalBoolean(node, "familyShareable");
    product.internalID = optionalString(node, "internalID");
    product.localizations = localizations(node);
  }

  SubscriptionGroup group(const Node& node) const {
    SubscriptionGroup result;
    result.id = string(member(node, "id"));
    result.name = optionalString(node, "name");
    result.localizations = localizations(node);
    result.subscriptions = array<Subscription>(member(node, "subscriptions"),
                                               [&](const Node& element) { return subscription(element, result.id); });
    return result;
  }

  Subscription subscription(const Node& node, const std::string& groupID) const {
    Subscription result;
    result.productID = string(member(node, "productID"));
    result.type = ProductType::autoRenewableSubscription;
    if (auto type = optionalMember(node, "type")) {
      enumeration(*type, {ProductType::autoRenewableSubscription}, "subscription type");
    }
    fillCommon(node, result);
    result.subscriptionGroupID = optionalString(node, "subscriptionGroupID", groupID);
    if (result.subscriptionGroupID != groupID) {
      fail(childPath(node, "subscriptionGroupID"),
           inQuotes(result.subscriptionGroupID) + " differs from the enclosing group's id " + inQuotes(groupID));
    }
    result.groupNumber = static_cast<std::int32_t>(integer(member(node, "groupNumber"), 1, maxCount));
    result.recurringSubscriptionPeriod = period(member(node, "recurringSubscriptionPeriod"));
    if (auto intro = optionalMember(node, "introductoryOffer")) {
      result.introductoryOffer = offer(*intro);
    } else if (auto intros = optionalMember(node, "introductoryOffers")) {
      std::vector<Offer> offers = array<Offer>(*intros, [this](const Node& element) { return offer(element); });
      if (!offers.empty()) result.introductoryOffer = std::move(offers.front());
    }
    if (auto list = optionalMember(node, "adHocOffers")) {
      result.promotionalOffers = array<PromotionalOffer>(*list, [this](const Node& element) {
        PromotionalOffer promotional{offer(element)};
        promotional.offerID = string(member(element, "offerID"));
        promotional.referenceName = optionalString(element, "referenceName");
        return promotional;
      });
      std::set<std::string> seen;
      for (std::size_t i = 0; i < result.promotionalOffers.size(); ++i) {
        if (!seen.insert(result.promotionalOffers[i].offerID).second) {
          fail(list->path + "[" + std::to_string(i) + "].offerID",
               "offer identifier " + inQuotes(result.promotionalOffers[i].offerID) + " is repeated");
        }
      }
    }
    if (auto list = optionalMember(node, "codeOffers")) {
      result.codeOffers = array<CodeOffer>(*list, [this](const Node& element) {
        CodeOffer code{offer(element)};
        code.referenceName = optionalString(element, "referenceName");
        if (auto eligibility = optionalMember(element, "eligibility")) {
          code.eligibility = array<std::string>(*eligibility, [this](const Node& entry) { return string(entry); });
        }
        code.isStackable = optionalBoolean(element, "isStackable");
        return code;
      });
    }
    return result;
  }

  Offer offer(const Node& node) const {
    Offer result;
    result.internalID = optionalString(node, "internalID");
    result.paymentMode =
        enumeration(member(node, "paymentMode"), {PaymentMode::free, PaymentMode::payAsYouGo, PaymentMode::payUpFront},
                    "payment mode");
    result.period = period(member(node, "subscriptionPeriod"));
    if (auto count = optionalMember(node, "numberOfPeriods")) {
      result.numberOfPeriods = static_cast<std::int32_t>(integer(*count, 1, maxCount));
    }
    // The editor leaves the last price behind when an offer becomes a free trial; a free
    // trial costs nothing whatever it says.
    if (result.paymentMode != PaymentMode::free) result.price = price(member(node, "displayPrice"));
    if (auto plan = optionalMember(node, "billingPlanType")) result.billingPlanType = string(*plan);
    return result;
  }

  Settings settings(const Node& node) const {
    Settings result;
    if (auto storefront = optionalMember(node, "_storefront")) {
      result.storefront = string(*storefront);
      const bool isAlpha3 =
          result.storefront.size() == 3 &&
          std::all_of(result.storefront.begin(), result.storefront.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
      if (!isAlpha3)
        fail(storefront->path, "storefront " + inQuotes(result.storefront) + " is not a three-letter country code");
    }
    if (auto locale = optionalMember(node, "_locale")) result.locale = string(*locale);
    result.askToBuyEnabled = optionalBoolean(node, "_askToBuyEnabled");
    result.failTransactionsEnabled = optionalBoolean(node, "_failTransactionsEnabled");
    if (auto error = optionalMember(node, "_storeKitError")) {
      result.storeKitError =
          integer(*error, std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max());
    }
    if (auto errors = optionalMember(node, "_storeKitErrors")) {
      result.storeKitErrors = array<SimulatedError>(*errors, [this](const Node& element) {
        SimulatedError simulated{string(member(element, "name")), optionalBoolean(element, "enabled"), std::nullopt};
        if (auto current = optionalMember(element, "current")) {
          simulated.current = SimulatedError::Selection{
              string(member(*current, "type")),
              integer(member(*current, "index"), 0, std::numeric_limits<std::int64_t>::max())};
        }
        return simulated;
      });
    }
    // Xcode keeps the interrupted-purchases switch as `_billingIssuesEnabled`; a hand-made
    // file may use the test session's own name for it.
    result.billingIssuesEnabled =
        optionalBoolean(node, "_billingIssuesEnabled") || optionalBoolean(node, "_interruptedPurchasesEnabled");
    result.renewalBillingIssuesEnabled = optionalBoolean(node, "_renewalBillingIssuesEnabled");
    result.billingGracePeriodEnabled = optionalBoolean(node, "_billingGracePeriodEnabled");
    result.disableDialogs = optionalBoolean(node, "_disableDialogs");
    if (auto rate = optionalMember(node, "_timeRate")) result.timeRate = timeRate(*rate);
    if (auto rates = optionalMember(node, "_compatibilityTimeRate")) {
      if (rates->value.kind() == JsonValue::Kind::object) {
        for (const auto& [key, value] : rates->value.objectValue()) {
          result.compatibilityTimeRates.push_back({key, timeRate(Node{value, childPath(*rates, key)})});
        }
      } else {
        result.compatibilityTimeRates.push_back({"", timeRate(*rates)});
      }
    }
    if (auto id = optionalMember(node, "_applicationInternalID")) result.applicationInternalID = string(*id);
    if (auto team = optionalMember(node, "_developerTeamID")) result.developerTeamID = string(*team);
    if (auto date = optionalMember(node, "_lastSynchronizedDate")) {
      requireKind(*date, JsonValue::Kind::number);
      const std::optional<Decimal> seconds = Decimal::fromString(date->value.numberText());
      if (!seconds || seconds->isNaN()) fail(date->path, "date " + date->value.numberText() + " is out of range");
      result.lastSynchronizedDate = seconds;
    }
    return result;
  }

  std::int64_t timeRate(const Node& node) const { return integer(node, 0, std::numeric_limits<std::int32_t>::max()); }

  void checkUniqueProductIDs(const Node& root, const StoreKitConfiguration& configuration) const {
    std::set<std::string> seen;
    const auto check = [&](const std::string& productID, const std::string& path) {
      if (!seen.insert(productID).second) fail(path, "product identifier " + inQuotes(productID) + " is repeated");
    };
    for (const auto& [key, list] : {std::pair{"products", &configuration.products},
                                    std::pair{"nonRenewingSubscriptions", &configuration.nonRenewingSubscriptions}}) {
      for (std::size_t i = 0; i < list->size(); ++i) {
        check((*list)[i].productID, childPath(root, key) + "[" + std::to_string(i) + "].productID");
      }
    }
    for (std::size_t g = 0; g < configuration.subscriptionGroups.size(); ++g) {
      const std::vector<Subscription>& subscriptions = configuration.subscriptionGroups[g].subscriptions;
      for (std::size_t s = 0; s < subscriptions.size(); ++s) {
        check(subscriptions[s].productID,
              "subscriptionGroups[" + std::to_string(g) + "].subscriptions[" + std::to_string(s) + "].productID");
      }
    }
  }

  std::string_view name_;
};

}  // namespace

StoreKitConfiguration parseStoreKitConfiguration(std::string_view text, std::string_view name) {
  static constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
  JsonValue document;
  try {
    document = foundation::parseJson(text);
  } catch (const foundation::DecodingError& error) {
    throw StoreKitConfigurationError(std::string(name), "", error.debugDescription());
  }
  return Reader(name).configuration(Node{document, ""});
}

StoreKitConfiguration loadStoreKitConfiguration(const std::filesystem::path& path) {
  const std::string name = path.string();
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) throw StoreKitConfigurationError(name, "", "is a directory");
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw StoreKitConfigurationError(name, "", "cannot be opened: " + std::generic_category().message(errno));
  }
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (file.bad()) throw StoreKitConfigurationError(name, "", "cannot be read");
  return parseStoreKitConfiguration(text, name);
}

}  // namespace velquist::sandbox
