// vsk: the VelquistStoreKit command-line tool.

#include <algorithm>
#include <iostream>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "command.h"
#include "velquist/foundation/user_defaults.h"

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

// Problems with the files that keep the run's state (user defaults) go to standard error as
// they happen; the run carries on, and ends with failure when any write did not reach its
// file.
class StateFileReports {
 public:
  StateFileReports()
      : observer_(foundation::addUserDefaultsObserver([this](const foundation::UserDefaultsReport& report) {
          std::lock_guard lock(mutex_);
          std::cerr << "vsk: " << report.description() << "\n";
          if (report.kind == foundation::UserDefaultsReport::Kind::writeFailed && !firstFailedWrite_) {
            firstFailedWrite_ = report.file.string() + " (" + report.reason + ")";
          }
        })) {}
  ~StateFileReports() { foundation::removeUserDefaultsObserver(observer_); }

  std::optional<std::string> firstFailedWrite() {
    std::lock_guard lock(mutex_);
    return firstFailedWrite_;
  }

 private:
  std::mutex mutex_;
  std::optional<std::string> firstFailedWrite_;
  std::uint64_t observer_;
};

}  // namespace
}  // namespace velquist::vsk

int main(int argc, char** argv) {
  // Lives until the process ends: a store may still report while statics are destroyed.
  static velquist::vsk::StateFileReports reports;
  int result = velquist::vsk::failure;
  try {
    result = velquist::vsk::run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& error) {
    std::cerr << "vsk: " << error.what() << "\n";
  }
  if (const auto failed = reports.firstFailedWrite(); failed && result == velquist::vsk::success) {
    std::cerr << "vsk: the run's state was not saved: a write to " << *failed << " failed\n";
    result = velquist::vsk::failure;
  }
  return result;
}
