#include <filesystem>
#include <ostream>

#include "command.h"
#include "velquist/foundation/json.h"
#include "velquist/platform/store_backend.h"
#include "velquist/sandbox/sandbox_store.h"
#include "velquist/storekit/formatting/period_format_style.h"
#include "velquist/storekit/product/product_coding.h"
#include "velquist/storekit/product/product_from_store.h"
#include "velquist/storekit/product/product_json.h"
#include "velquist/storekit/store/product_request.h"

namespace velquist::vsk {
namespace {

using storekit::Product;

std::string periodText(const Product::SubscriptionPeriod& period) {
  using Style = Product::SubscriptionPeriod::FormatStyle;
  return Style().valueDisplayStrategy(storekit::formatting::ValueDisplayStrategy::always).format(period);
}

std::string_view paymentModeText(Product::SubscriptionOffer::PaymentMode mode) {
  switch (mode) {
    case Product::SubscriptionOffer::PaymentMode::freeTrial: return "free trial";
    case Product::SubscriptionOffer::PaymentMode::payUpFront: return "pay up front";
    case Product::SubscriptionOffer::PaymentMode::payAsYouGo: break;
  }
  return "pay as you go";
}

void printOffer(std::ostream& out, std::string_view label, const Product::SubscriptionOffer& offer) {
  out << "  " << label << ": " << paymentModeText(offer.paymentMode) << ", " << periodText(offer.period) << ", "
      << offer.displayPrice << " (" << offer.price.description() << ")\n";
}

void printProduct(std::ostream& out, const Product& product) {
  out << product.id.rawValue << "\n"
      << "  title: " << product.displayName << "\n"
      << "  price: " << product.displayPrice << " (" << product.price.description() << ")\n";
  if (!product.subscription) return;
  const auto& subscription = *product.subscription;
  out << "  period: " << periodText(subscription.subscriptionPeriod) << " ("
      << subscription.subscriptionPeriod.analyticsValue() << ")\n"
      << "  group: " << subscription.subscriptionGroupID << "\n";
  if (subscription.introductoryOffer) printOffer(out, "introductory offer", *subscription.introductoryOffer);
  for (const auto& offer : subscription.promotionalOffers) {
    printOffer(out, "promotional offer " + (offer.id ? offer.id->rawValue : std::string("(no id)")), offer);
  }
}

}  // namespace

Command productsCommand() {
  return {
      .name = "products",
      .usage = "products <file.storekit> [--locale <id>] [--storefront <code>] [--json]",
      .summary = "every product of a catalogue, as a products request through the sandbox store gives it",
      .details = "Opens the sandbox store over the catalogue (with a state folder of its own, removed\n"
                 "afterwards), asks it for every product the file lists, and prints each as the library\n"
                 "sees it. --locale picks the texts and the language of prices (default: the file's\n"
                 "_locale), --storefront the country and currency (a three-letter code such as PRT;\n"
                 "default: the file's _storefront). --json prints one JSON object per line with the\n"
                 "product's fields, the price as decimal text.\n"
                 "\n"
                 "Example:\n"
                 "  $ vsk products examples/velquist_demo.storekit --storefront PRT\n"
                 "  com.velquist.demo.lifetime\n"
                 "    title: Lifetime\n"
                 "    price: €49.99 (49.99)\n"
                 "  ...\n",
      .run = [](std::span<const std::string> arguments, std::ostream& out, std::ostream& err) -> int {
        return reportingUsageErrors("products", err, [&] {
          const ParsedArguments parsed = parseArguments(arguments, {"locale", "storefront"}, {"json"});
          if (parsed.positional.size() != 1) throw UsageError("expected one .storekit file");
          const ScratchFolder state("products");
          sandbox::SandboxStoreOptions options{.stateDirectory = state.path(),
                                               .storefront = parsed.option("storefront"),
                                               .locale = parsed.option("locale"),
                                               .publishesReceipt = false};
          std::shared_ptr<sandbox::SandboxStore> store;
          try {
            store = sandbox::SandboxStore::open(parsed.positional[0], options);
          } catch (const sandbox::StoreKitConfigurationError& error) {
            err << "vsk products: " << error.what() << "\n";
            return static_cast<int>(badInput);
          }
          platform::setDefaultStoreBackend(store);
          const auto language = parsed.option("locale").value_or(store->configuration().settings.locale.value_or("en_US"));
          foundation::Locale::setCurrent(foundation::Locale(language));

          const auto storeProducts = storekit::products(store->productIdentifiers());
          platform::setDefaultStoreBackend(nullptr);
          if (!parsed.flag("json")) {
            const auto storefront = store->storefront();
            out << "storefront: " << storefront->countryCode << " (" << storefront->identifier
                << "), prices in " << store->priceLocale().identifier() << "\n";
          }
          for (const auto& storeProduct : storeProducts) {
            const Product product = storekit::makeProduct(storeProduct);
            if (parsed.flag("json")) {
              out << foundation::toJsonText(storekit::productJson(product)) << "\n";
            } else {
              out << "\n";
              printProduct(out, product);
            }
          }
          return static_cast<int>(success);
        });
      },
  };
}

}  // namespace velquist::vsk
