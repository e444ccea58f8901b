// vsk: the VelquistStoreKit command-line tool.

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "command.h"

namespace velquist::vsk {
namespace {

std::vector<Command> allCommands() {
  return {periodCommand(),   priceCommand(),   discountCommand(), decodeCommand(),
          productsCommand(), paywallCommand(), simulateCommand()};
}

void printHelp(std::ostream& out) {
  out << "vsk - the VelquistStoreKit command-line tool\n"
         "\n"
         "Usage: vsk <command> [arguments]\n"
         "       vsk <command> --help\n"
         "\n"
         "Commands:\n";
  for (const Command& command : allCommands()) {
    // Long usage lines put their summary on a line of its own.
    std::string usage(command.usage);
    if (usage.size() > 30) usage += "\n" + std::string(32, ' ');
    usage.resize(std::max<std::size_t>(usage.size(), 30), ' ');
    out << "  " << usage << "  " << command.summary << "\n";
  }
  out << "\n"
         "Exit codes: 0 success, 1 failure, 2 bad arguments or bad input.\n";
}

int run(const std::vector<std::string>& arguments) {
  if (arguments.empty() || arguments[0] == "--help" || arguments[0] == "-h" || arguments[0] == "help") {
    printHelp(std::cout);
    return arguments.empty() ? badInput : success;
  }
  for (const Command& command : allCommands()) {
    if (command.name != arguments[0]) continue;
    const std::span<const std::string> rest(arguments.begin() + 1, arguments.end());
    if (!rest.empty() && (rest[0] == "--help" || rest[0] == "-h")) {
      std::cout << "Usage: vsk " << command.usage << "\n\n" << command.summary << "\n";
      if (!command.details.empty()) std::cout << "\n" << command.details;
      return success;
    }
    return command.run(rest, std::cout, std::cerr);
  }
  std::cerr << "vsk: unknown command '" << arguments[0] << "' (see vsk --help)\n";
  return badInput;
}

}  // namespace
}  // namespace velquist::vsk

int main(int argc, char** argv) {
  try {
    return velquist::vsk::run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& error) {
    std::cerr << "vsk: " << error.what() << "\n";
    return velquist::vsk::failure;
  }
}
