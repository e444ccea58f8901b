#include <algorithm>

#include "command.h"

namespace velquist::vsk {

std::optional<std::string> ParsedArguments::option(std::string_view name) const {
  const auto found = options.find(name);
  if (found == options.end()) return std::nullopt;
  return found->second;
}

ParsedArguments parseArguments(std::span<const std::string> arguments, std::initializer_list<std::string_view> optionNames) {
  ParsedArguments parsed;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (!argument.starts_with("--")) {
      parsed.positional.push_back(argument);
      continue;
    }
    const std::string name = argument.substr(2);
    if (std::find(optionNames.begin(), optionNames.end(), name) == optionNames.end()) {
      throw UsageError("unknown option " + argument);
    }
    if (i + 1 >= arguments.size()) throw UsageError("option " + argument + " needs a value");
    parsed.options[name] = arguments[++i];
  }
  return parsed;
}

}  // namespace velquist::vsk
