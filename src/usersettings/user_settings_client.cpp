#include "velquist/usersettings/user_settings_client.h"

#include <utility>

#include "velquist/foundation/bundle.h"
#include "velquist/foundation/file_io.h"

namespace velquist::usersettings {

UserSettingsClient UserSettingsClient::over(std::shared_ptr<foundation::UserDefaults> defaults) {
  return {
      .data = [defaults](const std::string& key) { return defaults->dataForKey(key); },
      .setData =
          [defaults](std::optional<Bytes> value, const std::string& key) {
            if (value) {
              defaults->setData(std::move(*value), key);
            } else {
              defaults->removeObject(key);
            }
          },
  };
}

std::filesystem::path userSettingsPath(const std::filesystem::path& directory,
                                       std::optional<std::string> applicationIdentifier) {
  auto path = foundation::standardUserDefaultsPath(directory, std::move(applicationIdentifier));
  std::string name = path.filename().string();
  name.replace(name.size() - std::string_view(".defaults.json").size(), std::string_view::npos, ".user-settings.json");
  return path.replace_filename(name);
}

UserSettingsClient UserSettingsClient::live() {
  static const std::shared_ptr<foundation::UserDefaults> storage = std::make_shared<foundation::FileUserDefaults>(
      userSettingsPath(foundation::dataDirectory(), foundation::Bundle::main().bundleIdentifier()));
  return over(storage);
}

UserSettingsClient UserSettingsClient::inMemory() {
  return over(std::make_shared<foundation::InMemoryUserDefaults>());
}

}  // namespace velquist::usersettings
