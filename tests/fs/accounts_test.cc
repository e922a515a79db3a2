#include "fs/accounts.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "support/private_root.h"
#include "support/temporary_folder.h"

namespace {

TEST(Accounts, AreLookedUpByName) {
  EXPECT_EQ(0U, fs::user_id("root"));
  EXPECT_EQ(1U, fs::user_id("daemon"));
  EXPECT_EQ(65534U, fs::user_id("nobody"));
  EXPECT_EQ(0U, fs::group_id("root"));
  EXPECT_EQ(1U, fs::group_id("daemon"));
  EXPECT_EQ(65534U, fs::group_id("nogroup"));
}

template <typename Lookup>
std::string refusal(const Lookup& lookup) {
  try {
    static_cast<void>(lookup());
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

TEST(Accounts, ThatDoNotExistAreNamed) {
  EXPECT_EQ("User 'nosuch' does not exist", refusal([] { return fs::user_id("nosuch"); }));
  EXPECT_EQ("User '' does not exist", refusal([] { return fs::user_id(""); }));
  EXPECT_EQ("Group 'nosuch' does not exist", refusal([] { return fs::group_id("nosuch"); }));
  EXPECT_EQ("Group '' does not exist", refusal([] { return fs::group_id(""); }));
}

TEST(Accounts, WithALineOfManyMembersAreFoundAmongThem) {
  const test::TemporaryFolder root;
  std::filesystem::create_directory(root / "etc");
  {
    std::ofstream groups(root / "etc/group");
    groups << "many:x:4711:";
    for (int number = 0; number < 5000; ++number) groups << "member" << number << ',';
    groups << "last\nfew:x:4712:\n";
  }
  EXPECT_TRUE(test::passes_in_root(root.path(), [] {
    EXPECT_EQ(4711U, fs::group_id("many"));
    EXPECT_EQ(4712U, fs::group_id("few"));
  }));
}

}  // namespace
