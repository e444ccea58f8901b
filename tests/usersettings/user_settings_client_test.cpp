#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "velquist/foundation/bundle.h"
#include "velquist/usersettings/user_settings_client.h"

namespace velquist::usersettings {
namespace {

using Bytes = UserSettingsClient::Bytes;

TEST(UserSettingsClient, StoresReplacesAndRemovesBytesByKey) {
  const auto defaults = std::make_shared<foundation::InMemoryUserDefaults>();
  const UserSettingsClient settings = UserSettingsClient::over(defaults), copy = settings;  // copies share the storage
  EXPECT_EQ(settings.data("k"), std::nullopt);
  settings.setData(Bytes{'T', '1'}, "k");
  EXPECT_EQ(copy.data("k"), (Bytes{'T', '1'}));
  EXPECT_EQ(defaults->dataForKey("k"), (Bytes{'T', '1'}));  // kept in the defaults given
  copy.setData(Bytes{}, "k");
  EXPECT_EQ(settings.data("k"), Bytes{});  // empty bytes are a value
  settings.setData(Bytes{0xff}, "other");
  settings.setData(std::nullopt, "k");
  EXPECT_EQ(defaults->dataForKey("k"), std::nullopt);
  EXPECT_EQ(settings.data("other"), Bytes{0xff});
  defaults->setString("T1", "text");
  EXPECT_EQ(settings.data("text"), std::nullopt);  // text is not bytes
  const auto first = UserSettingsClient::inMemory(), second = UserSettingsClient::inMemory();
  first.setData(Bytes{1}, "k");
  EXPECT_EQ(first.data("k"), Bytes{1});
  EXPECT_EQ(second.data("k"), std::nullopt);  // separately made in-memory clients do not share
}

// The live client and the standard defaults share a key name, never storage: each keeps
// what it wrote under the same key, in a file of its own.
TEST(UserSettingsClient, LiveKeepsItsBytesApartFromTheStandardDefaults) {
  const auto home = std::filesystem::temp_directory_path() / ("velquist_settings_" + std::to_string(::getpid()));
  ::setenv("VELQUIST_HOME", home.c_str(), 1);  // read once, when the two stores are first used
  const std::string key = "com.velquist-core.PaymentQueueObserver.originalTransactionIDs";
  UserSettingsClient::live().setData(Bytes{'a', ',', 'b'}, key);
  foundation::UserDefaults::standard()->setString("c", key);
  EXPECT_EQ(UserSettingsClient::live().data(key), (Bytes{'a', ',', 'b'}));
  EXPECT_EQ(foundation::UserDefaults::standard()->stringForKey(key), "c");
  const auto standardFile = foundation::standardUserDefaultsPath(home, foundation::Bundle::main().bundleIdentifier());
  const auto settingsFile = userSettingsPath(home, foundation::Bundle::main().bundleIdentifier());
  EXPECT_EQ(foundation::FileUserDefaults(settingsFile).dataForKey(key), (Bytes{'a', ',', 'b'}));
  EXPECT_EQ(foundation::FileUserDefaults(standardFile).stringForKey(key), "c");
  EXPECT_EQ(userSettingsPath("/d", "com.example.app"), std::filesystem::path("/d/com.example.app.user-settings.json"));
  std::filesystem::remove_all(home);
}

}  // namespace
}  // namespace velquist::usersettings
