#include <ostream>

#include "command.h"
#include "velquist/foundation/rounding_rule.h"
#include "velquist/storekit/formatting/shared_formatters.h"
#include "velquist/storekit/product/iso8601_period.h"

namespace velquist::vsk {

namespace {

using foundation::Decimal;
using storekit::Product;

Decimal amountArgument(const std::string& text) {
  const auto amount = Decimal::fromString(text);
  // The whole argument must be the number: "4.99" yes, "4.99$" or "" no.
  if (!amount || amount->isNaN() || text.empty() || text.find_first_not_of("+-0123456789.eE") != std::string::npos) {
    throw UsageError("'" + text + "' is not an amount such as 4.99");
  }
  return *amount;
}

Product::SubscriptionPeriod periodArgument(const std::string& text) {
  const auto period = storekit::parseISO8601Period(text);
  if (!period || period->value <= 0) {
    throw UsageError("'" + text + "' is not a period of one component such as P1W, P3M or P1Y");
  }
  return *period;
}

}  // namespace

Command priceCommand() {
  return {
      .name = "price",
      .usage = "price <amount> --locale <id> [--rounding <rule>] [--per <period> --to <period>]",
      .summary = "the display price of an amount, restated for another period when asked",
      .details = "Rounding rules: toNearestOrAwayFromZero, toNearestOrEven, up, down (the default),\n"
                 "towardZero, awayFromZero. Periods are ISO 8601: P1D, P1W, P3M, P1Y.\n"
                 "\n"
                 "Example:\n"
                 "  $ vsk price 4.99 --locale en_US --per P1W --to P1Y\n"
                 "  amount: 260.3712140000000510976\n"
                 "  display price: $260.37\n",
      .run = [](std::span<const std::string> arguments, std::ostream& out, std::ostream& err) -> int {
        return reportingUsageErrors("price", err, [&] {
          const ParsedArguments parsed = parseArguments(arguments, {"locale", "rounding", "per", "to"});
          if (parsed.positional.size() != 1) throw UsageError("expected one amount");
          const auto locale = parsed.option("locale");
          if (!locale) throw UsageError("--locale is required");
          const auto ruleName = parsed.option("rounding").value_or("down");
          const auto rule = foundation::roundingRuleNamed(ruleName);
          if (!rule) throw UsageError("unknown rounding rule '" + ruleName + "'");
          if (parsed.option("per").has_value() != parsed.option("to").has_value()) {
            throw UsageError("--per and --to go together");
          }

          Decimal amount = amountArgument(parsed.positional[0]);
          if (parsed.option("per")) {
            amount = periodArgument(*parsed.option("per")).convertPrice(amount, periodArgument(*parsed.option("to")));
          }
          const auto text = storekit::displayPrice(amount, foundation::Locale(*locale), *rule);
          out << "amount: " << amount.description() << "\n"
              << "display price: " << text.value_or("(none)") << "\n";
          return text ? success : failure;
        });
      },
  };
}

Command discountCommand() {
  return {
      .name = "discount",
      .usage = "discount <amount> <period> <amount> <period> [--locale <id>]",
      .summary = "the saving of the first plan over the second, and its percentage text",
      .details = "Each plan is a price and the period it is charged for (ISO 8601: P1W, P1M, P1Y),\n"
                 "or `once` for a one-off purchase. Plans compare their prices per year; a\n"
                 "one-off purchase on either side compares the plain prices. The percentage is\n"
                 "written in --locale (default: the current locale).\n"
                 "\n"
                 "Example:\n"
                 "  $ vsk discount 39.99 P1Y 4.99 P1W --locale en_US\n"
                 "  discount: 0.85\n"
                 "  display discount: 85%\n",
      .run = [](std::span<const std::string> arguments, std::ostream& out, std::ostream& err) -> int {
        return reportingUsageErrors("discount", err, [&] {
          const ParsedArguments parsed = parseArguments(arguments, {"locale"});
          if (parsed.positional.size() != 4) throw UsageError("expected <amount> <period> <amount> <period>");
          const auto plan = [](const std::string& amount, const std::string& period) {
            std::optional<Product::SubscriptionInfo> subscription;
            if (period != "once") {
              subscription = Product::SubscriptionInfo{.subscriptionGroupID = "plans",
                                                       .subscriptionPeriod = periodArgument(period)};
            }
            return Product(Product::ID(amount + " " + period), "", "", amountArgument(amount), foundation::Locale(),
                           "", std::move(subscription));
          };
          const Product first = plan(parsed.positional[0], parsed.positional[1]);
          const Product second = plan(parsed.positional[2], parsed.positional[3]);
          if (const auto locale = parsed.option("locale")) foundation::Locale::setCurrent(foundation::Locale(*locale));
          const auto discount = first.discount(second);
          const auto text = first.displayDiscount(second);
          out << "discount: " << (discount ? discount->description() : "(none)") << "\n"
              << "display discount: " << text.value_or("(none)") << "\n";
          return text ? success : failure;
        });
      },
  };
}

}  // namespace velquist::vsk
