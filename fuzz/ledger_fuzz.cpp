// Feeds arbitrary bytes to the sandbox store as the ledger.json of its state folder: opening
// either refuses the file with an error or gives a store that reports its unfinished
// transactions to a new observer; it never crashes.

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "velquist/foundation/file_io.h"
#include "velquist/platform/sk_payment_queue.h"
#include "velquist/platform/store_backend.h"
#include "velquist/sandbox/sandbox_store.h"
#include "velquist/support/log_sink.h"

namespace {

namespace fs = std::filesystem;
using namespace velquist;

const fs::path& folder() {
  static const fs::path path = fs::temp_directory_path() / ("velquist_fuzz_ledger_" + std::to_string(::getpid()));
  return path;
}

const sandbox::StoreKitConfiguration& catalogue() {
  static const auto configuration = sandbox::loadStoreKitConfiguration(VELQUIST_DEMO_STOREKIT);
  return configuration;
}

struct Observer final : platform::SKPaymentTransactionObserver {
  void updatedTransactions(platform::SKPaymentQueue&, const platform::SKPaymentQueue::Transactions&) override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool quiet = (support::setLogSink([](std::string_view) {}), true);
  static_cast<void>(quiet);
  std::error_code ignored;
  fs::remove_all(folder(), ignored);
  foundation::writeFileAtomically(folder() / "ledger.json", std::string(reinterpret_cast<const char*>(data), size));
  std::shared_ptr<sandbox::SandboxStore> store;
  try {
    store = sandbox::SandboxStore::open(catalogue(), {.stateDirectory = folder(), .publishesReceipt = false});
  } catch (const std::exception&) {
    return 0;  // refused, with a message
  }
  static_cast<void>(store->transactions());
  platform::setDefaultStoreBackend(store);
  const auto observer = std::make_shared<Observer>();
  platform::SKPaymentQueue::defaultQueue().addTransactionObserver(observer);
  store->waitUntilIdle();
  platform::SKPaymentQueue::defaultQueue().removeTransactionObserver(observer);
  platform::setDefaultStoreBackend(nullptr);
  return 0;
}
