// Prints a price in three locales, a period in words and the products of a .storekit file
// as the sandbox store sells them.
#include <iostream>

#include "velquist/foundation/locale.h"
#include "velquist/platform/store_backend.h"
#include "velquist/sandbox/sandbox_store.h"
#include "velquist/storekit/formatting/period_format_style.h"
#include "velquist/storekit/product/product.h"
#include "velquist/storekit/product/product_from_store.h"
#include "velquist/storekit/store/product_request.h"

int main(int argc, char** argv) {
  using namespace velquist;
  const auto price = foundation::Decimal::fromString("1234.567").value();
  for (const char* locale : {"en_US", "de_DE", "ja_JP"}) {
    const auto text = storekit::displayPrice(price, foundation::Locale(locale), foundation::FloatingPointRoundingRule::down);
    std::cout << locale << ": " << text.value_or("(none)") << "\n";
  }
  foundation::Locale::setCurrent(foundation::Locale("en_US"));
  std::cout << storekit::Product::SubscriptionPeriod::FormatStyle().format(storekit::Product::SubscriptionPeriod::month(3))
            << "\n";
  if (argc < 2) return 0;

  // Every product of the catalogue, through the sandbox as the process's store.
  try {
    const auto store = sandbox::SandboxStore::openAsDefault(argv[1], {.stateDirectory = argc > 2 ? argv[2] : "consumer-state"});
    for (const auto& storeProduct : storekit::products(store->productIdentifiers())) {
      const auto product = storekit::makeProduct(storeProduct);
      std::cout << product.id.rawValue << ": " << product.displayPrice << "\n";
    }
    // Type information crosses the library boundary: a cast from the store interface
    // finds the sandbox again.
    const std::shared_ptr<platform::StoreBackend> backend = store;
    if (!std::dynamic_pointer_cast<sandbox::SandboxStore>(backend)) return 1;
    platform::setDefaultStoreBackend(nullptr);
  } catch (const std::exception& error) {
    std::cerr << "consumer: " << error.what() << "\n";
    return 1;
  }
  // And so do the library's exceptions.
  try {
    sandbox::SandboxStore::open("no-such-file.storekit", {.stateDirectory = "consumer-state"});
    return 1;
  } catch (const sandbox::StoreKitConfigurationError& error) {
    std::cout << "refused: " << error.what() << "\n";
  }
  return 0;
}
