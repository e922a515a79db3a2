#include "fs/space.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Folder;
using fs::free_space;
using fs::Path;
using fs::removable_space;

std::uint64_t bytes_of(const std::string& path) {
  struct ::stat record {};
  EXPECT_EQ(::lstat(path.c_str(), &record), 0) << path;
  return static_cast<std::uint64_t>(record.st_blocks) * 512;
}

TEST(FreeSpaceTest, IsWhatAUserWithoutPrivilegesCanWrite) {
  const TemporaryFolder temporary;
  struct ::statvfs system {};
  ASSERT_EQ(::statvfs(temporary.path().c_str(), &system), 0);
  const std::uint64_t found = free_space(Folder(Path(temporary.path())));
  const std::uint64_t expected = std::uint64_t{system.f_bavail} * system.f_frsize;
  // Other programs write meanwhile.
  EXPECT_NEAR(static_cast<double>(found), static_cast<double>(expected), 1e9);
  EXPECT_GT(found, 0U);
}

TEST(RemovableSpaceTest, IsWhatTheRemovalOfATreeFreesAtLeast) {
  const TemporaryFolder temporary;
  const std::string top = temporary / "top";
  std::filesystem::create_directories(top + "/folder");
  write_file(top + "/large", std::string(100000, 'x'));
  write_file(top + "/folder/small", "x");
  write_file(top + "/kept", std::string(50000, 'x'));
  std::filesystem::create_hard_link(top + "/kept", temporary / "elsewhere");

  Folder folder{Path(temporary.path())};
  EXPECT_EQ(removable_space(folder, Path("top")),
            bytes_of(top + "/large") + bytes_of(top + "/folder/small") + bytes_of(top + "/folder"));
  EXPECT_GE(removable_space(folder, Path("top")), 100000U);
}

TEST(RemovableSpaceTest, IsNothingWhereNothingCanBeLookedAt) {
  const TemporaryFolder temporary;
  Folder folder{Path(temporary.path())};
  EXPECT_EQ(removable_space(folder, Path("none")), 0U);
}

}  // namespace
}  // namespace harbix::test
