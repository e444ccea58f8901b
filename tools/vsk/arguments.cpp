#include <unistd.h>

#include <algorithm>
#include <ostream>

#include "command.h"

namespace velquist::vsk {

std::optional<std::string> ParsedArguments::option(std::string_view name) const {
  const auto found = options.find(name);
  if (found == options.end()) return std::nullopt;
  return found->second;
}

bool ParsedArguments::flag(std::string_view name) const { return flags.contains(std::string(name)); }

ParsedArguments parseArguments(std::span<const std::string> arguments, std::initializer_list<std::string_view> optionNames,
                               std::initializer_list<std::string_view> flagNames) {
  ParsedArguments parsed;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (!argument.starts_with("--")) {
      parsed.positional.push_back(argument);
      continue;
    }
    const std::string name = argument.substr(2);
    if (std::find(flagNames.begin(), flagNames.end(), name) != flagNames.end()) {
      parsed.flags.insert(name);
      continue;
    }
    if (std::find(optionNames.begin(), optionNames.end(), name) == optionNames.end()) {
      throw UsageError("unknown option " + argument);
    }
    if (i + 1 >= arguments.size()) throw UsageError("option " + argument + " needs a value");
    parsed.options[name] = arguments[++i];
  }
  return parsed;
}

ScratchFolder::ScratchFolder(std::string_view command)
    : path_(std::filesystem::temp_directory_path() /
            ("vsk-" + std::string(command) + "-" + std::to_string(::getpid()))) {}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

int reportingUsageErrors(std::string_view command, std::ostream& err, const std::function<int()>& body) {
  try {
    return body();
  } catch (const UsageError& error) {
    err << "vsk " << command << ": " << error.what() << " (see vsk " << command << " --help)\n";
    return badInput;
  }
}

}  // namespace velquist::vsk
