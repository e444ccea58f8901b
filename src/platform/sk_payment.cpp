#include "velquist/platform/sk_payment.h"

#include <utility>

namespace velquist::platform {

std::string SKPayment::description() const {
  std::string text = "<SKPayment productIdentifier: " + productIdentifier + ", quantity: " + std::to_string(quantity);
  if (paymentDiscount) text += ", paymentDiscount: " + paymentDiscount->identifier;
  return text + ">";
}

SKPaymentTransactionState SKPaymentTransaction::transactionState() const {
  support::LockGuard lock(mutex_);
  return progress_.state;
}

std::optional<std::string> SKPaymentTransaction::transactionIdentifier() const {
  support::LockGuard lock(mutex_);
  return progress_.transactionIdentifier;
}

std::optional<SKPaymentTransaction::Date> SKPaymentTransaction::transactionDate() const {
  support::LockGuard lock(mutex_);
  return progress_.transactionDate;
}

std::optional<SKError> SKPaymentTransaction::error() const {
  support::LockGuard lock(mutex_);
  return progress_.error;
}

SKPaymentTransaction::Progress SKPaymentTransaction::progress() const {
  support::LockGuard lock(mutex_);
  return progress_;
}

void SKPaymentTransaction::update(Progress progress) {
  support::LockGuard lock(mutex_);
  progress_ = std::move(progress);
}

}  // namespace velquist::platform
