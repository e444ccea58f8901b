#pragma once

#include "velquist/export.h"
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "velquist/foundation/user_defaults.h"

VELQUIST_API_BEGIN
namespace velquist::usersettings {

/// The application's settings as a record of two operations on bytes by key, so that a
/// feature can be given any storage (the real one, an in-memory one, a recording fake):
///
///     UserSettingsClient settings = UserSettingsClient::inMemory();
///     settings.setData(UserSettingsClient::Bytes{'a', 'b'}, "ids");
///     settings.data("ids");  // {'a', 'b'}
///     settings.setData(std::nullopt, "ids");
///     settings.data("ids");  // nothing
///
/// `data` reads the bytes stored under a key (absent when nothing is); `setData` stores
/// bytes under a key, or removes the key when given none; it cannot fail and returns once
/// the change is made (for the live value: once it is in the file).
///
/// A plain value: copies share the storage behind the operations. The values made here are
/// safe to use from any thread; a hand-made client is as safe as its functions.
struct UserSettingsClient {
  using Bytes = std::vector<std::uint8_t>;

  std::function<std::optional<Bytes>(const std::string& key)> data;
  std::function<void(std::optional<Bytes> value, const std::string& key)> setData;

  /// Over a file store of its own beside the application's standard defaults
  /// (`userSettingsPath`), so it never shares storage with `foundation::UserDefaults::standard()`;
  /// it survives restarts and crashes. Made on first use and kept until the process ends.
  static UserSettingsClient live();
  /// Over fresh storage of its own that lives as long as a copy of the client.
  static UserSettingsClient inMemory();
  /// Over the bytes values of the given defaults.
  static UserSettingsClient over(std::shared_ptr<foundation::UserDefaults> defaults);
};

/// The file of the live client's store in `directory`: the standard defaults file's name
/// with ".user-settings.json" in place of ".defaults.json".
///
///     userSettingsPath("/d", "com.example.app")  ->  "/d/com.example.app.user-settings.json"
std::filesystem::path userSettingsPath(const std::filesystem::path& directory,
                                       std::optional<std::string> applicationIdentifier);

}  // namespace velquist::usersettings
VELQUIST_API_END
