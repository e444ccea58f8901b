#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <ostream>
#include <sstream>
#include <thread>
#include <unordered_set>
#include <variant>

#include "command.h"
#include "velquist/logging/logger.h"
#include "velquist/platform/sk_payment_queue.h"
#include "velquist/sandbox/sandbox_store.h"
#include "velquist/storekit/product/iso8601_period.h"
#include "velquist/storekit/product/product_from_store.h"
#include "velquist/storekit/transactions/payment_queue.h"
#include "velquist/storekit/transactions/transaction_queue.h"
#include "velquist/usersettings/user_settings_client.h"

namespace velquist::vsk {
namespace {

using namespace std::chrono_literals;
using platform::SKPaymentQueue;
using platform::SKPaymentTransaction;

constexpr auto kCatchUpTimeout = std::chrono::seconds(5);

// "com.example.pro purchased #3 of #1"
std::string describe(const SKPaymentTransaction& transaction) {
  const auto progress = transaction.progress();
  std::string text = transaction.payment().productIdentifier + " " + std::string(storekit::description(progress.state));
  if (progress.transactionIdentifier) text += " #" + *progress.transactionIdentifier;
  if (const auto& original = transaction.originalTransaction()) {
    text += " of #" + original->transactionIdentifier().value_or("?");
  }
  if (progress.error) text += " (" + std::string(progress.error->what()) + ")";
  return text;
}

// What a step printed, gathered in order from the threads that report it.
class Output {
 public:
  void add(std::string line) {
    std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
  }
  bool empty() {
    std::lock_guard lock(mutex_);
    return lines_.empty();
  }
  void flush(std::ostream& out) {
    std::lock_guard lock(mutex_);
    for (const auto& line : lines_) out << line << "\n";
    lines_.clear();
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

// Counts the batches the store reported and the mechanism handed on, so that the store
// can wait for the mechanism after each report.
class Progress {
 public:
  void storeReported() { bump(storeBatches_); }
  void mechanismDelivered() { bump(delivered_); }
  /// False when the mechanism has not caught up within the time allowed (it drops a batch
  /// whose products request failed, for one).
  bool waitUntilCaughtUp(std::chrono::seconds timeout = kCatchUpTimeout) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return delivered_ >= storeBatches_; });
  }

 private:
  void bump(std::size_t& counter) {
    std::lock_guard lock(mutex_);
    ++counter;
    changed_.notify_all();
  }
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t storeBatches_ = 0;
  std::size_t delivered_ = 0;
};

// The sandbox store as the mechanism sees it, with one addition: the listener-based queue
// drops a batch whose products request failed without a word, so for it a failed answer
// counts as the batch handed on.
class WatchedStore final : public platform::StoreBackend {
 public:
  WatchedStore(std::shared_ptr<sandbox::SandboxStore> store, Progress& progress, bool failedAnswersEndBatches)
      : store_(std::move(store)), progress_(progress), failedAnswersEndBatches_(failedAnswersEndBatches) {}

  void startProductsRequest(std::uint64_t requestID, const std::unordered_set<std::string>& identifiers,
                            ProductsCompletion completion) override {
    store_->startProductsRequest(
        requestID, identifiers,
        [this, completion = std::move(completion)](std::variant<platform::SKProductsResponse, platform::SKError> answer) {
          const bool failed = std::holds_alternative<platform::SKError>(answer);
          completion(std::move(answer));
          if (failed && failedAnswersEndBatches_) progress_.mechanismDelivered();
        });
  }
  void cancelProductsRequest(std::uint64_t requestID) override { store_->cancelProductsRequest(requestID); }
  void addPayment(const platform::SKPayment& payment) override { store_->addPayment(payment); }
  void finishTransaction(const std::shared_ptr<SKPaymentTransaction>& transaction) override {
    store_->finishTransaction(transaction);
  }
  void restoreCompletedTransactions(const std::optional<std::string>& username) override {
    store_->restoreCompletedTransactions(username);
  }
  std::optional<platform::SKStorefront> storefront() const override { return store_->storefront(); }
  void transactionObserverAdded() override { store_->transactionObserverAdded(); }
  void showPriceConsentIfNeeded() override { store_->showPriceConsentIfNeeded(); }

 private:
  const std::shared_ptr<sandbox::SandboxStore> store_;
  Progress& progress_;
  const bool failedAnswersEndBatches_;
};

// Watches the payment queue as the app would: prints each store report and keeps every
// transaction, for `finish all`. Registered before the mechanism.
class StoreWatcher final : public platform::SKPaymentTransactionObserver {
 public:
  StoreWatcher(Output& output, Progress& progress) : output_(output), progress_(progress) {}
  void updatedTransactions(SKPaymentQueue&, const SKPaymentQueue::Transactions& transactions) override {
    {
      std::lock_guard lock(mutex_);
      seen_.insert(seen_.end(), transactions.begin(), transactions.end());
    }
    for (const auto& transaction : transactions) output_.add("  store: " + describe(*transaction));
    progress_.storeReported();
  }
  void removedTransactions(SKPaymentQueue&, const SKPaymentQueue::Transactions& transactions) override {
    for (const auto& transaction : transactions) output_.add("  finished: " + describe(*transaction));
  }
  void restoreCompletedTransactionsFinished(SKPaymentQueue&) override { output_.add("  store: restore finished"); }
  void didRevokeEntitlementsForProductIdentifiers(SKPaymentQueue&, const std::vector<std::string>& products) override {
    for (const auto& product : products) output_.add("  store: revoked " + product);
  }
  void restoreCompletedTransactionsFailed(SKPaymentQueue&, const platform::SKError& error) override {
    output_.add(std::string("  store: restore failed (") + error.what() + ")");
  }
  SKPaymentQueue::Transactions seen() {
    std::lock_guard lock(mutex_);
    return seen_;
  }

 private:
  Output& output_;
  Progress& progress_;
  std::mutex mutex_;
  SKPaymentQueue::Transactions seen_;
};

// Registered after the mechanism, it holds the store's report queue until the mechanism has
// handed the batch on: the store stands still meanwhile, so the mechanism sees each
// transaction in the state it was reported in, and the output reads batch by batch.
class Gate final : public platform::SKPaymentTransactionObserver {
 public:
  Gate(Output& output, Progress& progress) : output_(output), progress_(progress) {}
  void updatedTransactions(SKPaymentQueue&, const SKPaymentQueue::Transactions&) override {
    if (!progress_.waitUntilCaughtUp()) output_.add("  (the mechanism handed nothing on for this batch)");
  }

 private:
  Output& output_;
  Progress& progress_;
};

std::string describe(const std::vector<storekit::Transaction>& batch) {
  if (batch.empty()) return "(nothing)";
  std::string text;
  for (const auto& record : batch) {
    if (!text.empty()) text += ", ";
    text += describe(*record.transaction);
    if (record.isStartTrial) text += " [start trial]";
  }
  return text;
}

class PrintingListener final : public storekit::TransactionQueueListener {
 public:
  PrintingListener(Output& output, Progress& progress) : output_(output), progress_(progress) {}
  void updated(const std::vector<storekit::Transaction>& transactions) override {
    output_.add("  listener: " + describe(transactions));
    progress_.mechanismDelivered();
  }

 private:
  Output& output_;
  Progress& progress_;
};

// The app's payment queue delegate: whether a price consent sheet may show now, as the
// `consent-sheet` step last said (shown by default, as without a delegate).
class ConsentSheetDelegate final : public platform::SKPaymentQueueDelegate {
 public:
  bool shouldShowPriceConsent(SKPaymentQueue&) override { return shows.load(); }

  std::atomic<bool> shows{true};
};

// A price as a step writes it: digits with an optional fraction, "5.99".
std::optional<foundation::Decimal> priceNamed(const std::string& text) {
  const auto point = text.find('.');
  const auto digits = [](std::string_view part) {
    return !part.empty() && std::ranges::all_of(part, [](char c) { return c >= '0' && c <= '9'; });
  };
  if (!digits(std::string_view(text).substr(0, point))) return std::nullopt;
  if (point != std::string::npos && !digits(std::string_view(text).substr(point + 1))) return std::nullopt;
  return foundation::Decimal::fromString(text);
}

// A mistake in the scenario file, named by file and line; the run stops before it starts.
[[noreturn]] void scenarioError(const std::string& file, std::size_t line, const std::string& reason) {
  throw UsageError(file + ":" + std::to_string(line) + ": " + reason);
}

struct Step {
  std::size_t line = 0;
  std::vector<std::string> words;

  const std::string& verb() const { return words.front(); }
};

std::optional<sandbox::Period> durationNamed(const std::string& text) {
  const auto period = storekit::parseISO8601Period(text);
  if (!period || period->value <= 0 || period->value > 1000) return std::nullopt;
  using Unit = sandbox::Period::Unit;
  constexpr Unit units[] = {Unit::day, Unit::week, Unit::month, Unit::year};
  return sandbox::Period{
      .iso8601 = text, .unit = units[static_cast<int>(period->unit)], .count = static_cast<std::int32_t>(period->value)};
}

// Whether a step is well formed: a known verb with the arguments it takes.
bool isWellFormed(const Step& step) {
  const auto& w = step.words;
  const std::string& verb = step.verb();
  if (verb == "buy") return w.size() == 2 || (w.size() == 4 && w[2] == "offer");
  if (verb == "renew") return w.size() == 2;
  if (verb == "advance") return w.size() == 2 && durationNamed(w[1]);
  if (verb == "fail" || verb == "ask-to-buy" || verb == "load-fail" || verb == "billing-retry" ||
      verb == "grace-period" || verb == "interrupt") {
    return w.size() == 2 && (w[1] == "on" || w[1] == "off");
  }
  if (verb == "cancel" || verb == "resume" || verb == "refund" || verb == "status" || verb == "buy-outside") {
    return w.size() == 2;
  }
  if (verb == "redeem") return w.size() >= 3;
  if (verb == "price-increase") return w.size() == 3 && priceNamed(w[2]);
  if (verb == "consent") return w.size() == 3 && (w[2] == "agree" || w[2] == "decline");
  if (verb == "consent-sheet") return w.size() == 2 && (w[1] == "show" || w[1] == "defer");
  if (verb == "show-price-consent") return w.size() == 1;
  if (verb == "approve" || verb == "decline" || verb == "restore" || verb == "resolve-interrupted") return w.size() == 1;
  if (verb == "finish") return w.size() == 2 && w[1] == "all";
  return false;
}

// The steps of a scenario file: one per line, words split at blanks, '#' starting a comment.
// Every step is checked before any is played.
std::vector<Step> readScenario(const std::string& file) {
  std::istringstream text(readFile(file));
  std::vector<Step> steps;
  std::size_t number = 0;
  for (std::string line; std::getline(text, line);) {
    ++number;
    std::istringstream words(line.substr(0, line.find('#')));
    Step step{.line = number};
    for (std::string word; words >> word;) step.words.push_back(word);
    if (step.words.empty()) continue;
    if (!isWellFormed(step)) scenarioError(file, number, "cannot read the step '" + line + "' (see vsk simulate --help)");
    steps.push_back(std::move(step));
  }
  return steps;
}

// "2026-02-01T00:00:00Z"
std::string dateText(std::chrono::system_clock::time_point date) {
  const std::time_t time = std::chrono::system_clock::to_time_t(date);
  std::tm parts{};
  gmtime_r(&time, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

// "2026-01-01" as midnight UTC that day.
std::optional<std::chrono::system_clock::time_point> dayNamed(const std::string& text) {
  int year = 0;
  unsigned month = 0, day = 0;
  int consumed = 0;
  if (std::sscanf(text.c_str(), "%4d-%2u-%2u%n", &year, &month, &day, &consumed) != 3 ||
      static_cast<std::size_t>(consumed) != text.size()) {
    return std::nullopt;
  }
  const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month), std::chrono::day(day)};
  if (!date.ok() || year < 1970) return std::nullopt;
  return std::chrono::sys_days(date);
}

// Plays one well-formed step. Throws std::invalid_argument when the store cannot do it now
// (nothing to approve, no active subscription to renew).
void play(const Step& step, sandbox::SandboxStore& store, StoreWatcher& watcher, ConsentSheetDelegate& consentSheet,
          Output& output) {
  const auto& w = step.words;
  const std::string& verb = step.verb();
  SKPaymentQueue& queue = SKPaymentQueue::defaultQueue();
  if (verb == "buy") {
    platform::SKPayment payment{.productIdentifier = w[1]};
    // The sandbox checks that a promotional offer is signed, not by whom.
    if (w.size() == 4) {
      payment.paymentDiscount =
          platform::SKPaymentDiscount{.identifier = w[3], .keyIdentifier = "vsk", .nonce = "vsk", .signature = "vsk"};
    }
    queue.add(payment);
  } else if (verb == "renew") {
    store.forceRenewal(w[1]);
  } else if (verb == "advance") {
    store.advanceClock(*durationNamed(w[1]));
  } else if (verb == "fail") {
    store.setFailTransactionsEnabled(w[1] == "on");
  } else if (verb == "ask-to-buy") {
    store.setAskToBuyEnabled(w[1] == "on");
  } else if (verb == "load-fail") {
    std::optional<platform::SKError> failure;
    if (w[1] == "on") failure = platform::SKError(platform::SKError::Code::cloudServiceNetworkConnectionFailed, "offline");
    store.setProductsRequestFailure(failure);
  } else if (verb == "approve" || verb == "decline") {
    const auto deferred = store.deferredTransactions();
    if (deferred.empty()) throw std::invalid_argument("no purchase waits for approval");
    if (verb == "approve") {
      store.approveAskToBuyTransaction(deferred.front().identifier);
    } else {
      store.declineAskToBuyTransaction(deferred.front().identifier);
    }
  } else if (verb == "billing-retry") {
    store.setRenewalBillingIssuesEnabled(w[1] == "on");
  } else if (verb == "grace-period") {
    store.setBillingGracePeriodEnabled(w[1] == "on");
  } else if (verb == "interrupt") {
    store.setInterruptedPurchasesEnabled(w[1] == "on");
  } else if (verb == "resolve-interrupted") {
    store.resolveInterruptedPurchase();
  } else if (verb == "buy-outside") {
    store.purchaseOutsideApp(w[1]);
  } else if (verb == "cancel") {
    store.cancelAutoRenew(w[1]);
  } else if (verb == "resume") {
    store.resumeAutoRenew(w[1]);
  } else if (verb == "refund") {
    store.refund(w[1]);
  } else if (verb == "redeem") {
    // A reference name may have blanks: the offer is the rest of the line.
    std::string offer = w[2];
    for (std::size_t index = 3; index < w.size(); ++index) offer += " " + w[index];
    if (const auto refusal = store.redeemOfferCode(w[1], offer)) {
      output.add("  store: " + w[1] + " not eligible for " + offer + ": " + *refusal);
    }
  } else if (verb == "price-increase" || verb == "show-price-consent") {
    const auto waiting = store.pendingPriceConsents();
    if (verb == "price-increase") {
      store.requestPriceIncrease(w[1], *priceNamed(w[2]));
    } else {
      queue.showPriceConsentIfNeeded();
    }
    // A line for each sheet shown by this step.
    for (const auto& consent : store.pendingPriceConsents()) {
      if (!consent.shown || std::ranges::find(waiting, consent) != waiting.end()) continue;
      output.add("  store: price consent shown for " + consent.productIdentifier + " (" +
                 storekit::recordDisplayPrice(consent.newPrice, store.priceLocale()) + ")");
    }
  } else if (verb == "consent") {
    store.respondToPriceIncrease(w[1], w[2] == "agree");
  } else if (verb == "consent-sheet") {
    consentSheet.shows = w[1] == "show";
  } else if (verb == "status") {
    const auto status = store.subscriptionStatus(w[1]);
    // The product the customer holds in the group, which may be another than the one named.
    std::string line = "  status: " + status.productIdentifier.value_or(w[1]) + " " + std::string(sandbox::name(status.state));
    if (status.expiresDate) line += " expires " + dateText(*status.expiresDate);
    output.add(std::move(line));
  } else if (verb == "restore") {
    queue.restoreCompletedTransactions();
  } else if (verb == "finish") {
    for (const auto& transaction : watcher.seen()) queue.finishTransaction(transaction);
  }
}

}  // namespace

Command simulateCommand() {
  return {
      .name = "simulate",
      .usage = "simulate <file.storekit> <scenario> [--state <dir>] [--clock <YYYY-MM-DD>] [--mechanism listener|stream] "
               "[--verbose]",
      .summary = "plays a purchase scenario through the sandbox store and a transaction mechanism",
      .details = "Opens the sandbox store over the catalogue and follows its transactions with the\n"
                 "listener-based transaction queue (--mechanism listener, the default) or the\n"
                 "stream-based payment queue (stream), then plays the scenario one step at a time. For\n"
                 "each step it prints what the store reported, the mechanism's log lines (how each\n"
                 "transaction was classified) and what the listener or stream received.\n"
                 "\n"
                 "Scenario steps, one per line ('#' starts a comment):\n"
                 "  buy <product>                     buy a product\n"
                 "  buy <product> offer <offer id>    buy with a promotional offer\n"
                 "  renew <product>                   renew an active subscription now\n"
                 "  advance <ISO-8601 duration>       move the store's clock on (P3D, P1W, P1M, P1Y)\n"
                 "  fail on|off                       fail every payment, or stop doing so\n"
                 "  ask-to-buy on|off                 defer every payment for approval\n"
                 "  load-fail on|off                  fail every products request, or stop doing so\n"
                 "  approve | decline                 answer the oldest purchase waiting for approval\n"
                 "  restore                           restore completed transactions\n"
                 "  finish all                        finish every transaction seen so far\n"
                 "  billing-retry on|off              renewals fail to bill (on), or the customer fixes the\n"
                 "                                    payment and what is due is charged at once (off)\n"
                 "  grace-period on|off               a renewal that fails to bill starts with a grace period\n"
                 "  cancel <product>                  turn auto-renew off: the subscription runs out\n"
                 "  resume <product>                  turn auto-renew back on before the period ends\n"
                 "  refund <product>                  refund its latest purchase: the entitlement is revoked\n"
                 "  redeem <product> <offer>          redeem a code offer (reference name, blanks allowed,\n"
                 "                                    or internal id)\n"
                 "  interrupt on|off                  purchases fail as interrupted until resolved\n"
                 "  resolve-interrupted               complete the oldest interrupted purchase\n"
                 "  buy-outside <product>             a purchase made outside the app, reported purchased\n"
                 "  status <product>                  print the state of the subscription held in the\n"
                 "                                    product's group, naming the product held\n"
                 "  price-increase <product> <price>  raise the price of the subscription held (5.99):\n"
                 "                                    the customer is asked to consent\n"
                 "  consent <product> agree|decline   answer the consent sheet shown: agreeing charges the\n"
                 "                                    new price from the next renewal, declining (or no\n"
                 "                                    answer by then) lets the subscription run out\n"
                 "  consent-sheet show|defer          what the app's payment queue delegate answers when\n"
                 "                                    the store would show a consent sheet (default show)\n"
                 "  show-price-consent                show the consent sheets the delegate deferred\n"
                 "\n"
                 "Buying another subscription of the group one holds follows the group's levels: a higher\n"
                 "level (or the same level and period) at once, a lower one (or another period) at the\n"
                 "next renewal. Lines the store adds: 'store: revoked <product>' when a refund ends an\n"
                 "entitlement, 'store: <product> not eligible for <offer>: <why>' when a code is refused,\n"
                 "'store: price consent shown for <product> (<new price>)' when a consent sheet shows,\n"
                 "'status: <product> <state> [expires <date>]' with state subscribed, expired,\n"
                 "inBillingRetryPeriod, inGracePeriod, revoked or not subscribed.\n"
                 "\n"
                 "Log lines that carry a dump of the record are cut to their first line unless --verbose.\n"
                 "--state keeps the store's ledger and the remembered first purchases in a folder, so\n"
                 "a second run with the same folder goes on where the first stopped (default: a\n"
                 "folder of the run's own, removed afterwards). --clock starts a new ledger's clock at\n"
                 "midnight UTC of that day, so the dates a run prints repeat (default: now).\n",
      .run = [](std::span<const std::string> arguments, std::ostream& out, std::ostream& err) -> int {
        return reportingUsageErrors("simulate", err, [&] {
          const ParsedArguments parsed = parseArguments(arguments, {"state", "mechanism", "clock"}, {"verbose"});
          if (parsed.positional.size() != 2) throw UsageError("expected a .storekit file and a scenario file");
          const std::string mechanism = parsed.option("mechanism").value_or("listener");
          if (mechanism != "listener" && mechanism != "stream") {
            throw UsageError("unknown mechanism '" + mechanism + "' (listener or stream)");
          }
          std::optional<std::chrono::system_clock::time_point> clockStart;
          if (const auto clock = parsed.option("clock")) {
            clockStart = dayNamed(*clock);
            if (!clockStart) throw UsageError("cannot read the day '" + *clock + "' (expected YYYY-MM-DD)");
          }
          const std::string& scenarioFile = parsed.positional[1];
          const std::vector<Step> steps = readScenario(scenarioFile);

          // Everything the run keeps lives in the state folder: the store's ledger and the
          // standard user defaults where the remembered first purchases go.
          std::optional<ScratchFolder> scratch;
          if (!parsed.option("state")) scratch.emplace("simulate");
          const std::filesystem::path state = parsed.option("state").value_or(scratch ? scratch->path().string() : "");
          ::setenv("VELQUIST_HOME", state.c_str(), 1);

          std::shared_ptr<sandbox::SandboxStore> store;
          try {
            store = sandbox::SandboxStore::open(parsed.positional[0],
                                                {.stateDirectory = state / "sandbox", .publishesReceipt = false, .clockStart = clockStart});
          } catch (const sandbox::StoreKitConfigurationError& error) {
            err << "vsk simulate: " << error.what() << "\n";
            return static_cast<int>(badInput);
          }

          Output output;
          Progress progress;
          const bool verbose = parsed.flag("verbose");
          logging::setLogSink([&output, verbose](const logging::LogEntry& entry) {
            std::string message = entry.message;
            if (!verbose && message.find('\n') != std::string::npos) {
              message = message.substr(0, message.find('\n')) + "…";  // the dump that follows, left out
            }
            for (std::size_t at = 0; (at = message.find('\n', at)) != std::string::npos; at += 5) {
              message.replace(at, 1, "\n    ");
            }
            output.add("  log " + std::string(logging::name(entry.level)) + ": " + message);
          });
          auto watcher = std::make_shared<StoreWatcher>(output, progress);
          SKPaymentQueue::defaultQueue().addTransactionObserver(watcher);
          auto listener = std::make_shared<PrintingListener>(output, progress);
          std::jthread streamReader;
          if (mechanism == "listener") {
            storekit::TransactionQueue::live()->add(listener);
          } else {
            auto updates = storekit::PaymentQueue(usersettings::UserSettingsClient::live()).updates();
            streamReader = std::jthread([&output, &progress, updates = std::move(updates)](std::stop_token stop) mutable {
              while (auto batch = updates.next(stop)) {
                output.add("  stream: " + describe(*batch));
                progress.mechanismDelivered();
              }
            });
          }

          auto consentSheet = std::make_shared<ConsentSheetDelegate>();
          SKPaymentQueue::defaultQueue().setDelegate(consentSheet);

          auto gate = std::make_shared<Gate>(output, progress);
          SKPaymentQueue::defaultQueue().addTransactionObserver(gate);

          // The store becomes the default only now, with every observer in place, and hears
          // that they are: transactions an earlier run left unfinished go to all of them.
          const auto watched = std::make_shared<WatchedStore>(store, progress, mechanism == "listener");
          platform::setDefaultStoreBackend(watched);
          watched->transactionObserverAdded();

          auto settle = [&] {
            store->waitUntilIdle();
            progress.waitUntilCaughtUp();
            output.flush(out);
          };
          store->waitUntilIdle();
          progress.waitUntilCaughtUp();
          if (!output.empty()) out << "> (transactions an earlier run left unfinished)\n";
          output.flush(out);

          int result = success;
          for (const Step& step : steps) {
            out << ">";
            for (const auto& word : step.words) out << " " << word;
            out << "\n";
            try {
              play(step, *store, *watcher, *consentSheet, output);
            } catch (const std::invalid_argument& error) {
              err << "vsk simulate: " << scenarioFile << ":" << step.line << ": " << error.what() << "\n";
              result = failure;
              break;
            }
            settle();
          }

          if (mechanism == "listener") storekit::TransactionQueue::live()->remove(listener);
          SKPaymentQueue::defaultQueue().removeTransactionObserver(gate);
          SKPaymentQueue::defaultQueue().removeTransactionObserver(watcher);
          SKPaymentQueue::defaultQueue().setDelegate(nullptr);
          logging::setLogSink(nullptr);
          platform::setDefaultStoreBackend(nullptr);
          return result;
        });
      },
  };
}

}  // namespace velquist::vsk
