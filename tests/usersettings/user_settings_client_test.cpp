#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "velquist/usersettings/user_settings_client.h"

namespace velquist::usersettings {
namespace {

using Bytes = UserSettingsClient::Bytes;

TEST(UserSettingsClient, StoresReplacesAndRemovesBytesByKey) {
  const auto folder = std::filesystem::temp_directory_path() / ("velquist_settings_" + std::to_string(::getpid()));
  const auto file = folder / "settings.json";
  const struct {
    std::string name;
    std::function<UserSettingsClient()> make;
  } clients[] = {
      {"in memory", [] { return UserSettingsClient::inMemory(); }},
      {"over file defaults", [&] { return UserSettingsClient::over(std::make_shared<foundation::FileUserDefaults>(file)); }},
  };
  for (const auto& client : clients) {
    std::filesystem::remove_all(folder);
    UserSettingsClient settings = client.make();
    const UserSettingsClient copy = settings;  // copies share the storage
    EXPECT_EQ(settings.data("k"), std::nullopt) << client.name;
    settings.setData(Bytes{'T', '1'}, "k");
    EXPECT_EQ(copy.data("k"), (Bytes{'T', '1'})) << client.name;
    copy.setData(Bytes{}, "k");
    EXPECT_EQ(settings.data("k"), Bytes{}) << client.name;  // empty bytes are a value
    settings.setData(Bytes{0xff}, "other");
    settings.setData(std::nullopt, "k");
    EXPECT_EQ(settings.data("k"), std::nullopt) << client.name;
    EXPECT_EQ(settings.data("other"), Bytes{0xff}) << client.name;
  }
  // Separately made in-memory clients do not share.
  const auto first = UserSettingsClient::inMemory(), second = UserSettingsClient::inMemory();
  first.setData(Bytes{1}, "k");
  EXPECT_EQ(second.data("k"), std::nullopt);
  // Text set in the defaults is not bytes.
  const auto defaults = std::make_shared<foundation::InMemoryUserDefaults>();
  defaults->setString("T1", "k");
  EXPECT_EQ(UserSettingsClient::over(defaults).data("k"), std::nullopt);
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace velquist::usersettings
