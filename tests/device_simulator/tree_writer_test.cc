#include "device/tree_writer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device/failure.h"
#include "tests/support/device_process.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using device::TreeWriter;

struct stat status_of(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

class TreeWriterTest : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_ROOT(); }

  TemporaryFolder folder_;
  TreeWriter tree_{folder_ / ""};
};

TEST_F(TreeWriterTest, GivesOwnerAndModeWhateverTheMask) {
  const mode_t before = ::umask(0777);
  tree_.folder("/f", {.user = 11, .group = 12}, 02750);
  tree_.file("/f/a", {.user = 13, .group = 14}, 04711, "text");
  tree_.link("/f/l", {.user = 15, .group = 16}, "nowhere");
  ::umask(before);
  const struct stat folder = status_of(folder_ / "f");
  EXPECT_EQ(folder.st_mode, S_IFDIR | 02750U);
  EXPECT_EQ(folder.st_uid, 11U);
  EXPECT_EQ(folder.st_gid, 12U);
  const struct stat file = status_of(folder_ / "f/a");
  EXPECT_EQ(file.st_mode, S_IFREG | 04711U);
  EXPECT_EQ(file.st_uid, 13U);
  EXPECT_EQ(read_file(folder_ / "f/a"), "text");
  EXPECT_EQ(status_of(folder_ / "f/l").st_gid, 16U);
}

TEST_F(TreeWriterTest, GivesTimesThatDependOnNamesAlone) {
  tree_.folder("/f", {}, 0755);
  tree_.file("/f/a", {}, 0644, "one");
  tree_.finish();
  const TemporaryFolder other;
  TreeWriter again(other / "");
  again.folder("/f", {}, 0755);
  again.file("/f/a", {}, 0644, "two");
  again.finish();
  for (const char* name : {"f", "f/a"}) {
    EXPECT_EQ(status_of(folder_ / name).st_mtim.tv_sec, status_of(other / name).st_mtim.tv_sec) << name;
    EXPECT_LT(status_of(folder_ / name).st_mtim.tv_sec, 1420070400) << name;
  }
}

TEST_F(TreeWriterTest, MakesFilesWithHolesBeyondTwoGiB) {
  constexpr std::uint64_t SIZE = (std::uint64_t{3} << 30U) + 1;
  tree_.sparse_file("/big", {}, 0644, SIZE);
  EXPECT_EQ(status_of(folder_ / "big").st_size, SIZE);
  EXPECT_LT(status_of(folder_ / "big").st_blocks, 1024);
}

TEST_F(TreeWriterTest, QuotesThePathThatCouldNotBeMade) {
  tree_.file("/a", {}, 0644, "");
  const auto message = [](const auto& make) -> std::string {
    try {
      make();
    } catch (const device::Failure& failure) {
      return failure.what();
    }
    return "no failure";
  };
  EXPECT_EQ(message([&] { tree_.folder("/a", {}, 0755); }),
            "cannot create the folder '" + (folder_ / "a") + "': File exists");
  EXPECT_EQ(message([&] { tree_.file("/a", {}, 0644, ""); }),
            "cannot create '" + (folder_ / "a") + "': File exists");
  EXPECT_EQ(message([&] { tree_.link("/no/l", {}, "t"); }),
            "cannot create the link '" + (folder_ / "no/l") + "': No such file or directory");
}

}  // namespace
}  // namespace harbix::test
