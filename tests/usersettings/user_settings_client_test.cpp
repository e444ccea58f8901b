#include <gtest/gtest.h>

#include <memory>
#include <string>

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
  EXPECT_EQ(settings.data("k"), std::nullopt);
  EXPECT_EQ(defaults->dataForKey("k"), std::nullopt);
  EXPECT_EQ(settings.data("other"), Bytes{0xff});
  defaults->setString("T1", "text");
  EXPECT_EQ(settings.data("text"), std::nullopt);  // text is not bytes
  const auto first = UserSettingsClient::inMemory(), second = UserSettingsClient::inMemory();
  first.setData(Bytes{1}, "k");
  EXPECT_EQ(first.data("k"), Bytes{1});
  EXPECT_EQ(second.data("k"), std::nullopt);  // separately made in-memory clients do not share
}

}  // namespace
}  // namespace velquist::usersettings
