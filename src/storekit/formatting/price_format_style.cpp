#include "velquist/storekit/formatting/price_format_style.h"

#include "velquist/support/hasher.h"

namespace velquist::storekit {

using Price = Product::FormatStyle::Price;
using formatting::UnitStyle;

namespace {

// The price as currency text in the product's own locale, or nothing.
std::optional<std::string> priceText(const Decimal& amount, const Product& product, FloatingPointRoundingRule rule) {
  return storekit::displayPrice(amount, product.priceLocale, rule);
}

}  // namespace

Price Product::FormatStyle::price(std::optional<SubscriptionPeriod> subscriptionPeriod) {
  return Price(FloatingPointRoundingRule::down, Price::Separator::slash, subscriptionPeriod,
               Price::SubscriptionPeriodStyle::automatic, UnitStyle::complete);
}

std::string_view rawValue(Price::Separator separator) {
  switch (separator) {
    case Price::Separator::slash: return "/";
    case Price::Separator::omitted: return "";
  }
  return "";
}

std::string_view rawValue(Price::SubscriptionPeriodStyle style) {
  switch (style) {
    case Price::SubscriptionPeriodStyle::automatic: return "automatic";
    case Price::SubscriptionPeriodStyle::omitted: return "omitted";
  }
  return "";
}

Price Price::roundingRule(FloatingPointRoundingRule replacement) const {
  Price copy = *this;
  copy.roundingRule_ = replacement;
  return copy;
}

Price Price::separator(Separator replacement) const {
  Price copy = *this;
  copy.separator_ = replacement;
  return copy;
}

Price Price::subscriptionPeriodStyle(SubscriptionPeriodStyle replacement) const {
  Price copy = *this;
  copy.subscriptionPeriodStyle_ = replacement;
  return copy;
}

Price Price::subscriptionPeriodUnitStyle(UnitStyle replacement) const {
  Price copy = *this;
  copy.subscriptionPeriodUnitStyle_ = replacement;
  return copy;
}

Price Price::locale(const Locale&) const { return *this; }

std::string Price::format(const Product& product) const {
  if (!product.subscription) {
    return priceText(product.price, product, roundingRule_).value_or("");
  }

  // A period given by the style restates the price for it and is the one written.
  const SubscriptionPeriod& own = product.subscription->subscriptionPeriod;
  const Decimal amount = subscriptionPeriod_ ? own.convertPrice(product.price, *subscriptionPeriod_) : product.price;
  const SubscriptionPeriod written = subscriptionPeriod_.value_or(own);

  const std::optional<std::string> pricePart = priceText(amount, product, roundingRule_);
  std::optional<std::string> periodPart;
  if (subscriptionPeriodStyle_ == SubscriptionPeriodStyle::automatic) {
    periodPart = SubscriptionPeriod::FormatStyle(subscriptionPeriodUnitStyle_).format(written);
  }
  if (!pricePart) return periodPart.value_or("");
  if (!periodPart) return *pricePart;

  // An empty separator is one space; "/" is padded with spaces except next to compact names.
  const std::string_view raw = rawValue(separator_);
  std::string joint;
  if (raw.empty()) {
    joint = " ";
  } else if (subscriptionPeriodUnitStyle_ == UnitStyle::shortened) {
    joint = raw;
  } else {
    joint = " " + std::string(raw) + " ";
  }
  return *pricePart + joint + *periodPart;
}

}  // namespace velquist::storekit

std::size_t std::hash<velquist::storekit::Product::FormatStyle::Price>::operator()(
    const velquist::storekit::Product::FormatStyle::Price& style) const {
  return velquist::support::Hasher()
      .combine(style.roundingRule())
      .combine(style.separator())
      .combine(style.subscriptionPeriod())
      .combine(style.subscriptionPeriodStyle())
      .combine(style.subscriptionPeriodUnitStyle())
      .finalize();
}
