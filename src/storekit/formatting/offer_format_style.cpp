#include "velquist/storekit/formatting/offer_format_style.h"

#include "velquist/coreui/l10n.h"
#include "velquist/support/hasher.h"

namespace velquist::storekit {

using Offer = Product::SubscriptionOffer;
using PaymentMode = Offer::PaymentMode;
namespace offerWords = coreui::L10n::Product::SubscriptionOffer;

std::string Offer::FormatStyle::format(const Offer& offer) const {
  if (offer.paymentMode != PaymentMode::freeTrial) return "";
  // The sentence places the number itself; only the word is chosen here.
  const std::int64_t length = offer.period.value;
  const std::string word = storekit::formatted(offer.period.unit, formatting::UnitStyle::complete,
                                               grammaticalNumber(length));
  return offerWords::freeTrial(length, word);
}

std::string Offer::formatted() const { return FormatStyle().format(*this); }

std::string Offer::PaymentModeFormatStyle::format(PaymentMode mode) const {
  switch (mode) {
    case PaymentMode::payAsYouGo: return offerWords::PaymentMode::payAsYouGo();
    case PaymentMode::payUpFront: return offerWords::PaymentMode::payUpFront();
    case PaymentMode::freeTrial: return offerWords::PaymentMode::freeTrial();
  }
  return "";
}

std::string formatted(PaymentMode mode) { return Offer::PaymentModeFormatStyle().format(mode); }

}  // namespace velquist::storekit

std::size_t std::hash<velquist::storekit::Product::SubscriptionOffer::FormatStyle>::operator()(
    const velquist::storekit::Product::SubscriptionOffer::FormatStyle&) const {
  return velquist::support::Hasher().finalize();
}

std::size_t std::hash<velquist::storekit::Product::SubscriptionOffer::PaymentModeFormatStyle>::operator()(
    const velquist::storekit::Product::SubscriptionOffer::PaymentModeFormatStyle&) const {
  return velquist::support::Hasher().finalize();
}
