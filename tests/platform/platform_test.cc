#include <cerrno>
#include <cstdio>

#include <gtest/gtest.h>

#include "platform/directory.h"
#include "platform/path_manager.h"
#include "platform/streams.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

TEST(PathManager, HasNoLinksOnLinux) {
  errno = 0;
  EXPECT_EQ(platform::pathmgr_unlink("/tmp/link"), -1);
  EXPECT_EQ(errno, ENOSYS);
}

TEST(Directory, TakesTheRequestForStatusRecords) {
  EXPECT_EQ(platform::dircntl(nullptr, platform::D_SETFLAG, platform::D_FLAG_STAT), 0);
}

TEST(Streams, FlushWritesOutWhatIsBuffered) {
  const TemporaryFolder folder;
  std::FILE* stream = std::fopen((folder / "file").c_str(), "we");
  ASSERT_NE(stream, nullptr);
  std::fputs("text", stream);
  EXPECT_EQ(read_file(folder / "file"), "");
  EXPECT_EQ(platform::flushall(), 0);
  EXPECT_EQ(read_file(folder / "file"), "text");
  EXPECT_EQ(std::fclose(stream), 0);
}

TEST(Streams, FlushTellsOfAStreamThatCannotBeWritten) {
  std::FILE* stream = std::fopen("/dev/full", "we");
  ASSERT_NE(stream, nullptr);
  std::fputs("text", stream);
  EXPECT_EQ(platform::flushall(), EOF);
  EXPECT_EQ(errno, ENOSPC);
  std::fclose(stream);
}

}  // namespace
}  // namespace harbix::test
