#include "driver/process.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "base/file_descriptor.h"
#include "support/child_process.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

TEST(Signals, LetAWriteToAClosedPipeFail) {
  EXPECT_TRUE(test::passes_in_child([] {
    harbix::let_writes_fail();
    std::array<int, 2> ends{};
    ASSERT_EQ(0, ::pipe(ends.data()));
    ::close(ends[0]);
    EXPECT_EQ(-1, ::write(ends[1], "x", 1));
    EXPECT_EQ(EPIPE, errno);
  }));
}

TEST(Signals, LetAWriteBeyondTheFileSizeLimitFail) {
  const test::TemporaryFolder folder;
  EXPECT_TRUE(test::passes_in_child([&folder] {
    harbix::let_writes_fail();
    const struct ::rlimit none { .rlim_cur = 0, .rlim_max = 0 };
    const base::FileDescriptor file(::open((folder / "f").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &none));
    EXPECT_EQ(-1, ::write(file.get(), "x", 1));
    EXPECT_EQ(EFBIG, errno);
  }));
}

TEST(Signals, KeepTheirUsualMeaningInProgramsThatAreStarted) {
  EXPECT_TRUE(test::passes_in_child([] {
    harbix::let_writes_fail();
    // The shell dies of a signal that it did not inherit as ignored.
    EXPECT_EQ(128 + SIGPIPE, WEXITSTATUS(std::system("sh -c 'kill -PIPE $$; exit 0'")));  // NOLINT
  }));
}

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
