#include "velquist/storekit/transactions/transaction.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "velquist/storekit/product/product_from_store.h"
#include "velquist/support/hasher.h"

namespace velquist::storekit {

using platform::SKPaymentTransaction;
using platform::SKProduct;
using platform::SKProductDiscount;
using platform::SKProductDiscountPaymentMode;

std::optional<std::string> Transaction::id() const {
  if (!transaction) return std::nullopt;
  return transaction->transactionIdentifier();
}

std::optional<std::string> Transaction::productID() const {
  if (product) return product->id.rawValue;
  if (!transaction) return std::nullopt;
  return transaction->payment().productIdentifier;
}

std::string Transaction::description() const { return support::customDump(*this); }

Transaction makeTransaction(const SKProduct* product, std::shared_ptr<SKPaymentTransaction> transaction) {
  if (product == nullptr) return Transaction{.transaction = std::move(transaction)};
  const bool startsTrial = transaction && isStartTrial(*transaction, *product);
  return Transaction{.transaction = std::move(transaction), .product = makeProduct(*product), .isStartTrial = startsTrial};
}

Transaction makeTransaction(const std::vector<SKProduct>& products, std::shared_ptr<SKPaymentTransaction> transaction) {
  const SKProduct* bought = nullptr;
  if (transaction) {
    const auto found = std::ranges::find(products, transaction->payment().productIdentifier, &SKProduct::productIdentifier);
    if (found != products.end()) bought = &*found;
  }
  return makeTransaction(bought, std::move(transaction));
}

bool isStartTrial(const SKPaymentTransaction& transaction, const SKProduct& product) {
  if (const auto& applied = transaction.payment().paymentDiscount) {
    const bool freeTrialOffer = std::ranges::any_of(product.discounts, [&](const SKProductDiscount& discount) {
      return discount.paymentMode == SKProductDiscountPaymentMode::freeTrial && discount.identifier == applied->identifier;
    });
    if (freeTrialOffer) return true;
    // Otherwise the introductory offer still decides.
  }
  if (!product.introductoryPrice) return false;
  if (product.introductoryPrice->paymentMode != SKProductDiscountPaymentMode::freeTrial) return false;
  // An event that continues an earlier subscription does not start a trial.
  return !originalTransactionID(transaction);
}

std::optional<SKProductDiscount> discounts(const SKPaymentTransaction& transaction, const SKProduct& product) {
  if (const auto& applied = transaction.payment().paymentDiscount) {
    const auto found = std::ranges::find_if(
        product.discounts, [&](const SKProductDiscount& discount) { return discount.identifier == applied->identifier; });
    if (found != product.discounts.end()) return *found;
  }
  return product.introductoryPrice;
}

std::optional<std::string> originalTransactionID(const SKPaymentTransaction& transaction) {
  const auto& original = transaction.originalTransaction();
  if (!original) return std::nullopt;
  return original->transactionIdentifier();
}

std::string description(const SKPaymentTransaction& transaction) {
  std::string text = "<SKPaymentTransaction";
  if (const auto& original = transaction.originalTransaction()) {
    text += " original: " + description(*original) + ",";
  } else {
    text += " original: nil,";
  }
  text += " payment: " + transaction.payment().description() + ",";
  text += " transactionState: ";
  text += description(transaction.transactionState());
  return text + ">";
}

std::string_view description(platform::SKPaymentTransactionState state) {
  using State = platform::SKPaymentTransactionState;
  switch (state) {
    case State::purchasing: return "purchasing";
    case State::purchased: return "purchased";
    case State::failed: return "failed";
    case State::restored: return "restored";
    case State::deferred: return "deferred";
  }
  return "unknown";
}

support::DumpValue customDumpValue(const Transaction& transaction) {
  return support::DumpValue::structure("Transaction", {
                                                          {"transaction", support::dumpValue(transaction.transaction)},
                                                          {"product", support::dumpValue(transaction.product)},
                                                          {"isStartTrial", support::dumpValue(transaction.isStartTrial)},
                                                      });
}

}  // namespace velquist::storekit

namespace velquist::platform {

support::DumpValue customDumpValue(const SKPaymentTransaction& transaction) {
  return support::DumpValue::object("SKPaymentTransaction", &transaction, [&transaction] {
    const auto progress = transaction.progress();
    return std::vector<support::DumpField>{
        {"transactionIdentifier", support::dumpValue(progress.transactionIdentifier)},
        {"transactionState", support::dumpValue(progress.state)},
        {"productIdentifier", support::dumpValue(transaction.payment().productIdentifier)},
        {"originalTransaction", transaction.originalTransaction() ? support::dumpValue(transaction.originalTransaction())
                                                                  : support::DumpValue::nil()},
    };
  });
}

support::DumpValue customDumpValue(SKPaymentTransactionState state) {
  return support::DumpValue::verbatim("SKPaymentTransactionState." + std::string(storekit::description(state)));
}

support::DumpValue customDumpValue(const SKError& error) {
  // The fields are read from a copy: an error is often rendered from a caught exception.
  return support::DumpValue::object(
      "NSError", &error, [error] {
        return std::vector<support::DumpField>{
            {"domain", support::dumpValue("SKErrorDomain")},
            {"code", support::dumpValue(static_cast<std::int64_t>(error.code()))},
            {"userInfo", support::DumpValue::dictionary({{support::dumpValue("NSLocalizedDescription"),
                                                          support::dumpValue(std::string(error.what()))}})},
        };
      });
}

}  // namespace velquist::platform

std::size_t std::hash<velquist::storekit::Transaction>::operator()(
    const velquist::storekit::Transaction& transaction) const {
  return velquist::support::Hasher()
      .combine(transaction.transaction)
      .combine(transaction.product)
      .combine(transaction.isStartTrial)
      .finalize();
}
