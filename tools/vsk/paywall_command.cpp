#include <algorithm>
#include <filesystem>
#include <functional>
#include <ostream>

#include "command.h"
#include "velquist/adapty/paywall_document.h"
#include "velquist/foundation/json.h"
#include "velquist/platform/store_backend.h"
#include "velquist/sandbox/sandbox_store.h"
#include "velquist/storekit/formatting/offer_format_style.h"
#include "velquist/storekit/formatting/price_format_style.h"
#include "velquist/storekit/paywall/paywall.h"
#include "velquist/storekit/paywall/paywall_json.h"
#include "velquist/storekit/paywall/paywall_loader.h"

namespace velquist::vsk {
namespace {

using storekit::Paywall;
using storekit::Product;

/// What a screen shows for one product.
struct ProductLines {
  std::string price;
  std::string pricePerWeek;
  std::string freeTrial;                ///< empty without a free-trial introductory offer
  std::optional<std::string> discount;  ///< against the comparing product, for the others
};

ProductLines linesFor(const Product& product, const std::optional<Product>& comparing) {
  ProductLines lines{.price = product.formatted(Product::FormatStyle::price()),
                     .pricePerWeek = product.formatted(Product::FormatStyle::price(Product::SubscriptionPeriod::week(1)))};
  if (const auto offer = product.introductoryPrice()) lines.freeTrial = offer->formatted();
  if (comparing && product.id != comparing->id) lines.discount = product.displayDiscount(*comparing);
  return lines;
}

std::string remoteConfigSummary(const Paywall& paywall) {
  if (!paywall.remoteConfigString()) return "none";
  const auto config = paywall.remoteConfig();
  if (!config) return "not a JSON object, ignored";
  const std::size_t count = config->objectValue().size();
  return std::to_string(count) + (count == 1 ? " key" : " keys");
}

std::string joined(const std::vector<std::string>& texts) {
  std::string result;
  for (const auto& text : texts) result += (result.empty() ? "" : ", ") + text;
  return result;
}

void printText(std::ostream& out, const Paywall& paywall, const storekit::LoadedPaywall& loaded) {
  out << "paywall " << paywall.id().rawValue;
  if (paywall.variantID()) out << ", variant " << paywall.variantID()->rawValue;
  out << "\nremote configuration: " << remoteConfigSummary(paywall)
      << "\nfilter pay-up-front product: " << (paywall.filterPayUpFrontProduct() ? "yes" : "no") << "\n";
  for (const auto& missing : loaded.missingProductIdentifiers) out << "not in the store: " << missing << "\n";
  for (const auto& named : storekit::namedPaywallRoles(paywall)) {
    const bool found = std::any_of(paywall.products().begin(), paywall.products().end(),
                                   [&](const Product& product) { return product.id == named.second; });
    if (!found) out << named.first << ": " << named.second.rawValue << " is not on the paywall\n";
  }

  const auto comparing = paywall.productComparing();
  for (const Product& product : paywall.products()) {
    const ProductLines lines = linesFor(product, comparing);
    const auto productRoles = storekit::paywallRoles(paywall, product);
    out << "\n" << product.id.rawValue;
    if (!productRoles.empty()) out << "  [" << joined(productRoles) << "]";
    out << "\n  title: " << product.displayName << "\n  price: " << lines.price << "\n  per week: " << lines.pricePerWeek
        << "\n";
    if (!lines.freeTrial.empty()) out << "  free trial: " << lines.freeTrial << "\n";
    if (lines.discount) out << "  discount against " << comparing->id.rawValue << ": " << *lines.discount << "\n";
  }
}

void printJson(std::ostream& out, const Paywall& paywall, const storekit::LoadedPaywall& loaded) {
  out << foundation::toJsonText(storekit::paywallJson(paywall, loaded), {.prettyPrinted = true}) << "\n";
}

}  // namespace

Command paywallCommand() {
  return {
      .name = "paywall",
      .usage = "paywall <paywall.json> --config <file.storekit> [--locale <id>] [--storefront <code>] [--json]",
      .summary = "a paywall document's products with their roles, prices, trials and discounts",
      .details = "Reads the paywall document (see the README for its format), opens the sandbox store\n"
                 "over the catalogue (with a state folder of its own, removed afterwards), fetches the\n"
                 "paywall's products from it and prints each with its roles, its price per its own\n"
                 "period and per week, its free trial and its discount against the comparing product.\n"
                 "--locale picks the texts and the language of prices and percentages (default: the\n"
                 "file's _locale), --storefront the country and currency (default: the file's\n"
                 "_storefront); --json prints one JSON document instead.\n"
                 "\n"
                 "Example:\n"
                 "  $ vsk paywall examples/velquist_demo_paywall.json --config examples/velquist_demo.storekit\n"
                 "  paywall velquist.demo.onboarding, variant yearly-first\n"
                 "  ...\n"
                 "  com.velquist.demo.pro.yearly  [selected, highlighted, best value]\n"
                 "    title: Pro Yearly\n"
                 "    price: $39.99 / year\n"
                 "    per week: $0.83 / week\n"
                 "    free trial: 1 week free\n"
                 "    discount against com.velquist.demo.pro.weekly: 85%\n",
      .run = [](std::span<const std::string> arguments, std::ostream& out, std::ostream& err) -> int {
        return reportingUsageErrors("paywall", err, [&] {
          const ParsedArguments parsed = parseArguments(arguments, {"config", "locale", "storefront"}, {"json"});
          if (parsed.positional.size() != 1) throw UsageError("expected one paywall document");
          const auto config = parsed.option("config");
          if (!config) throw UsageError("--config <file.storekit> is required");

          adapty::AdaptyPaywallDocument document;
          std::shared_ptr<sandbox::SandboxStore> store;
          const ScratchFolder state("paywall");
          try {
            document = adapty::loadPaywallDocument(parsed.positional[0]);
            store = sandbox::SandboxStore::open(
                *config, {.stateDirectory = state.path(),
                          .storefront = parsed.option("storefront"),
                          .locale = parsed.option("locale"),
                          .publishesReceipt = false});
          } catch (const adapty::PaywallDocumentError& error) {
            err << "vsk paywall: " << error.what() << "\n";
            return static_cast<int>(badInput);
          } catch (const sandbox::StoreKitConfigurationError& error) {
            err << "vsk paywall: " << error.what() << "\n";
            return static_cast<int>(badInput);
          }
          const auto language =
              parsed.option("locale").value_or(store->configuration().settings.locale.value_or("en_US"));
          foundation::Locale::setCurrent(foundation::Locale(language));

          const storekit::LoadedPaywall loaded = [&] {
            // The store is the default backend for the one request, whichever way it ends.
            struct DefaultBackend {
              explicit DefaultBackend(std::shared_ptr<platform::StoreBackend> backend) {
                platform::setDefaultStoreBackend(std::move(backend));
              }
              ~DefaultBackend() { platform::setDefaultStoreBackend(nullptr); }
              DefaultBackend(const DefaultBackend&) = delete;
              DefaultBackend& operator=(const DefaultBackend&) = delete;
            } scope(store);
            return storekit::loadPaywall(document);
          }();

          const Paywall paywall(loaded.paywall, loaded.products);
          if (parsed.flag("json")) {
            printJson(out, paywall, loaded);
          } else {
            printText(out, paywall, loaded);
          }
          return static_cast<int>(success);
        });
      },
  };
}

}  // namespace velquist::vsk
