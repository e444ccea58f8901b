#include "velquist/storekit/paywall/paywall_loader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <unordered_set>
#include <vector>

#include "common/scripted_store_backend.h"
#include "velquist/storekit/paywall/paywall.h"

namespace velquist::storekit {
namespace {

using platform::SKProduct;

std::filesystem::path writeDocument(const std::string& name, const std::string& contents) {
  const auto path = std::filesystem::temp_directory_path() /
                    ("paywall_loader_test_" + std::to_string(::getpid()) + "_" + name);
  std::ofstream(path) << contents;
  return path;
}

class PaywallLoader : public ::testing::Test {
 protected:
  PaywallLoader() { backend->setCatalogue({weekly, yearly, {.productIdentifier = "unrelated"}}); }

  const SKProduct weekly{.productIdentifier = "pro.weekly", .localizedTitle = "Pro Weekly", .price = Decimal(499, -2)};
  const SKProduct yearly{.productIdentifier = "pro.yearly", .localizedTitle = "Pro Yearly", .price = Decimal(3999, -2)};
  std::shared_ptr<testing::ScriptedStoreBackend> backend = std::make_shared<testing::ScriptedStoreBackend>();
  testing::StoreBackendScope scope{backend};
};

TEST_F(PaywallLoader, OneRequestForTheNamedProductsInDocumentOrder) {
  const auto path = writeDocument("order.json", R"({"id": "onboarding",
      "remoteConfig": {"ios_selected_product_id": "pro.yearly"},
      "products": [{"productId": "pro.yearly", "localizedTitle": "Best deal"}, {"productId": "gone"},
                   {"productId": "pro.weekly"}, {"productId": "pro.yearly"}, {"productId": "also.gone"}]})");
  const LoadedPaywall loaded = loadPaywall(path);
  std::filesystem::remove(path);

  const std::vector<std::unordered_set<std::string>> asked = {{"pro.yearly", "gone", "pro.weekly", "also.gone"}};
  EXPECT_EQ(backend->requests(), asked);
  EXPECT_EQ(loaded.missingProductIdentifiers, (std::vector<std::string>{"gone", "also.gone"}));
  std::vector<std::pair<std::string, std::string>> products;
  for (const auto& product : loaded.products) products.emplace_back(product.productIdentifier(), product.localizedTitle());
  EXPECT_EQ(products, (std::vector<std::pair<std::string, std::string>>{
                          {"pro.yearly", "Best deal"}, {"pro.weekly", "Pro Weekly"}, {"pro.yearly", "Pro Yearly"}}));
  EXPECT_EQ(loaded.products[1].skProduct(), weekly);
  EXPECT_EQ(Paywall(loaded.paywall, loaded.products).productSelected().value().displayName, "Best deal");
}

TEST_F(PaywallLoader, ABadRemoteConfigurationStillLoads) {
  for (const char* config : {R"("not json {")", "[1, 2]", "7"}) {
    const LoadedPaywall loaded = loadPaywall(adapty::parsePaywallDocument(
        std::string(R"({"id": "p", "products": [{"productId": "pro.weekly"}], "remoteConfig": )") + config + "}", "p"));
    EXPECT_EQ(loaded.products.size(), 1u) << config;
    EXPECT_EQ(Paywall(loaded.paywall, loaded.products).roles(), Paywall::Roles{}) << config;
  }
}

TEST_F(PaywallLoader, NothingIsAskedWithoutProductsOrWithABadDocument) {
  const LoadedPaywall empty = loadPaywall(adapty::parsePaywallDocument(R"({"id": "p", "products": []})", "p.json"));
  EXPECT_EQ(empty, (LoadedPaywall{.paywall = {.identifier = "p"}}));

  const auto path = writeDocument("bad.json", R"({"id": "p", "products": [{"productId": "pro.weekly", "price": "1"}]})");
  try {
    loadPaywall(path);
    ADD_FAILURE() << "no error";
  } catch (const adapty::PaywallDocumentError& error) {
    EXPECT_EQ(error.document(), path.string());
    EXPECT_EQ(error.path(), "products[0].price");
  }
  std::filesystem::remove(path);
  EXPECT_TRUE(backend->requests().empty());
}

}  // namespace
}  // namespace velquist::storekit
