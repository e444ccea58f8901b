#pragma once

// The format styles of subscription offers and of their payment modes. Every text comes
// from the localisation catalogue (coreui/l10n.h) for the current language. Neither style
// has fields: all styles of a kind are equal and hash alike.
//
// Thread-safety: values without state; safe to use from any thread.

#include "velquist/export.h"
#include <cstddef>
#include <functional>
#include <string>

#include "velquist/storekit/product/product.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// The free-trial line of an offer: for a free trial, the catalogue's free-trial sentence
/// with the trial's length and its unit word in the matching grammatical number (3 days
/// takes `Day.plural`, 7 days `Day.plural2`, 1 week the singular); for any other payment
/// mode, the empty text. In English, for a free trial whose period is 3 days:
///
///     FormatStyle().format(trial)  ->  "3 days free"      trial.formatted()  ->  the same
struct Product::SubscriptionOffer::FormatStyle {
  std::string format(const SubscriptionOffer& offer) const;

  friend bool operator==(const FormatStyle&, const FormatStyle&) = default;
};

/// The localised name of a payment mode. In English:
///
///     PaymentModeFormatStyle().format(PaymentMode::payUpFront)  ->  "Pay up front"
struct Product::SubscriptionOffer::PaymentModeFormatStyle {
  std::string format(PaymentMode mode) const;

  friend bool operator==(const PaymentModeFormatStyle&, const PaymentModeFormatStyle&) = default;
};

}  // namespace velquist::storekit

template <>
struct std::hash<velquist::storekit::Product::SubscriptionOffer::FormatStyle> {
  std::size_t operator()(const velquist::storekit::Product::SubscriptionOffer::FormatStyle& style) const;
};
template <>
struct std::hash<velquist::storekit::Product::SubscriptionOffer::PaymentModeFormatStyle> {
  std::size_t operator()(const velquist::storekit::Product::SubscriptionOffer::PaymentModeFormatStyle& style) const;
};
VELQUIST_API_END
