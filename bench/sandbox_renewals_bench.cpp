// How the sandbox store's catching up grows with the number of renewals: a daily
// subscription years behind the clock renews in one step, the library run catching up
// twice as many days as the baseline run. Work that grows in step with the renewals keeps
// the ratio near 2; a search of the ledger per renewal would make it near 4.

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "ratio_reporter.h"
#include "velquist/platform/sk_payment_queue.h"
#include "velquist/sandbox/sandbox_store.h"

namespace {

namespace fs = std::filesystem;
using namespace velquist;

fs::path scratchFolder() { return fs::temp_directory_path() / ("vsk-sandbox-bench-" + std::to_string(::getpid())); }

// One catching up of `days` daily renewals, from a fresh ledger; its time in seconds.
double catchUp(int days) {
  auto configuration = sandbox::loadStoreKitConfiguration(fs::path(VELQUIST_SOURCE_DIR) / "examples/velquist_demo.storekit");
  auto& daily = configuration.subscriptionGroups[0].subscriptions[0];
  daily.recurringSubscriptionPeriod = sandbox::Period{.iso8601 = "P1D", .unit = sandbox::Period::Unit::day, .count = 1};
  daily.introductoryOffer.reset();
  fs::remove_all(scratchFolder());
  auto store = sandbox::SandboxStore::open(std::move(configuration),
                                           {.stateDirectory = scratchFolder(), .publishesReceipt = false});
  store->addPayment(platform::SKPayment{.productIdentifier = daily.productID});
  store->waitUntilIdle();
  const auto start = std::chrono::steady_clock::now();
  store->advanceClock(std::chrono::days(days));
  store->waitUntilIdle();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void renewals(benchmark::State& state) {
  double library = 0, baseline = 0;
  for (auto _ : state) {
    library += catchUp(2 * 3650);
    baseline += catchUp(3650);
  }
  const double runs = static_cast<double>(state.iterations());
  state.counters["library"] = library / runs;
  state.counters["baseline"] = baseline / runs;
}

BENCHMARK(renewals)->Name("20 years of daily renewals against 10")->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace

int main(int argc, char** argv) {
  const int result = velquist::bench::runWithRatios(argc, argv, {{"20 years of daily renewals against 10", 2.5, true}});
  fs::remove_all(scratchFolder());
  return result;
}
