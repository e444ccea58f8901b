#include "velquist/usersettings/user_settings_client.h"

#include <utility>

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

UserSettingsClient UserSettingsClient::live() { return over(foundation::UserDefaults::standard()); }

UserSettingsClient UserSettingsClient::inMemory() {
  return over(std::make_shared<foundation::InMemoryUserDefaults>());
}

}  // namespace velquist::usersettings
