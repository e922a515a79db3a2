#include "device/accounts.h"

#include <map>
#include <set>
#include <sstream>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace harbix::test {
namespace {

std::vector<std::vector<std::string>> records(const std::string& text) {
  std::vector<std::vector<std::string>> result;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    result.emplace_back();
    // A colon more, so that an empty last field counts.
    std::istringstream fields(line + ":");
    for (std::string field; std::getline(fields, field, ':');) result.back().push_back(field);
  }
  return result;
}

TEST(DeviceAccounts, HaveEveryGroupOnce) {
  std::set<std::string> names;
  std::set<std::string> ids;
  for (const auto& fields : records(device::group_text())) {
    ASSERT_EQ(fields.size(), 4U);
    EXPECT_TRUE(names.insert(fields[0]).second) << fields[0];
    EXPECT_TRUE(ids.insert(fields[2]).second) << fields[0];
    EXPECT_EQ(fields[3], "") << fields[0] << " has members";
  }
  for (const char* name : {"root", "1000_shared", "media", "protected_media", "1000_sys", "apps", "upd",
                           "shopvale", "websl", "nogroup", "daemon"}) {
    EXPECT_TRUE(names.contains(name)) << name;
  }
  EXPECT_TRUE(ids.contains("1000"));
}

TEST(DeviceAccounts, HaveEveryUserOnceWithAGroupThatExists) {
  std::set<std::string> groups;
  for (const auto& fields : records(device::group_text())) groups.insert(fields[2]);
  std::map<std::string, std::string> users;
  for (const auto& fields : records(device::passwd_text())) {
    ASSERT_EQ(fields.size(), 7U);
    EXPECT_TRUE(users.emplace(fields[0], fields[2]).second) << fields[0];
    EXPECT_TRUE(groups.contains(fields[3])) << fields[0];
  }
  for (const char* name : {"root", "media", "apps", "upd", "nobody", "daemon"}) {
    EXPECT_TRUE(users.contains(name)) << name;
  }
  EXPECT_EQ(users["root"], "0");
}

TEST(DeviceAccounts, KeepTheMediaUserOutOfTheSharedGroup) {
  EXPECT_THAT(device::passwd_text(), testing::HasSubstr("\nmedia:x:10113:10113:"));
  EXPECT_NE(device::MEDIA_GROUP, device::SHARED_GROUP);
}

}  // namespace
}  // namespace harbix::test
