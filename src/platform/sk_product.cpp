#include "velquist/platform/sk_product.h"

namespace velquist::platform {

std::string SKProductSubscriptionPeriod::description() const {
  std::string unitText;
  switch (unit) {
    case SKProductPeriodUnit::day:
      unitText = "day";
      break;
    case SKProductPeriodUnit::week:
      unitText = "week";
      break;
    case SKProductPeriodUnit::month:
      unitText = "month";
      break;
    case SKProductPeriodUnit::year:
      unitText = "year";
      break;
    default:
      unitText = std::to_string(static_cast<std::int64_t>(unit));
  }
  return "<SKProductSubscriptionPeriod numberOfUnits: " + std::to_string(numberOfUnits) + ", unit: " + unitText + ">";
}

}  // namespace velquist::platform
