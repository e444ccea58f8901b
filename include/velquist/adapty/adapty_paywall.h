#pragma once

#include "velquist/export.h"
#include <optional>
#include <string>
#include <string_view>

#include "velquist/foundation/json.h"

VELQUIST_API_BEGIN
namespace velquist::adapty {

/// A paywall as the subscription SDK delivers it: its identifier and its remote
/// configuration, free-form JSON text kept with the paywall on the service. The paywall's
/// products come separately, as `AdaptyPaywallProduct` values (adapty_product.h).
///
/// A value type: distinct objects may be used from different threads freely, and one object
/// may be read from several threads at once.
struct AdaptyPaywall {
  std::string identifier;
  /// The remote configuration exactly as the service sent it; absent when it sent none.
  std::optional<std::string> remoteConfigString;

  /// `remoteConfigString` parsed as a JSON object (see `parseRemoteConfig`); parsed afresh on
  /// every call.
  std::optional<foundation::JsonValue> remoteConfig() const;

  friend bool operator==(const AdaptyPaywall&, const AdaptyPaywall&) = default;
};

/// A remote configuration read the way the platform's JSON parser reads it without options:
/// strict UTF-8 JSON whose top-level value is an object or an array (bare strings, numbers,
/// `true`, `false` and `null` are refused). The result is the object, with its members in
/// document order; absent for no text, text that is not such JSON, and a top-level array.
/// Nothing is reported or logged. Any bytes at all are safe to pass in.
///
///     parseRemoteConfig(R"({"variant_id": "b"})")  ->  the object {"variant_id": "b"}
///     parseRemoteConfig("[1, 2]")                  ->  nullopt
///     parseRemoteConfig("\"text\"")                ->  nullopt
std::optional<foundation::JsonValue> parseRemoteConfig(std::optional<std::string_view> text);

}  // namespace velquist::adapty
VELQUIST_API_END
