#include <algorithm>
#include <fstream>
#include <map>
#include <ostream>
#include <sstream>
#include <stdexcept>

#include "command.h"
#include "velquist/foundation/coding.h"
#include "velquist/storekit/product/product_coding.h"
#include "velquist/support/dump.h"

namespace velquist::vsk {

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  std::stringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

namespace {

using storekit::Product;

/// Decodes a document as one record type and returns its dump.
using DecodeToDump = std::string (*)(std::string_view json);

template <class T>
std::string decodeToDump(std::string_view json) {
  return support::customDump(foundation::decodeFromJsonText<T>(json));
}

const std::map<std::string, DecodeToDump, std::less<>>& decodableTypes() {
  static const std::map<std::string, DecodeToDump, std::less<>> types = {
      {"subscription-info", decodeToDump<Product::SubscriptionInfo>},
      {"offer", decodeToDump<Product::SubscriptionOffer>},
      {"period", decodeToDump<Product::SubscriptionPeriod>},
      {"offer-type", decodeToDump<Product::SubscriptionOffer::OfferType>},
      {"payment-mode", decodeToDump<Product::SubscriptionOffer::PaymentMode>},
      {"unit", decodeToDump<Product::SubscriptionPeriod::Unit>},
  };
  return types;
}

std::string oneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

}  // namespace

Command decodeCommand() {
  return {
      .name = "decode",
      .usage = "decode <type> <file.json>",
      .summary = "decode a serialised record and print its dump",
      .details = "Types: subscription-info, offer, period, offer-type, payment-mode, unit.\n"
                 "A document that does not decode gives one line naming the key path of the\n"
                 "fault, and exit code 2.\n"
                 "\n"
                 "Example:\n"
                 "  $ echo '{\"unit\": 2, \"value\": 3}' > period.json\n"
                 "  $ vsk decode period period.json\n"
                 "  Product.SubscriptionPeriod(\n"
                 "    unit: .month,\n"
                 "    value: 3\n"
                 "  )\n",
      .run = [](std::span<const std::string> arguments, std::ostream& out, std::ostream& err) -> int {
        if (arguments.size() != 2) {
          err << "vsk decode: expected a type and a file (see vsk decode --help)\n";
          return badInput;
        }
        const auto type = decodableTypes().find(arguments[0]);
        if (type == decodableTypes().end()) {
          err << "vsk decode: unknown type '" << arguments[0]
              << "' (one of subscription-info, offer, period, offer-type, payment-mode, unit)\n";
          return badInput;
        }
        std::string json;
        try {
          json = readFile(arguments[1]);
        } catch (const std::runtime_error& error) {
          err << "vsk decode: " << error.what() << "\n";
          return badInput;
        }
        try {
          out << type->second(json) << "\n";
        } catch (const foundation::DecodingError& error) {
          err << "vsk decode: " << arguments[1] << ": " << oneLine(error.what()) << "\n";
          return badInput;
        }
        return success;
      },
  };
}

}  // namespace velquist::vsk
