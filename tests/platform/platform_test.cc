#include <cerrno>
#include <cstdio>

#include <gtest/gtest.h>

#include "platform/directory.h"
#include "platform/path_manager.h"
#include "platform/streams.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

TEST(PathManager, HasNoLinksOnLinux) {
  errno = 0;
  EXPECT_EQ(-1, platform::pathmgr_unlink("/tmp/link"));
  EXPECT_EQ(ENOSYS, errno);
}

TEST(Directory, TakesTheRequestForStatusRecords) {
  EXPECT_EQ(0, platform::dircntl(nullptr, platform::D_SETFLAG, platform::D_FLAG_STAT));
}

TEST(Streams, FlushWritesOutWhatIsBuffered) {
  const test::TemporaryFolder folder;
  std::FILE* stream = std::fopen((folder / "file").c_str(), "we");
  ASSERT_NE(nullptr, stream);
  std::fputs("text", stream);
  EXPECT_EQ("", test::read_file(folder / "file"));
  EXPECT_EQ(0, platform::flushall());
  EXPECT_EQ("text", test::read_file(folder / "file"));
  EXPECT_EQ(0, std::fclose(stream));
}

TEST(Streams, FlushTellsOfAStreamThatCannotBeWritten) {
  std::FILE* stream = std::fopen("/dev/full", "we");
  ASSERT_NE(nullptr, stream);
  std::fputs("text", stream);
  EXPECT_EQ(EOF, platform::flushall());
  EXPECT_EQ(ENOSPC, errno);
  std::fclose(stream);
}

}  // namespace
