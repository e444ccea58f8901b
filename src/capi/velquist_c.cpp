// The C interface: every entry point turns its C arguments into the library's values,
// runs under `guarded`, which turns any exception into a status code and the thread's
// last-error message, and hands results out as malloc'ed UTF-8 text.

#include "velquist/velquist.h"

#include <unicode/uloc.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <mutex>
#include <new>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include "velquist/adapty/paywall_document.h"
#include "velquist/foundation/decimal.h"
#include "velquist/foundation/json.h"
#include "velquist/foundation/locale.h"
#include "velquist/foundation/number_formatter.h"
#include "velquist/foundation/rounding_rule.h"
#include "velquist/platform/sk_error.h"
#include "velquist/platform/sk_payment_queue.h"
#include "velquist/platform/store_backend.h"
#include "velquist/sandbox/sandbox_store.h"
#include "velquist/storekit/formatting/period_format_style.h"
#include "velquist/storekit/paywall/paywall.h"
#include "velquist/storekit/paywall/paywall_json.h"
#include "velquist/storekit/paywall/paywall_loader.h"
#include "velquist/storekit/product/iso8601_period.h"
#include "velquist/storekit/product/product.h"
#include "velquist/storekit/product/product_from_store.h"
#include "velquist/storekit/product/product_json.h"
#include "velquist/storekit/store/product_request.h"
#include "velquist/storekit/transactions/payment_queue.h"
#include "velquist/storekit/transactions/transaction_queue.h"
#include "velquist/usersettings/user_settings_client.h"

namespace {

using velquist::foundation::Decimal;
using velquist::foundation::JsonValue;
using velquist::foundation::Locale;
using velquist::storekit::Product;
using Period = Product::SubscriptionPeriod;

thread_local std::string lastError;

// A refusal with the status it is reported with.
struct Failure : std::runtime_error {
  Failure(int status, const std::string& message) : std::runtime_error(message), status(status) {}
  int status;
};

[[noreturn]] void refuse(const std::string& message) { throw Failure(VELQUIST_ERROR_INVALID_ARGUMENT, message); }

// Runs one entry point's body: 0 and an empty last error when it returns, the failure's
// status and message (prefixed with the function's name) when it throws.
int guarded(const char* function, const std::function<void()>& body) {
  try {
    body();
    lastError.clear();
    return VELQUIST_OK;
  } catch (const Failure& failure) {
    lastError = std::string(function) + ": " + failure.what();
    return failure.status;
  } catch (const std::bad_alloc&) {
    lastError = std::string(function) + ": out of memory";
    return VELQUIST_ERROR_INTERNAL;
  } catch (const velquist::platform::SKError& error) {
    lastError = std::string(function) + ": the store failed: " + error.what();
    return VELQUIST_ERROR_STORE;
  } catch (const std::exception& error) {
    lastError = std::string(function) + ": " + error.what();
    return VELQUIST_ERROR_INTERNAL;
  } catch (...) {
    lastError = std::string(function) + ": unexpected failure";
    return VELQUIST_ERROR_INTERNAL;
  }
}

const char* required(const char* text, const char* name) {
  if (!text) refuse(std::string(name) + " is NULL");
  return text;
}

template <class T>
T** requiredOut(T** out, const char* name) {
  if (!out) refuse(std::string(name) + " is NULL");
  *out = nullptr;
  return out;
}

char* handOut(const std::string& text) {
  char* copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (!copy) throw std::bad_alloc();
  std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

Decimal amountNamed(const char* text, const char* name) {
  const std::string_view view = required(text, name);
  const auto amount = Decimal::fromString(view);
  // The whole text must be the number: "4.99" yes, "4.99$", "12,5" or "" no.
  if (!amount || amount->isNaN() || view.empty() || view.find_first_not_of("+-0123456789.eE") != std::string_view::npos) {
    refuse("'" + std::string(view) + "' is not a decimal amount such as 1234.567");
  }
  return *amount;
}

Period periodNamed(const char* text, const char* name) {
  const std::string_view view = required(text, name);
  const auto period = velquist::storekit::parseISO8601Period(view);
  // Longer than 10000 units is no subscription any store sells.
  if (!period || period->value <= 0 || period->value > 10000) {
    refuse("'" + std::string(view) + "' is not a period of one component such as P1W, P3M or P1Y");
  }
  return *period;
}

// A locale ICU knows the language (and region, when one is given) of.
Locale localeNamed(const char* text, const char* name) {
  const std::string identifier = required(text, name);
  const Locale locale(identifier);
  const auto language = locale.languageCode();
  const bool knownLanguage = language && uloc_getISO3Language(identifier.c_str())[0] != '\0';
  const bool knownRegion = !locale.regionCode() || uloc_getISO3Country(identifier.c_str())[0] != '\0';
  if (identifier.empty() || !knownLanguage || !knownRegion) refuse("unknown locale '" + identifier + "'");
  return locale;
}

// Calls whose words follow the current locale (period texts, the sandbox's products and
// paywall) make theirs current for the call, one at a time, and put the previous one back.
std::mutex localeMutex;

template <class Body>
auto inLocale(const std::optional<Locale>& locale, Body body) {
  std::lock_guard lock(localeMutex);
  if (!locale) return body();
  const Locale previous = Locale::current();
  Locale::setCurrent(*locale);
  struct Restore {
    const Locale& previous;
    ~Restore() { Locale::setCurrent(previous); }
  } restore{previous};
  return body();
}

std::optional<Locale> optionalLocale(const char* text, const char* name) {
  if (!text) return std::nullopt;
  return localeNamed(text, name);
}

std::vector<Period::Unit> unitsNamed(const char* text, const char* name) {
  std::vector<Period::Unit> units;
  if (!text) return units;
  std::stringstream list(text);
  for (std::string word; std::getline(list, word, ',');) {
    if (word == "day") units.push_back(Period::Unit::day);
    else if (word == "week") units.push_back(Period::Unit::week);
    else if (word == "month") units.push_back(Period::Unit::month);
    else if (word == "year") units.push_back(Period::Unit::year);
    else refuse(std::string(name) + ": unknown unit '" + word + "' (day, week, month or year)");
  }
  return units;
}

Product planNamed(const char* amount, const char* period, const char* amountName, const char* periodName) {
  const Decimal price = amountNamed(amount, amountName);
  std::optional<Product::SubscriptionInfo> subscription;
  if (std::string_view(required(period, periodName)) != "once") {
    subscription = Product::SubscriptionInfo{.subscriptionGroupID = "plans",
                                             .subscriptionPeriod = periodNamed(period, periodName)};
  }
  return Product(Product::ID(std::string(amount) + " " + period), "", "", price, Locale(), "", std::move(subscription));
}

// --- transactions as JSON ---------------------------------------------------------------

JsonValue optionalText(const std::optional<std::string>& text) { return text ? JsonValue(*text) : JsonValue(); }

std::string batchJson(const std::vector<velquist::storekit::Transaction>& batch) {
  JsonValue::Array records;
  for (const auto& record : batch) {
    const auto progress = record.transaction->progress();
    std::optional<std::string> originalID;
    if (const auto& original = record.transaction->originalTransaction()) originalID = original->transactionIdentifier();
    JsonValue::Object object{
        {"id", optionalText(progress.transactionIdentifier)},
        {"productID", JsonValue(record.transaction->payment().productIdentifier)},
        {"state", JsonValue(std::string(velquist::storekit::description(progress.state)))},
        {"originalID", optionalText(originalID)},
        {"isStartTrial", JsonValue(record.isStartTrial)},
    };
    if (progress.error) object.emplace_back("error", JsonValue(std::string(progress.error->what())));
    records.emplace_back(std::move(object));
  }
  return velquist::foundation::toJsonText(JsonValue(std::move(records)));
}

// Hands each batch a mechanism delivers to the host's callback (empty ones are counted but
// not handed on) and counts them, for velquist_observation_wait and for the gate.
class Delivery {
 public:
  Delivery(velquist_transactions_callback callback, void* context, std::size_t reportsBefore)
      : callback_(callback), context_(context), reportsBefore_(reportsBefore) {}

  void deliver(const std::vector<velquist::storekit::Transaction>& batch) {
    {
      std::lock_guard lock(mutex_);
      if (ended_) return;
      ++running_;
    }
    if (!batch.empty()) {
      const std::string json = batchJson(batch);
      callback_(json.c_str(), context_);
    }
    std::lock_guard lock(mutex_);
    --running_;
    ++handled_;
    if (!batch.empty()) ++delivered_;
    changed_.notify_all();
  }
  bool waitForDelivered(std::size_t batches, std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return delivered_ >= batches; });
  }
  // Until the mechanism has handled every batch the store reported so far (`reports` in
  // all), the observation ends, or the time is up.
  void waitForReports(std::size_t reports, std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, timeout, [&] { return ended_ || reportsBefore_ + handled_ >= reports; });
  }
  // No callback starts after this returns, and none is still running.
  void end() {
    std::unique_lock lock(mutex_);
    ended_ = true;
    changed_.notify_all();
    changed_.wait(lock, [&] { return running_ == 0; });
  }

 private:
  const velquist_transactions_callback callback_;
  void* const context_;
  const std::size_t reportsBefore_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t handled_ = 0;
  std::size_t delivered_ = 0;
  std::size_t running_ = 0;
  bool ended_ = false;
};

// What the sandbox's observers share: the transactions the store reported (so that the
// host can finish them by identifier), how many reports there were, and the deliveries of
// the observations following them.
class Followers {
 public:
  void reported(const velquist::platform::SKPaymentQueue::Transactions& transactions) {
    std::lock_guard lock(mutex_);
    seen_.insert(seen_.end(), transactions.begin(), transactions.end());
    ++reports_;
  }
  velquist::platform::SKPaymentQueue::Transactions seen() {
    std::lock_guard lock(mutex_);
    return seen_;
  }
  std::size_t reports() {
    std::lock_guard lock(mutex_);
    return reports_;
  }
  std::shared_ptr<Delivery> add(velquist_transactions_callback callback, void* context) {
    std::lock_guard lock(mutex_);
    deliveries_.push_back(std::make_shared<Delivery>(callback, context, reports_));
    return deliveries_.back();
  }
  void remove(const std::shared_ptr<Delivery>& delivery) {
    std::lock_guard lock(mutex_);
    std::erase(deliveries_, delivery);
  }
  std::vector<std::shared_ptr<Delivery>> deliveries() {
    std::lock_guard lock(mutex_);
    return deliveries_;
  }

 private:
  std::mutex mutex_;
  velquist::platform::SKPaymentQueue::Transactions seen_;
  std::size_t reports_ = 0;
  std::vector<std::shared_ptr<Delivery>> deliveries_;
};

// Registered before any mechanism: records each report.
class Watcher final : public velquist::platform::SKPaymentTransactionObserver {
 public:
  explicit Watcher(std::shared_ptr<Followers> followers) : followers_(std::move(followers)) {}
  void updatedTransactions(velquist::platform::SKPaymentQueue&,
                           const velquist::platform::SKPaymentQueue::Transactions& transactions) override {
    followers_->reported(transactions);
  }

 private:
  const std::shared_ptr<Followers> followers_;
};

// Registered after every mechanism: holds the store's report queue until each mechanism
// has handled the batch, so that a mechanism sees every transaction in the state it was
// reported in (not, say, a purchase twice as purchased). A mechanism that hands nothing on
// within five seconds is not waited for any longer.
class Gate final : public velquist::platform::SKPaymentTransactionObserver {
 public:
  explicit Gate(std::shared_ptr<Followers> followers) : followers_(std::move(followers)) {}
  void updatedTransactions(velquist::platform::SKPaymentQueue&,
                           const velquist::platform::SKPaymentQueue::Transactions&) override {
    const std::size_t reports = followers_->reports();
    for (const auto& delivery : followers_->deliveries()) delivery->waitForReports(reports, std::chrono::seconds(5));
  }

 private:
  const std::shared_ptr<Followers> followers_;
};

class CallbackListener final : public velquist::storekit::TransactionQueueListener {
 public:
  explicit CallbackListener(std::shared_ptr<Delivery> delivery) : delivery_(std::move(delivery)) {}
  void updated(const std::vector<velquist::storekit::Transaction>& transactions) override {
    delivery_->deliver(transactions);
  }

 private:
  const std::shared_ptr<Delivery> delivery_;
};

// The open sandbox; one at a time.
std::mutex sandboxMutex;
velquist_sandbox* openSandbox = nullptr;

}  // namespace

struct velquist_observation {
  std::shared_ptr<Followers> followers;
  std::shared_ptr<Delivery> delivery;
  std::shared_ptr<CallbackListener> listener;  // the listener mechanism
  std::jthread reader;                         // the stream mechanism
  bool stopped = false;

  // Ends the following; no callback runs after it returns. Done once, by
  // velquist_sandbox_close or velquist_observation_end, whichever comes first.
  void stop() {
    if (stopped) return;
    stopped = true;
    followers->remove(delivery);
    delivery->end();
    if (listener) velquist::storekit::TransactionQueue::live()->remove(listener);
    if (reader.joinable()) {
      reader.request_stop();
      reader.join();
    }
  }
  ~velquist_observation() { stop(); }
};

struct velquist_sandbox {
  std::shared_ptr<velquist::sandbox::SandboxStore> store;
  std::shared_ptr<Followers> followers = std::make_shared<Followers>();
  std::shared_ptr<Watcher> watcher = std::make_shared<Watcher>(followers);
  std::shared_ptr<Gate> gate = std::make_shared<Gate>(followers);
  std::optional<std::filesystem::path> scratch;  // removed on close
  Locale language;
  std::mutex mutex;
  std::vector<velquist_observation*> observations;
};

namespace {

velquist_sandbox& requiredSandbox(velquist_sandbox* sandbox) {
  if (!sandbox) refuse("sandbox is NULL");
  return *sandbox;
}

std::filesystem::path makeScratchFolder() {
  std::random_device random;
  const auto path = std::filesystem::temp_directory_path() /
                    ("velquist-sandbox-" + std::to_string(random()) + "-" + std::to_string(random()));
  std::filesystem::create_directories(path);
  return path;
}

}  // namespace

extern "C" {

const char* velquist_last_error(void) { return lastError.c_str(); }

void velquist_string_free(char* text) { std::free(text); }

int velquist_display_price(const char* amount, const char* locale_id, const char* rounding_rule, char** out_text) {
  return guarded("velquist_display_price", [&] {
    requiredOut(out_text, "out_text");
    const Decimal price = amountNamed(amount, "amount");
    const Locale locale = localeNamed(locale_id, "locale_id");
    const std::string ruleName = rounding_rule ? rounding_rule : "down";
    const auto rule = velquist::foundation::roundingRuleNamed(ruleName);
    if (!rule) refuse("unknown rounding rule '" + ruleName + "'");
    const auto text = velquist::storekit::displayPrice(price, locale, *rule);
    if (!text) throw Failure(VELQUIST_ERROR_INVALID_ARGUMENT, "no currency text for " + price.description() + " in " + locale_id);
    *out_text = handOut(*text);
  });
}

int velquist_convert_price(const char* amount, const char* from_period, const char* to_period, char** out_amount) {
  return guarded("velquist_convert_price", [&] {
    requiredOut(out_amount, "out_amount");
    const Decimal price = amountNamed(amount, "amount");
    const Period from = periodNamed(from_period, "from_period");
    const Period to = periodNamed(to_period, "to_period");
    *out_amount = handOut(from.convertPrice(price, to).description());
  });
}

int velquist_discount(const char* amount, const char* period, const char* other_amount, const char* other_period,
                      const char* locale_id, char** out_fraction, char** out_percent_text) {
  return guarded("velquist_discount", [&] {
    if (out_fraction) *out_fraction = nullptr;
    if (out_percent_text) *out_percent_text = nullptr;
    const Product first = planNamed(amount, period, "amount", "period");
    const Product second = planNamed(other_amount, other_period, "other_amount", "other_period");
    const auto locale = optionalLocale(locale_id, "locale_id");
    const auto fraction = first.discount(second);
    // The library's shared percent formatter keeps the locale it was made in; a locale asked
    // for by name gets a formatter of its own.
    std::optional<std::string> percent;
    if (locale && fraction) {
      velquist::foundation::NumberFormatter formatter;
      formatter.setNumberStyle(velquist::foundation::NumberFormatter::Style::percent);
      formatter.setLocale(*locale);
      percent = formatter.string(*fraction);
    } else {
      percent = first.displayDiscount(second);
    }
    if (!fraction || !percent) throw Failure(VELQUIST_ERROR_INVALID_ARGUMENT, "these plans have no discount");
    char* fractionText = out_fraction ? handOut(fraction->description()) : nullptr;
    try {
      if (out_percent_text) *out_percent_text = handOut(*percent);
    } catch (...) {
      std::free(fractionText);
      throw;
    }
    if (out_fraction) *out_fraction = fractionText;
  });
}

int velquist_period_text(const char* period, const char* locale_id, const velquist_period_format_options* options,
                         char** out_text) {
  return guarded("velquist_period_text", [&] {
    requiredOut(out_text, "out_text");
    const Period value = periodNamed(period, "period");
    const auto locale = optionalLocale(locale_id, "locale_id");
    using velquist::storekit::formatting::UnitStyle;
    using velquist::storekit::formatting::ValueDisplayStrategy;
    Period::FormatStyle style;
    if (options) {
      if (options->unit_style) {
        const std::string_view name = options->unit_style;
        if (name == "complete") style = style.unitStyle(UnitStyle::complete);
        else if (name == "shortened") style = style.unitStyle(UnitStyle::shortened);
        else if (name == "recurrent") style = style.unitStyle(UnitStyle::recurrent);
        else refuse("unknown unit style '" + std::string(name) + "' (complete, shortened or recurrent)");
      }
      style = style.unitsCollapsed(unitsNamed(options->units_collapsed, "units_collapsed"))
                  .unitsExpanded(unitsNamed(options->units_expanded, "units_expanded"))
                  .valueDisplayStrategy(options->always_show_value ? ValueDisplayStrategy::always
                                                                   : ValueDisplayStrategy::automatic);
    }
    *out_text = handOut(inLocale(locale, [&] { return style.format(value); }));
  });
}

int velquist_sandbox_open(const char* storekit_path, const char* state_dir, velquist_sandbox** out) {
  return guarded("velquist_sandbox_open", [&] {
    requiredOut(out, "out");
    const std::filesystem::path configuration = required(storekit_path, "storekit_path");
    std::lock_guard lock(sandboxMutex);
    if (openSandbox) throw Failure(VELQUIST_ERROR_STATE, "a sandbox is already open; close it first");
    auto sandbox = std::make_unique<velquist_sandbox>();
    std::filesystem::path state;
    if (state_dir) {
      state = state_dir;
    } else {
      sandbox->scratch = makeScratchFolder();
      state = *sandbox->scratch;
    }
    try {
      sandbox->store = velquist::sandbox::SandboxStore::open(
          configuration, {.stateDirectory = state, .publishesReceipt = false});
    } catch (const std::exception& error) {
      if (sandbox->scratch) std::filesystem::remove_all(*sandbox->scratch);
      throw Failure(VELQUIST_ERROR_FILE, error.what());
    }
    sandbox->language = Locale(sandbox->store->configuration().settings.locale.value_or("en_US"));
    velquist::platform::SKPaymentQueue::defaultQueue().addTransactionObserver(sandbox->watcher);
    velquist::platform::setDefaultStoreBackend(sandbox->store);
    openSandbox = sandbox.get();
    *out = sandbox.release();
  });
}

void velquist_sandbox_close(velquist_sandbox* sandbox) {
  if (!sandbox) return;
  try {
    std::vector<velquist_observation*> observations;
    {
      std::lock_guard lock(sandbox->mutex);
      observations.swap(sandbox->observations);
    }
    for (auto* observation : observations) observation->stop();
    sandbox->store->waitUntilIdle();
    velquist::platform::SKPaymentQueue::defaultQueue().removeTransactionObserver(sandbox->gate);
    velquist::platform::SKPaymentQueue::defaultQueue().removeTransactionObserver(sandbox->watcher);
    {
      std::lock_guard lock(sandboxMutex);
      velquist::platform::setDefaultStoreBackend(nullptr);
      if (openSandbox == sandbox) openSandbox = nullptr;
    }
    const auto scratch = sandbox->scratch;
    delete sandbox;
    std::error_code ignored;
    if (scratch) std::filesystem::remove_all(*scratch, ignored);
  } catch (...) {
    // Closing cannot report; what could not be released stays with the process.
  }
}

int velquist_products_json(velquist_sandbox* sandbox, const char* const* product_ids, size_t count, char** out_json) {
  return guarded("velquist_products_json", [&] {
    requiredOut(out_json, "out_json");
    velquist_sandbox& open = requiredSandbox(sandbox);
    if (!product_ids && count > 0) refuse("product_ids is NULL");
    std::vector<std::string> asked;
    if (count == 0 && !product_ids) {
      asked = open.store->productIdentifiers();
    } else {
      for (size_t index = 0; index < count; ++index) {
        if (!product_ids[index]) refuse("product_ids[" + std::to_string(index) + "] is NULL");
        asked.emplace_back(product_ids[index]);
      }
    }
    const auto storeProducts = velquist::storekit::products(std::unordered_set<std::string>(asked.begin(), asked.end()));
    JsonValue::Array products;
    std::unordered_set<std::string> listed;
    for (const auto& identifier : asked) {
      if (!listed.insert(identifier).second) continue;
      for (const auto& storeProduct : storeProducts) {
        if (storeProduct.productIdentifier != identifier) continue;
        const Product product = inLocale(open.language, [&] { return velquist::storekit::makeProduct(storeProduct); });
        products.push_back(velquist::storekit::productJson(product));
        break;
      }
    }
    *out_json = handOut(velquist::foundation::toJsonText(JsonValue(std::move(products))));
  });
}

int velquist_paywall_json(velquist_sandbox* sandbox, const char* paywall_path, char** out_json) {
  return guarded("velquist_paywall_json", [&] {
    requiredOut(out_json, "out_json");
    velquist_sandbox& open = requiredSandbox(sandbox);
    const std::string path = required(paywall_path, "paywall_path");
    velquist::adapty::AdaptyPaywallDocument document;
    try {
      document = velquist::adapty::loadPaywallDocument(path);
    } catch (const velquist::adapty::PaywallDocumentError& error) {
      throw Failure(VELQUIST_ERROR_FILE, error.what());
    }
    const auto loaded = velquist::storekit::loadPaywall(document);
    const std::string json = inLocale(open.language, [&] {
      const velquist::storekit::Paywall paywall(loaded.paywall, loaded.products);
      return velquist::foundation::toJsonText(velquist::storekit::paywallJson(paywall, loaded));
    });
    *out_json = handOut(json);
  });
}

int velquist_follow_transactions(velquist_sandbox* sandbox, const char* mechanism,
                                 velquist_transactions_callback callback, void* context, velquist_observation** out) {
  return guarded("velquist_follow_transactions", [&] {
    requiredOut(out, "out");
    velquist_sandbox& open = requiredSandbox(sandbox);
    const std::string_view name = required(mechanism, "mechanism");
    if (!callback) refuse("callback is NULL");
    if (name != "listener" && name != "stream") refuse("unknown mechanism '" + std::string(name) + "' (listener or stream)");
    auto observation = std::make_unique<velquist_observation>();
    observation->followers = open.followers;
    observation->delivery = open.followers->add(callback, context);
    if (name == "listener") {
      observation->listener = std::make_shared<CallbackListener>(observation->delivery);
      velquist::storekit::TransactionQueue::live()->add(observation->listener);
    } else {
      auto updates = velquist::storekit::PaymentQueue(velquist::usersettings::UserSettingsClient::live()).updates();
      observation->reader = std::jthread([delivery = observation->delivery, updates = std::move(updates)](
                                             std::stop_token stop) mutable {
        while (auto batch = updates.next(stop)) delivery->deliver(*batch);
      });
    }
    // The gate goes last again, behind the mechanism just added.
    auto& queue = velquist::platform::SKPaymentQueue::defaultQueue();
    queue.removeTransactionObserver(open.gate);
    queue.addTransactionObserver(open.gate);
    std::lock_guard lock(open.mutex);
    open.observations.push_back(observation.get());
    *out = observation.release();
  });
}

int velquist_observation_wait(velquist_observation* observation, size_t batches, int timeout_ms) {
  return guarded("velquist_observation_wait", [&] {
    if (!observation) refuse("observation is NULL");
    if (timeout_ms < 0) refuse("timeout_ms is negative");
    if (!observation->delivery->waitForDelivered(batches, std::chrono::milliseconds(timeout_ms))) {
      throw Failure(VELQUIST_ERROR_STATE, "fewer than " + std::to_string(batches) + " batches within " +
                                              std::to_string(timeout_ms) + " ms");
    }
  });
}

void velquist_observation_end(velquist_observation* observation) {
  if (!observation) return;
  try {
    {
      std::lock_guard lock(sandboxMutex);
      if (openSandbox) {
        std::lock_guard observationsLock(openSandbox->mutex);
        std::erase(openSandbox->observations, observation);
      }
    }
    delete observation;
  } catch (...) {
    // Ending cannot report; the observation stays with the process.
  }
}

int velquist_buy(velquist_sandbox* sandbox, const char* product_id, const char* offer_id) {
  return guarded("velquist_buy", [&] {
    requiredSandbox(sandbox);
    velquist::platform::SKPayment payment{.productIdentifier = required(product_id, "product_id")};
    if (payment.productIdentifier.empty()) refuse("product_id is empty");
    // The sandbox checks that a promotional offer is signed, not by whom.
    if (offer_id) {
      payment.paymentDiscount = velquist::platform::SKPaymentDiscount{
          .identifier = offer_id, .keyIdentifier = "velquist-c", .nonce = "velquist-c", .signature = "velquist-c"};
    }
    velquist::platform::SKPaymentQueue::defaultQueue().add(payment);
  });
}

int velquist_finish(velquist_sandbox* sandbox, const char* transaction_id) {
  return guarded("velquist_finish", [&] {
    velquist_sandbox& open = requiredSandbox(sandbox);
    bool found = false;
    for (const auto& transaction : open.followers->seen()) {
      const auto identifier = transaction->progress().transactionIdentifier;
      if (transaction_id && identifier != std::optional<std::string>(transaction_id)) continue;
      velquist::platform::SKPaymentQueue::defaultQueue().finishTransaction(transaction);
      found = true;
    }
    if (transaction_id && !found) refuse("no transaction '" + std::string(transaction_id) + "' was seen");
  });
}

int velquist_restore(velquist_sandbox* sandbox) {
  return guarded("velquist_restore", [&] {
    requiredSandbox(sandbox);
    velquist::platform::SKPaymentQueue::defaultQueue().restoreCompletedTransactions();
  });
}

int velquist_sandbox_wait_until_idle(velquist_sandbox* sandbox) {
  return guarded("velquist_sandbox_wait_until_idle", [&] { requiredSandbox(sandbox).store->waitUntilIdle(); });
}

}  // extern "C"
