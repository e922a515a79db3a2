#include "fs/accounts.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/folder.h"
#include "tests/support/root.h"

namespace harbix::test {
namespace {

TEST(Accounts, AreLookedUpByName) {
  EXPECT_EQ(fs::user_id("root"), 0U);
  EXPECT_EQ(fs::user_id("daemon"), 1U);
  EXPECT_EQ(fs::user_id("nobody"), 65534U);
  EXPECT_EQ(fs::group_id("root"), 0U);
  EXPECT_EQ(fs::group_id("daemon"), 1U);
  EXPECT_EQ(fs::group_id("nogroup"), 65534U);
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
  EXPECT_EQ(refusal([] { return fs::user_id("nosuch"); }), "User 'nosuch' does not exist");
  EXPECT_EQ(refusal([] { return fs::user_id(""); }), "User '' does not exist");
  EXPECT_EQ(refusal([] { return fs::group_id("nosuch"); }), "Group 'nosuch' does not exist");
  EXPECT_EQ(refusal([] { return fs::group_id(""); }), "Group '' does not exist");
}

TEST(Accounts, WithALineOfManyMembersAreFoundAmongThem) {
  const TemporaryFolder root;
  std::filesystem::create_directory(root / "etc");
  {
    std::ofstream groups(root / "etc/group");
    groups << "many:x:4711:";
    for (int number = 0; number < 5000; ++number) groups << "member" << number << ',';
    groups << "last\nfew:x:4712:\n";
  }
  EXPECT_TRUE(passes_in_root(root.path(), [] {
    EXPECT_EQ(fs::group_id("many"), 4711U);
    EXPECT_EQ(fs::group_id("few"), 4712U);
  }));
}

}  // namespace
}  // namespace harbix::test
