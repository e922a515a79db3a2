#include "driver/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include <gtest/gtest.h>

#include "support/child_process.h"

namespace {

TEST(StandardStreams, AreOccupiedWhereTheyAreClosed) {
  for (const int closed : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    EXPECT_TRUE(test::passes_in_child([closed] {
      ::close(closed);
      harbix::occupy_closed_streams();
      EXPECT_NE(closed, ::open("/dev/null", O_RDWR | O_CLOEXEC));
      char byte = 'x';
      EXPECT_EQ(-1, ::write(closed, &byte, 1));
      EXPECT_EQ(EBADF, errno);
      EXPECT_EQ(-1, ::read(closed, &byte, 1));
      EXPECT_EQ(EBADF, errno);
      EXPECT_EQ(FD_CLOEXEC, ::fcntl(closed, F_GETFD));
    })) << closed;
  }
}

TEST(StandardStreams, StayAsTheyAreWhereTheyAreOpen) {
  EXPECT_TRUE(test::passes_in_child([] {
    const int next = ::dup(STDIN_FILENO);
    ASSERT_EQ(0, ::close(next));
    harbix::occupy_closed_streams();
    EXPECT_EQ(next, ::dup(STDIN_FILENO));
  }));
}

}  // namespace
