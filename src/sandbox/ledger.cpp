#include "ledger.h"

#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "velquist/foundation/file_io.h"
#include "velquist/foundation/json.h"

namespace velquist::sandbox::detail {
namespace {

using foundation::Decimal;
using foundation::JsonValue;
using Date = Ledger::Date;
using std::chrono::milliseconds;

constexpr std::int64_t kFormat = 1;

std::int64_t millisecondsOf(Date date) {
  return std::chrono::duration_cast<milliseconds>(date.time_since_epoch()).count();
}

std::string_view offerName(LedgerEntry::OfferKind offer) {
  switch (offer) {
    case LedgerEntry::OfferKind::introductory: return "introductory";
    case LedgerEntry::OfferKind::promotional: return "promotional";
    case LedgerEntry::OfferKind::code: return "code";
    case LedgerEntry::OfferKind::none: break;
  }
  return "none";
}

// Builds an object member by member, leaving out absent optionals.
class ObjectBuilder {
 public:
  ObjectBuilder& add(std::string key, JsonValue value) {
    members_.emplace_back(std::move(key), std::move(value));
    return *this;
  }
  ObjectBuilder& add(std::string key, std::string_view text) { return add(std::move(key), JsonValue(text)); }
  ObjectBuilder& add(std::string key, std::int64_t number) { return add(std::move(key), JsonValue::number(number)); }
  ObjectBuilder& add(std::string key, bool value) { return add(std::move(key), JsonValue(value)); }
  ObjectBuilder& addIfPresent(std::string key, const std::optional<std::string>& text) {
    return text ? add(std::move(key), std::string_view(*text)) : *this;
  }
  JsonValue build() { return JsonValue(std::move(members_)); }

 private:
  JsonValue::Object members_;
};

// Fields added after the first ledgers were written: each is left out at its default, so a
// ledger that uses none of them reads the same in any version, and older ledgers still load.
void addLaterFields(ObjectBuilder& object, const LedgerEntry& entry) {
  if (const auto& discount = entry.paymentDiscount) {
    object.add("paymentDiscount", ObjectBuilder()
                                      .add("identifier", std::string_view(discount->identifier))
                                      .add("keyIdentifier", std::string_view(discount->keyIdentifier))
                                      .add("nonce", std::string_view(discount->nonce))
                                      .add("signature", std::string_view(discount->signature))
                                      .add("timestamp", discount->timestamp)
                                      .build());
  }
  if (entry.simulatesAskToBuyInSandbox) object.add("simulatesAskToBuyInSandbox", true);
  object.addIfPresent("stackedCodeOffer", entry.stackedCodeOffer);
  if (entry.changesAtRenewal) object.add("changesAtRenewal", true);
  if (entry.interrupted) object.add("interrupted", true);
  if (entry.interruptionResolved) object.add("interruptionResolved", true);
  if (entry.revocationDate) object.add("revocationDate", millisecondsOf(*entry.revocationDate));
  if (entry.revocationReason) object.add("revocationReason", *entry.revocationReason);
  object.addIfPresent("pendingChange", entry.pendingChange);
  if (entry.autoRenewOff) object.add("autoRenewOff", true);
  if (entry.billingIssueSince) object.add("billingIssueSince", millisecondsOf(*entry.billingIssueSince));
  if (entry.gracePeriodEnd) object.add("gracePeriodEnd", millisecondsOf(*entry.gracePeriodEnd));
  if (entry.price) object.add("price", std::string_view(entry.price->description()));
  if (entry.priceIncrease) object.add("priceIncrease", std::string_view(entry.priceIncrease->description()));
  if (entry.priceConsentShown) object.add("priceConsentShown", true);
}

JsonValue entryJson(const LedgerEntry& entry) {
  ObjectBuilder object;
  object.add("identifier", std::string_view(entry.identifier))
      .addIfPresent("originalIdentifier", entry.originalIdentifier)
      .add("productIdentifier", std::string_view(entry.productIdentifier))
      .add("quantity", entry.quantity)
      .addIfPresent("applicationUsername", entry.applicationUsername)
      .add("state", static_cast<std::int64_t>(entry.state));
  if (entry.errorCode) object.add("errorCode", static_cast<std::int64_t>(*entry.errorCode));
  object.add("purchaseDate", millisecondsOf(entry.purchaseDate));
  if (entry.expiresDate) object.add("expiresDate", millisecondsOf(*entry.expiresDate));
  object.add("offer", offerName(entry.offer))
      .addIfPresent("offerIdentifier", entry.offerIdentifier)
      .add("offerPeriodIndex", static_cast<std::int64_t>(entry.offerPeriodIndex))
      .add("finished", entry.finished);
  addLaterFields(object, entry);
  return object.build();
}

// Reads one value of the ledger, naming the JSON path of whatever is wrong.
class Reader {
 public:
  Reader(const std::filesystem::path& file, std::string path, const JsonValue& value)
      : file_(file), path_(std::move(path)), value_(value) {}

  [[noreturn]] void fail(const std::string& reason) const {
    throw std::runtime_error(file_.string() + ": " + (path_.empty() ? "" : path_ + ": ") + reason);
  }

  Reader member(std::string_view key) const {
    requireObject();
    const JsonValue* found = value_.find(key);
    if (!found) Reader(file_, childPath(key), value_).fail("missing");
    return Reader(file_, childPath(key), *found);
  }
  std::optional<Reader> optionalMember(std::string_view key) const {
    requireObject();
    const JsonValue* found = value_.find(key);
    if (!found || found->isNull()) return std::nullopt;
    return Reader(file_, childPath(key), *found);
  }
  std::vector<Reader> elements() const {
    if (value_.kind() != JsonValue::Kind::array) fail("expected an array");
    std::vector<Reader> readers;
    const auto& array = value_.arrayValue();
    for (std::size_t index = 0; index < array.size(); ++index) {
      readers.emplace_back(file_, path_ + "[" + std::to_string(index) + "]", array[index]);
    }
    return readers;
  }
  std::string text() const {
    if (value_.kind() != JsonValue::Kind::string) fail("expected text");
    return value_.stringValue();
  }
  bool boolean() const {
    if (value_.kind() != JsonValue::Kind::boolean) fail("expected true or false");
    return value_.boolValue();
  }
  std::int64_t integer() const {
    if (value_.kind() != JsonValue::Kind::number) fail("expected a number");
    const std::string& digits = value_.numberText();
    std::int64_t number = 0;
    int consumed = 0;
    if (std::sscanf(digits.c_str(), "%" SCNd64 "%n", &number, &consumed) != 1 ||
        static_cast<std::size_t>(consumed) != digits.size()) {
      fail("expected a whole number in range, found " + digits);
    }
    return number;
  }
  // Milliseconds since 1970; the clock counts nanoseconds and overflows past 2262, so dates
  // are kept to 1970...2199, which leaves room for the renewals that follow them.
  // A price kept as its decimal text, "5.99".
  Decimal price() const {
    const std::string digits = text();
    const auto value = Decimal::fromString(digits);
    if (!value || value->isNaN() || value->description() != digits) fail("expected a price, found \"" + digits + "\"");
    return *value;
  }
  std::vector<std::pair<std::string, Reader>> members() const {
    requireObject();
    std::vector<std::pair<std::string, Reader>> readers;
    for (const auto& [key, value] : value_.objectValue()) {
      readers.emplace_back(key, Reader(file_, childPath(key), value));
    }
    return readers;
  }
  Date date() const {
    const std::int64_t count = integer();
    if (count < 0 || count >= latestDate) {
      fail("date " + std::to_string(count) + " is outside the store's range (1970-01-01 to 2200-01-01 in milliseconds, 0 to " +
           std::to_string(latestDate) + ")");
    }
    return Date(milliseconds(count));
  }
  static constexpr std::int64_t latestDate = 7258118400000;  // 2200-01-01T00:00:00Z

 private:
  void requireObject() const {
    if (value_.kind() != JsonValue::Kind::object) fail("expected an object");
  }
  std::string childPath(std::string_view key) const {
    return path_.empty() ? std::string(key) : path_ + "." + std::string(key);
  }

  const std::filesystem::path& file_;
  std::string path_;
  const JsonValue& value_;
};

// The fields `addLaterFields` writes; each may be missing.
void readLaterFields(const Reader& reader, LedgerEntry& entry) {
  auto flag = [&](std::string_view key) {
    const auto member = reader.optionalMember(key);
    return member && member->boolean();
  };
  if (auto discount = reader.optionalMember("paymentDiscount")) {
    entry.paymentDiscount = platform::SKPaymentDiscount{.identifier = discount->member("identifier").text(),
                                                        .keyIdentifier = discount->member("keyIdentifier").text(),
                                                        .nonce = discount->member("nonce").text(),
                                                        .signature = discount->member("signature").text(),
                                                        .timestamp = discount->member("timestamp").integer()};
  }
  entry.simulatesAskToBuyInSandbox = flag("simulatesAskToBuyInSandbox");
  if (auto stacked = reader.optionalMember("stackedCodeOffer")) entry.stackedCodeOffer = stacked->text();
  entry.changesAtRenewal = flag("changesAtRenewal");
  entry.interrupted = flag("interrupted");
  entry.interruptionResolved = flag("interruptionResolved");
  if (auto date = reader.optionalMember("revocationDate")) entry.revocationDate = date->date();
  if (auto reason = reader.optionalMember("revocationReason")) entry.revocationReason = reason->integer();
  if (auto change = reader.optionalMember("pendingChange")) entry.pendingChange = change->text();
  entry.autoRenewOff = flag("autoRenewOff");
  if (auto date = reader.optionalMember("billingIssueSince")) entry.billingIssueSince = date->date();
  if (auto date = reader.optionalMember("gracePeriodEnd")) entry.gracePeriodEnd = date->date();
  if (auto price = reader.optionalMember("price")) entry.price = price->price();
  if (auto price = reader.optionalMember("priceIncrease")) entry.priceIncrease = price->price();
  entry.priceConsentShown = flag("priceConsentShown");
}

LedgerEntry readEntry(const Reader& reader) {
  LedgerEntry entry;
  entry.identifier = reader.member("identifier").text();
  if (auto original = reader.optionalMember("originalIdentifier")) entry.originalIdentifier = original->text();
  entry.productIdentifier = reader.member("productIdentifier").text();
  entry.quantity = reader.member("quantity").integer();
  if (auto username = reader.optionalMember("applicationUsername")) entry.applicationUsername = username->text();
  entry.state = static_cast<platform::SKPaymentTransactionState>(reader.member("state").integer());
  if (auto code = reader.optionalMember("errorCode")) entry.errorCode = static_cast<platform::SKError::Code>(code->integer());
  entry.purchaseDate = reader.member("purchaseDate").date();
  if (auto expires = reader.optionalMember("expiresDate")) entry.expiresDate = expires->date();
  const Reader offer = reader.member("offer");
  const std::string offerText = offer.text();
  if (offerText == "introductory") {
    entry.offer = LedgerEntry::OfferKind::introductory;
  } else if (offerText == "promotional") {
    entry.offer = LedgerEntry::OfferKind::promotional;
  } else if (offerText == "code") {
    entry.offer = LedgerEntry::OfferKind::code;
  } else if (offerText != "none") {
    offer.fail("unknown offer \"" + offerText + "\"");
  }
  if (auto identifier = reader.optionalMember("offerIdentifier")) entry.offerIdentifier = identifier->text();
  entry.offerPeriodIndex = static_cast<std::int32_t>(reader.member("offerPeriodIndex").integer());
  entry.finished = reader.member("finished").boolean();
  readLaterFields(reader, entry);
  return entry;
}

// The store names a chain's first purchase as the original of every later entry, so an
// original never has an original of its own. A file where one does (an entry that is its own
// original, two that name each other, a longer chain) would send the store round in circles
// when it builds the transaction objects; it is refused.
void requireFirstPurchasesAsOriginals(const Ledger& ledger, const std::filesystem::path& path) {
  std::unordered_map<std::string_view, std::size_t> byIdentifier;
  for (std::size_t index = 0; index < ledger.entries.size(); ++index) {
    byIdentifier.emplace(ledger.entries[index].identifier, index);
  }
  for (std::size_t index = 0; index < ledger.entries.size(); ++index) {
    const LedgerEntry& entry = ledger.entries[index];
    if (!entry.originalIdentifier) continue;
    const JsonValue unused;
    const Reader at(path, "transactions[" + std::to_string(index) + "].originalIdentifier", unused);
    if (*entry.originalIdentifier == entry.identifier) at.fail("the transaction names itself as its original");
    const auto original = byIdentifier.find(*entry.originalIdentifier);
    if (original == byIdentifier.end()) continue;
    const LedgerEntry& first = ledger.entries[original->second];
    if (!first.originalIdentifier) continue;
    if (*first.originalIdentifier == entry.identifier) {
      at.fail("transactions " + entry.identifier + " and " + first.identifier + " name each other as original (a cycle)");
    }
    at.fail("the original transaction " + first.identifier + " is not a first purchase: its own original is " +
            *first.originalIdentifier);
  }
}

}  // namespace

std::optional<Ledger> readLedger(const std::filesystem::path& path) {
  const std::optional<std::string> text = foundation::readFileIfPresent(path);
  if (!text) return std::nullopt;
  JsonValue json;
  try {
    json = foundation::parseJson(*text, {.allowFragments = false});
  } catch (const std::exception& error) {
    throw std::runtime_error(path.string() + ": not JSON: " + error.what());
  }
  const Reader root(path, "", json);
  const Reader format = root.member("format");
  if (format.integer() != kFormat) format.fail("unsupported ledger format " + std::to_string(format.integer()));
  Ledger ledger;
  ledger.clock = root.member("clock").date();
  const Reader next = root.member("nextIdentifier");
  const std::int64_t nextIdentifier = next.integer();
  if (nextIdentifier < 1) next.fail("must be at least 1");
  ledger.nextIdentifier = static_cast<std::uint64_t>(nextIdentifier);
  const Reader transactions = root.member("transactions");
  for (const Reader& entry : transactions.elements()) ledger.entries.push_back(readEntry(entry));
  if (auto prices = root.optionalMember("prices")) {
    for (const auto& [product, price] : prices->members()) ledger.prices.insert_or_assign(product, price.price());
  }
  requireFirstPurchasesAsOriginals(ledger, path);
  return ledger;
}

void writeLedger(const std::filesystem::path& path, const Ledger& ledger) {
  JsonValue::Array entries;
  entries.reserve(ledger.entries.size());
  for (const LedgerEntry& entry : ledger.entries) entries.push_back(entryJson(entry));
  ObjectBuilder root;
  root.add("format", kFormat)
      .add("clock", millisecondsOf(ledger.clock))
      .add("nextIdentifier", static_cast<std::int64_t>(ledger.nextIdentifier))
      .add("transactions", JsonValue(std::move(entries)));
  if (!ledger.prices.empty()) {  // left out until a price is raised, like the entries' later fields
    ObjectBuilder prices;
    for (const auto& [product, price] : ledger.prices) prices.add(product, std::string_view(price.description()));
    root.add("prices", prices.build());
  }
  JsonValue json = root.build();
  foundation::writeFileAtomically(path, foundation::toJsonText(json, {.prettyPrinted = true}));
}

std::string iso8601Text(Date date) {
  const std::int64_t total = millisecondsOf(date);
  std::int64_t seconds = total / 1000;
  std::int64_t millis = total % 1000;
  if (millis < 0) {
    millis += 1000;
    seconds -= 1;
  }
  const std::time_t time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  gmtime_r(&time, &parts);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900, parts.tm_mon + 1,
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, static_cast<int>(millis));
  return text;
}

std::string receiptText(const Ledger& ledger, const std::optional<std::string>& bundleIdentifier) {
  // The original purchase date of each chain, looked up by the first purchase's identifier.
  std::unordered_map<std::string_view, Date> purchaseDates;
  for (const LedgerEntry& entry : ledger.entries) purchaseDates.emplace(entry.identifier, entry.purchaseDate);
  auto originalPurchaseDate = [&](const LedgerEntry& entry) {
    const auto found = entry.originalIdentifier ? purchaseDates.find(*entry.originalIdentifier) : purchaseDates.end();
    return found != purchaseDates.end() ? found->second : entry.purchaseDate;
  };
  JsonValue::Array purchases;
  for (const LedgerEntry& entry : ledger.entries) {
    using State = platform::SKPaymentTransactionState;
    if (entry.state != State::purchased && entry.state != State::restored) continue;
    if (entry.changesAtRenewal) continue;  // charged only when the renewal comes
    ObjectBuilder object;
    object.add("product_id", std::string_view(entry.productIdentifier))
        .add("quantity", entry.quantity)
        .add("transaction_id", std::string_view(entry.identifier))
        .add("original_transaction_id", std::string_view(entry.originalIdentifier.value_or(entry.identifier)))
        .add("purchase_date", std::string_view(iso8601Text(entry.purchaseDate)))
        .add("original_purchase_date", std::string_view(iso8601Text(originalPurchaseDate(entry))));
    if (entry.expiresDate) object.add("expires_date", std::string_view(iso8601Text(*entry.expiresDate)));
    if (entry.offer != LedgerEntry::OfferKind::none) object.add("offer_type", offerName(entry.offer));
    object.addIfPresent("offer_identifier", entry.offerIdentifier);
    if (entry.price) object.add("price", std::string_view(entry.price->description()));
    if (entry.revocationDate) {
      object.add("cancellation_date", std::string_view(iso8601Text(*entry.revocationDate)))
          .add("cancellation_reason", std::string_view(std::to_string(entry.revocationReason.value_or(0))));
    }
    purchases.push_back(object.build());
  }
  ObjectBuilder receipt;
  receipt.add("environment", std::string_view("sandbox"))
      .addIfPresent("bundle_id", bundleIdentifier)
      .add("receipt_creation_date", std::string_view(iso8601Text(ledger.clock)))
      .add("in_app", JsonValue(std::move(purchases)));
  return foundation::toJsonText(receipt.build(), {.prettyPrinted = true});
}

}  // namespace velquist::sandbox::detail
