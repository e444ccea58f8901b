#pragma once

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace velquist::vsk {

/// Exit codes of every command.
enum ExitCode : int {
  success = 0,
  failure = 1,     // the work itself failed
  badInput = 2,    // bad arguments, or an input file that cannot be used
};

/// One sub-command of `vsk`: its name, one usage line, a one-line summary for `--help`, a
/// longer help text of its own, and the function that runs it with the arguments after its
/// name.
struct Command {
  std::string_view name;
  std::string_view usage;
  std::string_view summary;
  std::string_view details;
  std::function<int(std::span<const std::string> arguments, std::ostream& out, std::ostream& err)> run;
};

Command periodCommand();
Command decodeCommand();
Command priceCommand();
Command discountCommand();
Command productsCommand();
Command paywallCommand();
Command simulateCommand();

/// Arguments split into positional ones, `--name value` options and bare `--name` flags.
struct ParsedArguments {
  std::vector<std::string> positional;
  std::map<std::string, std::string, std::less<>> options;
  std::set<std::string, std::less<>> flags;

  std::optional<std::string> option(std::string_view name) const;
  bool flag(std::string_view name) const;
};

/// Splits `arguments`, accepting only the option names given (each takes one value) and the
/// flag names given (each stands alone). Throws UsageError for an unknown option or an
/// option without its value.
ParsedArguments parseArguments(std::span<const std::string> arguments, std::initializer_list<std::string_view> optionNames,
                               std::initializer_list<std::string_view> flagNames = {});

/// A mistake in how a command was called; reported on one line with exit code 2.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Runs a command body, turning a UsageError into its one-line message and exit code 2.
int reportingUsageErrors(std::string_view command, std::ostream& err, const std::function<int()>& body);

/// A state folder of the command's own for the sandbox store, removed when the command
/// ends: a listing buys nothing, so it must not touch the ledger of any other run.
class ScratchFolder {
 public:
  explicit ScratchFolder(std::string_view command);
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// Reads a whole file; throws std::runtime_error naming the file when it cannot.
std::string readFile(const std::string& path);

}  // namespace velquist::vsk
