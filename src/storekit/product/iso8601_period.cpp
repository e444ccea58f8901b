#include "velquist/storekit/product/iso8601_period.h"

#include <charconv>

namespace velquist::storekit {

using Unit = Product::SubscriptionPeriod::Unit;

std::optional<Product::SubscriptionPeriod> parseISO8601Period(std::string_view text) {
  if (text.size() < 3 || text.front() != 'P') return std::nullopt;
  const std::string_view count = text.substr(1, text.size() - 2);
  if (count.empty() || count.front() < '0' || count.front() > '9') return std::nullopt;
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(count.data(), count.data() + count.size(), value);
  if (error != std::errc() || end != count.data() + count.size()) return std::nullopt;
  switch (text.back()) {
    case 'D': return Product::SubscriptionPeriod(Unit::day, value);
    case 'W': return Product::SubscriptionPeriod(Unit::week, value);
    case 'M': return Product::SubscriptionPeriod(Unit::month, value);
    case 'Y': return Product::SubscriptionPeriod(Unit::year, value);
    default: return std::nullopt;
  }
}

std::string iso8601(const Product::SubscriptionPeriod& period) {
  static constexpr char letters[] = {'D', 'W', 'M', 'Y'};
  return "P" + std::to_string(period.value) + letters[rawValue(period.unit)];
}

}  // namespace velquist::storekit
