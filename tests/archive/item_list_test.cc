#include "archive/item_list.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace harbix::test {
namespace {

using fs::File;
using fs::Path;

struct ::stat status(ino_t inode, mode_t mode, off_t size) {
  struct ::stat record {};
  record.st_dev = 7;
  record.st_ino = inode;
  record.st_mode = mode;
  record.st_uid = 11;
  record.st_gid = 12;
  record.st_size = size;
  record.st_mtim.tv_sec = -13;
  return record;
}

TEST(ItemList, GivesBackPathsAsTheyWere) {
  const std::vector<Path> paths{"a",    "a/b",  "a/c",    "a/c/d", "/x", "/",  "/apps/x/y",
                                "a//b", "a/b/", "../a/b", "",      "a",  "a/b"};
  ItemList list;
  for (const Path& path : paths) list.add(File(path, {}));
  ASSERT_EQ(list.size(), paths.size());
  for (std::size_t i = 0; i < paths.size(); ++i) {
    EXPECT_EQ(list[i].path(), paths[i]) << i;
    EXPECT_EQ(list.name(i), paths[i].basename().text()) << i;
  }
}

TEST(ItemList, GivesBackWhatRecordsAndIdentityNeed) {
  ItemList list;
  list.add(File("a", status(1, S_IFREG | 0640, off_t{1} << 40)));
  struct ::stat other = status(ino_t{1} << 60, S_IFDIR | 0755, 4096);
  other.st_dev = 8;
  list.add(File("b", other));
  EXPECT_TRUE(list.is_regular(0));
  EXPECT_FALSE(list.is_regular(1));
  EXPECT_EQ(list.bytes(0), std::int64_t{1} << 40);
  EXPECT_TRUE(list[0].is_same_object(status(1, 0, 0)));
  EXPECT_TRUE(list[1].is_same_object(other));
  const struct ::stat found = list[0].record();
  EXPECT_EQ(found.st_mode, static_cast<mode_t>(S_IFREG | 0640));
  EXPECT_EQ(found.st_uid, 11U);
  EXPECT_EQ(found.st_gid, 12U);
  EXPECT_EQ(found.st_size, off_t{1} << 40);
  EXPECT_EQ(found.st_mtim.tv_sec, -13);
}

TEST(ItemList, KeepsMoreThanOneBlockHoldsAndPathsThatAreLargerThanOne) {
  constexpr std::size_t COUNT = 3000;
  const std::string deep(100'000, 'd');
  ItemList list;
  const auto path = [&](std::size_t i) {
    const std::string name = std::string(50, 'n') + std::to_string(i);
    return Path(i % 1000 == 5 ? deep + "/" + name : "a/" + name);
  };
  for (std::size_t i = 0; i < COUNT; ++i) list.add(File(path(i), {}));
  for (std::size_t i = 0; i < COUNT; ++i) ASSERT_EQ(list[i].path(), path(i)) << i;
}

TEST(ItemList, KeepsItsOrderBehindWhatIsTakenOut) {
  ItemList list;
  for (const char* name : {"d/a", "d/b", "d/c"}) list.add(File(name, {}));
  list.remove(1);
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0].path(), Path("d/a"));
  EXPECT_EQ(list[1].path(), Path("d/c"));
}

}  // namespace
}  // namespace harbix::test
