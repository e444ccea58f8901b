#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "velquist/usersettings/user_settings_client.h"

namespace velquist::usersettings {
namespace {

using Bytes = UserSettingsClient::Bytes;

TEST(UserSettingsClient, StoresReplacesAndRemovesBytesByKey) {
  const auto folder = std::filesystem::temp_directory_path() / ("velquist_settings_" + std::to_string(::getpid()));
  const std::function<UserSettingsClient()> makers[] = {
      [] { return UserSettingsClient::inMemory(); },
      [&] { return UserSettingsClient::over(std::make_shared<foundation::FileUserDefaults>(folder / "settings.json")); },
  };
  for (const auto& make : makers) {
    std::filesystem::remove_all(folder);
    const UserSettingsClient settings = make(), copy = settings;  // copies share the storage
    EXPECT_EQ(settings.data("k"), std::nullopt);
    settings.setData(Bytes{'T', '1'}, "k");
    EXPECT_EQ(copy.data("k"), (Bytes{'T', '1'}));
    copy.setData(Bytes{}, "k");
    EXPECT_EQ(settings.data("k"), Bytes{});  // empty bytes are a value
    settings.setData(Bytes{0xff}, "other");
    settings.setData(std::nullopt, "k");
    EXPECT_EQ(settings.data("k"), std::nullopt);
    EXPECT_EQ(settings.data("other"), Bytes{0xff});
  }
  std::filesystem::remove_all(folder);
  const auto first = UserSettingsClient::inMemory(), second = UserSettingsClient::inMemory();
  first.setData(Bytes{1}, "k");
  EXPECT_EQ(second.data("k"), std::nullopt);  // separately made in-memory clients do not share
  const auto defaults = std::make_shared<foundation::InMemoryUserDefaults>();
  defaults->setString("T1", "k");
  EXPECT_EQ(UserSettingsClient::over(defaults).data("k"), std::nullopt);  // text is not bytes
}

}  // namespace
}  // namespace velquist::usersettings
