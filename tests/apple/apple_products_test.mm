// Products requests, prices, errors, the storefront, the review prompt and the receipt
// through the adapter.
#include "apple_test_support.h"

#include <filesystem>

#include "velquist/foundation/bundle.h"
#include "velquist/platform/sk_products_request.h"
#include "velquist/platform/store_review_controller.h"

namespace velquist::apple {
namespace {

using platform::SKError;
using testing::AppleStoreTest;
using testing::nsDecimal;
using testing::nsError;

// Object counting must be on before the first object of a counted class is made.
const bool countingObjects = GSDebugAllocationActive(YES) || true;

// Hears one library products request.
struct RecordingDelegate final : platform::SKProductsRequestDelegate {
  void productsRequestDidReceive(platform::SKProductsRequest&, const platform::SKProductsResponse& response) override {
    answers.put(response);
  }
  void requestDidFailWithError(platform::SKProductsRequest&, const SKError& error) override { failures.put(error); }
  testing::Inbox<platform::SKProductsResponse> answers;
  testing::Inbox<SKError> failures;
};

std::shared_ptr<platform::SKProductsRequest> startRequest(std::unordered_set<std::string> identifiers,
                                                          const std::shared_ptr<RecordingDelegate>& delegate) {
  auto request = platform::SKProductsRequest::create(std::move(identifiers));
  request->setDelegate(delegate);
  request->start();
  return request;
}

platform::SKProductsResponse fetch(std::unordered_set<std::string> identifiers) {
  auto delegate = std::make_shared<RecordingDelegate>();
  auto request = startRequest(std::move(identifiers), delegate);
  return delegate->answers.waitFor(1).at(0);
}

TEST_F(AppleStoreTest, ProductsComeWithTheirOffersAndTheUnknownIdentifiers) {
  const auto response = fetch({"pro.trial", "pro.monthly", "gone"});
  ASSERT_EQ(response.products.size(), 2u);
  for (const auto& product : response.products) {
    EXPECT_EQ(product, testing::catalogueProduct(product.productIdentifier)) << product.productIdentifier;
  }
  EXPECT_EQ(response.invalidProductIdentifiers, std::vector<std::string>{"gone"});
}

TEST_F(AppleStoreTest, PricesAreReadFromTheDecimalsTextExactly) {
  // Each price as the store's decimal number has it, and as the library must read it.
  const struct { std::string text, expected; } prices[] = {
      {"4.99", "4.99"},
      {"0.30000000000000001", "0.30000000000000001"},  // no double holds this
      {"12345678901234567890123456789012345678E127", "12345678901234567890123456789012345678E127"},
      {"-0.00000000000000000000000000000000000001", "-1E-38"},
      {"1E-128", "1E-128"},
      {"0", "0"},
  };
  NSMutableArray* catalogue = [NSMutableArray array];
  std::unordered_set<std::string> identifiers;
  for (const auto& price : prices) {
    auto product = *testing::catalogueProduct("pro.trial");
    product.productIdentifier = price.text;
    SKProduct* record = testing::objcProduct(product);
    [record setRecordValue:nsDecimal(price.text) forKey:@"price"];
    [record.introductoryPrice setRecordValue:nsDecimal(price.text) forKey:@"price"];
    [catalogue addObject:record];
    identifiers.insert(price.text);
  }
  [SKStoreDouble setCatalogue:catalogue];

  // The double answers in catalogue order.
  const auto products = fetch(identifiers).products;
  ASSERT_EQ(products.size(), std::size(prices));
  for (std::size_t i = 0; i < products.size(); ++i) {
    SCOPED_TRACE(prices[i].text);
    const auto expected = foundation::Decimal::fromString(prices[i].expected)->description();
    EXPECT_EQ(products[i].productIdentifier, prices[i].text);
    EXPECT_EQ(products[i].price.description(), expected);
    EXPECT_EQ(products[i].introductoryPrice->price.description(), expected);
  }
}

TEST_F(AppleStoreTest, OddRecordsFromTheStoreConvertAsTheyAre) {
  // Only an identifier (so no price at all), then values outside the known ranges, and an
  // offer whose price is not a number.
  SKProduct* bare = [SKProduct recordWithValues:@{@"productIdentifier": @"bare"}];
  SKProduct* odd = [SKProduct recordWithValues:@{
    @"productIdentifier": @"odd", @"price": nsDecimal("1.50"),
    @"priceLocale": [NSLocale localeWithLocaleIdentifier:@"en_PT@currency=EUR"],
    @"subscriptionPeriod": [SKProductSubscriptionPeriod recordWithValues:@{@"numberOfUnits": @7, @"unit": @9}],
    @"discounts": @[[SKProductDiscount recordWithValues:@{@"price": [NSDecimalNumber notANumber], @"paymentMode": @5,
                                                          @"type": @3}]]}];
  [SKStoreDouble setCatalogue:@[bare, odd]];
  const auto products = fetch({"bare", "odd"}).products;
  ASSERT_EQ(products.size(), 2u);
  EXPECT_EQ(products[0].productIdentifier, "bare");
  EXPECT_EQ(products[0].localizedTitle, "");
  EXPECT_TRUE(products[0].price.isNaN());
  EXPECT_EQ(products[0].priceLocale, foundation::Locale());
  EXPECT_EQ(products[0].subscriptionPeriod, std::nullopt);
  EXPECT_TRUE(products[0].discounts.empty());
  EXPECT_EQ(products[1].price.description(), "1.5");  // as the store's decimal gives it
  EXPECT_EQ(products[1].priceLocale.identifier(), "en_PT@currency=EUR");
  EXPECT_EQ(products[1].subscriptionPeriod, (platform::SKProductSubscriptionPeriod{7, platform::SKProductPeriodUnit{9}}));
  ASSERT_EQ(products[1].discounts.size(), 1u);
  const auto& offer = products[1].discounts[0];
  EXPECT_TRUE(offer.price.isNaN());
  EXPECT_EQ(offer.identifier, std::nullopt);
  EXPECT_EQ(offer.paymentMode, platform::SKProductDiscountPaymentMode{5});
  EXPECT_EQ(offer.type, platform::SKProductDiscountType{3});
  EXPECT_EQ(offer.subscriptionPeriod, platform::SKProductSubscriptionPeriod{});
}

TEST_F(AppleStoreTest, ErrorsKeepTheStoresCodeAndMessage) {
  const struct { NSError* error; SKError expected; } cases[] = {
      {nsError(SKErrorDomain, 99, @"Something new"), SKError(static_cast<SKError::Code>(99), "Something new")},
      {nsError(@"NSURLErrorDomain", -1009, @"The Internet connection appears to be offline."),
       SKError(SKError::Code::unknown, "The Internet connection appears to be offline. (NSURLErrorDomain -1009)")},
  };
  for (const auto& [error, expected] : cases) {
    SCOPED_TRACE(expected.what());
    [SKStoreDouble setProductsFailure:error];
    auto delegate = std::make_shared<RecordingDelegate>();
    auto request = startRequest({"pro.monthly"}, delegate);
    EXPECT_EQ(delegate->failures.waitFor(1), std::vector{expected});

    // The same mapping for a failed purchase and a failed restore.
    SKPaymentTransaction* failed = testing::objcTransaction(testing::objcPayment("pro.monthly"),
                                                            SKPaymentTransactionStateFailed, nil);
    [SKStoreDouble move:failed to:SKPaymentTransactionStateFailed identifier:nil date:nil error:error];
    const auto before = observer->updated.waitFor(0).size();
    [SKStoreDouble report:@[failed]];
    EXPECT_EQ(observer->updated.waitFor(before + 1).back().front()->error(), expected);
    const auto restores = observer->restores.waitFor(0).size();
    [SKStoreDouble failRestore:error];
    EXPECT_EQ(observer->restores.waitFor(restores + 1).back(),
              std::to_string(static_cast<int>(expected.code())) + " " + expected.what());
  }
}

TEST_F(AppleStoreTest, ARequestCancelledBeforeItsAnswerIsSilentAndReleased) {
  [SKStoreDouble setHoldsAnswers:YES];
  auto cancelledDelegate = std::make_shared<RecordingDelegate>(), keptDelegate = std::make_shared<RecordingDelegate>();
  auto cancelled = startRequest({"pro.monthly"}, cancelledDelegate);
  auto kept = startRequest({"pro.trial"}, keptDelegate);
  cancelled->cancel();
  EXPECT_EQ([SKStoreDouble cancelledRequestCount], 1u);
  // The framework may already be delivering the cancelled request's answer as the cancel
  // arrives; the adapter drops it, and lets go of each delegate once its request is over.
  [SKStoreDouble answerHeld];
  EXPECT_EQ(keptDelegate->answers.waitFor(1).at(0).products.at(0).productIdentifier, "pro.trial");
  [SKStoreDouble waitForAnswers];
  EXPECT_EQ(testing::liveObjects("VSKProductsRequestDelegate"), 0);

  // Answers go out in order: once a later request is answered, nothing more will come.
  [SKStoreDouble setHoldsAnswers:NO];
  auto later = std::make_shared<RecordingDelegate>();
  auto request = startRequest({"pro.monthly"}, later);
  later->answers.waitFor(1);
  EXPECT_TRUE(cancelledDelegate->answers.waitFor(0).empty());
  EXPECT_TRUE(cancelledDelegate->failures.waitFor(0).empty());
}

TEST_F(AppleStoreTest, TheStorefrontIsReadAfreshItsChangesAndRevocationsReported) {
  auto& queue = platform::SKPaymentQueue::defaultQueue();
  EXPECT_EQ(queue.storefront(), std::nullopt);
  [SKStoreDouble changeStorefront:[SKStorefront recordWithValues:@{@"countryCode": @"DEU", @"identifier": @"143443"}]];
  EXPECT_EQ(queue.storefront(), (platform::SKStorefront{"DEU", "143443"}));
  EXPECT_EQ(observer->storefronts.waitFor(1), std::vector{std::optional(platform::SKStorefront{"DEU", "143443"})});
  [SKStoreDouble revoke:@[@"pro.monthly", @"pro.trial"]];
  EXPECT_EQ(observer->revoked.waitFor(1), (std::vector<std::vector<std::string>>{{"pro.monthly", "pro.trial"}}));
}

TEST_F(AppleStoreTest, TheReviewPromptAndTheReceiptGoToTheFramework) {
  platform::SKStoreReviewController::requestReview(std::make_shared<platform::UIWindowScene>("main"));
  EXPECT_EQ([SKStoreDouble reviewRequests], 1u);

  [SKStoreDouble setReceiptURL:[NSURL fileURLWithPath:@"/var/app/StoreKit/receipt"]];
  installAppleStore();
  EXPECT_EQ(foundation::Bundle::main().appStoreReceiptURL(), std::filesystem::path("/var/app/StoreKit/receipt"));
  foundation::Bundle::setMainAppStoreReceiptURL(std::nullopt);

  installAppleStore({.reviewPrompt = false});
  platform::SKStoreReviewController::requestReview(std::make_shared<platform::UIWindowScene>("main"));
  EXPECT_EQ([SKStoreDouble reviewRequests], 1u);
  platform::SKStoreReviewController::reset();
}

TEST_F(AppleStoreTest, UninstallingStopsObservingTheFramework) {
  EXPECT_EQ([SKStoreDouble observerCount], 1u);
  installAppleStore();  // replaces the adapter: still one observer
  EXPECT_EQ([SKStoreDouble observerCount], 1u);
  uninstallAppleStore();
  EXPECT_EQ([SKStoreDouble observerCount], 0u);
  EXPECT_EQ(platform::defaultStoreBackend(), nullptr);
  uninstallAppleStore();  // nothing installed: nothing to do
}

}  // namespace
}  // namespace velquist::apple
