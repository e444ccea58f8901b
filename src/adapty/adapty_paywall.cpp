#include "velquist/adapty/adapty_paywall.h"

#include "velquist/foundation/coding_error.h"

namespace velquist::adapty {

std::optional<foundation::JsonValue> AdaptyPaywall::remoteConfig() const { return parseRemoteConfig(remoteConfigString); }

std::optional<foundation::JsonValue> parseRemoteConfig(std::optional<std::string_view> text) {
  if (!text) return std::nullopt;
  try {
    // Only an object is a configuration: a top-level array parses on the platform but is not
    // one, and every other top-level value is refused by its parser. Either way: none.
    return foundation::parseJson(*text, {.allowFragments = false});
  } catch (const foundation::DecodingError&) {
    return std::nullopt;
  }
}

}  // namespace velquist::adapty
