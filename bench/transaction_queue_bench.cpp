// What following purchases costs, from the store's report to the listeners' delivery:
//
// - 1,000 renewals against 1,000 stored identifiers, file-backed defaults against in-memory
//   ones: reads are answered from memory in both, so the file costs little more.
// - 100 first purchases, file-backed against in-memory: each appends one record to the
//   defaults' journal instead of changing a value in memory.
// - 1,000 renewals against 100,000 stored identifiers against the same with 100: the set is
//   parsed once per change, not once per transaction, so its size does not matter.
// - One short value set, the file-backed defaults against a plain map (no target).
//
// Each pair's seconds per run are the "library" and "baseline" columns of the table.

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "ratio_reporter.h"
#include "velquist/logging/logger.h"
#include "velquist/platform/sk_payment_queue.h"
#include "velquist/platform/store_backend.h"
#include "velquist/storekit/transactions/transaction_queue.h"

namespace {

using velquist::foundation::FileUserDefaults;
using velquist::foundation::InMemoryUserDefaults;
using velquist::foundation::UserDefaults;
using velquist::platform::SKPayment;
using velquist::platform::SKPaymentQueue;
using velquist::platform::SKPaymentTransaction;
using velquist::platform::SKPaymentTransactionState;
using velquist::platform::SKProduct;
using velquist::storekit::Transaction;
using velquist::storekit::TransactionQueue;
using velquist::storekit::TransactionQueueListener;
using velquist::storekit::TransactionQueueListenerState;

// Answers every products request at once, on the asking thread, with one product.
class ImmediateStore final : public velquist::platform::StoreBackend {
 public:
  void startProductsRequest(std::uint64_t, const std::unordered_set<std::string>&, ProductsCompletion completion) override {
    velquist::platform::SKProductsResponse response;
    response.products.push_back(SKProduct{.productIdentifier = "pro.monthly", .localizedTitle = "Pro",
                                          .price = *velquist::foundation::Decimal::fromString("4.99"),
                                          .priceLocale = velquist::foundation::Locale("en_US")});
    completion(response);
  }
  void cancelProductsRequest(std::uint64_t) override {}
  void addPayment(const SKPayment&) override {}
  void finishTransaction(const std::shared_ptr<SKPaymentTransaction>&) override {}
  void restoreCompletedTransactions(const std::optional<std::string>&) override {}
  std::optional<velquist::platform::SKStorefront> storefront() const override { return std::nullopt; }
};

// Lets the benchmark wait for each delivery.
class CountingListener final : public TransactionQueueListener {
 public:
  void updated(const std::vector<Transaction>&) override {
    std::lock_guard lock(mutex_);
    ++delivered_;
    changed_.notify_all();
  }
  void waitFor(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return delivered_ >= count; });
  }
  std::size_t delivered() {
    std::lock_guard lock(mutex_);
    return delivered_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t delivered_ = 0;
};

// A queue over some defaults, driven directly (not through the payment queue, so the two
// queues of a pair do not hear each other's batches).
struct Subject {
  explicit Subject(std::shared_ptr<UserDefaults> store)
      : defaults(std::move(store)), queue(TransactionQueue::make(TransactionQueueListenerState(defaults))) {
    queue->add(listener);
  }
  ~Subject() { queue->remove(listener); }
  void run(const SKPaymentQueue::Transactions& batch) {
    const auto next = listener->delivered() + 1;
    queue->updatedTransactions(SKPaymentQueue::defaultQueue(), batch);
    listener->waitFor(next);
  }
  std::shared_ptr<UserDefaults> defaults;
  std::shared_ptr<TransactionQueue> queue;
  std::shared_ptr<CountingListener> listener = std::make_shared<CountingListener>();
};

std::filesystem::path scratchFile(const std::string& name) {
  return std::filesystem::temp_directory_path() /
         ("velquist_bench_" + std::to_string(::getpid())) / (name + ".defaults.json");
}

std::shared_ptr<SKPaymentTransaction> purchase(const std::string& id, std::optional<std::string> original) {
  std::shared_ptr<SKPaymentTransaction> originalTransaction;
  if (original) {
    originalTransaction = std::make_shared<SKPaymentTransaction>(
        SKPayment{.productIdentifier = "pro.monthly"},
        SKPaymentTransaction::Progress{.state = SKPaymentTransactionState::purchased, .transactionIdentifier = original});
  }
  return std::make_shared<SKPaymentTransaction>(
      SKPayment{.productIdentifier = "pro.monthly"},
      SKPaymentTransaction::Progress{.state = SKPaymentTransactionState::purchased, .transactionIdentifier = id},
      originalTransaction);
}

// Runs the file-backed subject and the in-memory one in turns, alternating which goes
// first, and reports both as counters (seconds per batch).
template <class Prepare>
void interleaved(benchmark::State& state, Subject& library, Subject& baseline, Prepare prepare) {
  using Clock = std::chrono::steady_clock;
  Clock::duration libraryTotal{}, baselineTotal{};
  bool libraryFirst = false;
  for (auto _ : state) {
    const auto measure = [&](Subject& subject, Clock::duration& total) {
      state.PauseTiming();
      const auto batch = prepare(subject);
      state.ResumeTiming();
      const auto start = Clock::now();
      subject.run(batch);
      total += Clock::now() - start;
    };
    libraryFirst = !libraryFirst;
    if (libraryFirst) {
      measure(library, libraryTotal), measure(baseline, baselineTotal);
    } else {
      measure(baseline, baselineTotal), measure(library, libraryTotal);
    }
  }
  const double runs = static_cast<double>(state.iterations());
  state.counters["library"] = std::chrono::duration<double>(libraryTotal).count() / runs;
  state.counters["baseline"] = std::chrono::duration<double>(baselineTotal).count() / runs;
}

std::unordered_set<std::string> storedIdentifiers(std::size_t count) {
  std::unordered_set<std::string> identifiers;
  for (std::size_t i = 0; i < count; ++i) identifiers.insert("2000000" + std::to_string(100000 + i));
  return identifiers;
}

void renewals(benchmark::State& state) {
  const auto stored = storedIdentifiers(1000);
  Subject file(std::make_shared<FileUserDefaults>(scratchFile("renewals")));
  Subject memory(std::make_shared<InMemoryUserDefaults>());
  for (Subject* subject : {&file, &memory}) TransactionQueueListenerState(subject->defaults).setOriginalTransactionIDs(stored);
  SKPaymentQueue::Transactions batch;
  int next = 0;
  for (const auto& original : stored) batch.push_back(purchase("3000" + std::to_string(next++), original));
  interleaved(state, file, memory, [&](Subject&) { return batch; });
}

void firstPurchases(benchmark::State& state) {
  constexpr int perBatch = 100;
  Subject file(std::make_shared<FileUserDefaults>(scratchFile("first")));
  Subject memory(std::make_shared<InMemoryUserDefaults>());
  int next = 0;
  interleaved(state, file, memory, [&](Subject& subject) {
    // Each batch starts from the same 1,000 stored identifiers and adds 100 new ones.
    TransactionQueueListenerState(subject.defaults).setOriginalTransactionIDs(storedIdentifiers(1000));
    SKPaymentQueue::Transactions batch;
    for (int i = 0; i < perBatch; ++i) batch.push_back(purchase("4000" + std::to_string(next++), std::nullopt));
    return batch;
  });
}

void renewalsAgainstALargeSet(benchmark::State& state) {
  const auto large = storedIdentifiers(100000), small = storedIdentifiers(100);
  Subject library(std::make_shared<InMemoryUserDefaults>());
  Subject baseline(std::make_shared<InMemoryUserDefaults>());
  TransactionQueueListenerState(library.defaults).setOriginalTransactionIDs(large);
  TransactionQueueListenerState(baseline.defaults).setOriginalTransactionIDs(small);
  // The same 1,000 renewals of identifiers both sets hold.
  SKPaymentQueue::Transactions batch;
  for (int i = 0; i < 1000; ++i) {
    batch.push_back(purchase("5000" + std::to_string(i), "2000000" + std::to_string(100000 + i % 100)));
  }
  interleaved(state, library, baseline, [&](Subject&) { return batch; });
}

void shortValueSet(benchmark::State& state) {
  FileUserDefaults file(scratchFile("short"));
  std::unordered_map<std::string, std::string> map;
  using Clock = std::chrono::steady_clock;
  Clock::duration libraryTotal{}, baselineTotal{};
  constexpr int perRun = 1000;
  int next = 0;
  for (auto _ : state) {
    auto start = Clock::now();
    for (int i = 0; i < perRun; ++i) file.setString(std::to_string(next++), "key" + std::to_string(i % 10));
    libraryTotal += Clock::now() - start;
    start = Clock::now();
    for (int i = 0; i < perRun; ++i) map.insert_or_assign("key" + std::to_string(i % 10), std::to_string(next++));
    baselineTotal += Clock::now() - start;
    benchmark::DoNotOptimize(map);
  }
  const double runs = static_cast<double>(state.iterations()) * perRun;
  state.counters["library"] = std::chrono::duration<double>(libraryTotal).count() / runs;
  state.counters["baseline"] = std::chrono::duration<double>(baselineTotal).count() / runs;
}

BENCHMARK(renewals)->Name("1000 renewals against 1000 stored")->Unit(benchmark::kMillisecond)->Iterations(20);
BENCHMARK(firstPurchases)->Name("100 first purchases")->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(renewalsAgainstALargeSet)
    ->Name("1000 renewals against 100000 stored vs 100")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(20);
BENCHMARK(shortValueSet)->Name("one short value set")->Unit(benchmark::kMillisecond)->Iterations(20);

}  // namespace

int main(int argc, char** argv) {
  velquist::logging::setLogSink([](const velquist::logging::LogEntry&) {});
  velquist::platform::setDefaultStoreBackend(std::make_shared<ImmediateStore>());
  const int result = velquist::bench::runWithRatios(argc, argv,
                                                    {
                                                        {"1000 renewals against 1000 stored", 2.0, true},
                                                        {"100 first purchases", 3.0, true},
                                                        {"1000 renewals against 100000 stored vs 100", 1.5, true},
                                                        {"one short value set", 0.0, true},
                                                    });
  std::filesystem::remove_all(scratchFile("x").parent_path());
  return result;
}
