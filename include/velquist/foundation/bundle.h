#pragma once

#include "velquist/export.h"
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "velquist/foundation/json.h"

VELQUIST_API_BEGIN
namespace velquist::foundation {

/// The application bundle's description of itself: its information dictionary, with keys
/// such as "CFBundleIdentifier". The host sets the main bundle's dictionary at start-up
/// (tests set their own); when nothing was set, the main bundle's identifier is read from
/// the environment variable VELQUIST_BUNDLE_ID (read at each call; empty counts as unset),
/// and without that there is no dictionary. Likewise the host (or the sandbox store) says
/// where the application's store receipt lives; until it does there is no receipt location.
///
/// Thread-safe: the main bundle may be read and replaced from any thread.
class Bundle {
 public:
  /// The main bundle of the process.
  static Bundle main();

  /// Replaces the main bundle's information dictionary (an object; any other value leaves the
  /// bundle without one); nothing returns to the environment's.
  static void setMainInfoDictionary(std::optional<JsonValue> dictionary);

  /// Sets where the main bundle's store receipt file is (none: no receipt location).
  static void setMainAppStoreReceiptURL(std::optional<std::filesystem::path> url);

  /// The information dictionary, an object; absent when the bundle has none.
  std::optional<JsonValue> infoDictionary() const;
  /// The value for one key of the information dictionary, of whatever JSON kind.
  std::optional<JsonValue> objectForInfoDictionaryKey(std::string_view key) const;
  /// The "CFBundleIdentifier" value when it is text.
  std::optional<std::string> bundleIdentifier() const;
  /// Where the store receipt of the application is kept, whether or not the file exists
  /// yet; absent while no location was set.
  std::optional<std::filesystem::path> appStoreReceiptURL() const;

 private:
  Bundle() = default;
};

}  // namespace velquist::foundation
VELQUIST_API_END
