#include "driver/process.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "base/file_descriptor.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

TEST(Signals, LetAWriteToAClosedPipeFail) {
  EXPECT_TRUE(passes_in_child([] {
    harbix::let_writes_fail();
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    ::close(ends[0]);
    EXPECT_EQ(::write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
  }));
}

TEST(Signals, LetAWriteBeyondTheFileSizeLimitFail) {
  const TemporaryFolder folder;
  EXPECT_TRUE(passes_in_child([&folder] {
    harbix::let_writes_fail();
    const struct ::rlimit none { .rlim_cur = 0, .rlim_max = 0 };
    const base::FileDescriptor file(::open((folder / "f").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &none), 0);
    EXPECT_EQ(::write(file.get(), "x", 1), -1);
    EXPECT_EQ(errno, EFBIG);
  }));
}

TEST(Signals, KeepTheirUsualMeaningInProgramsThatAreStarted) {
  EXPECT_TRUE(passes_in_child([] {
    harbix::let_writes_fail();
    // The shell dies of a signal that it did not inherit as ignored.
    EXPECT_EQ(WEXITSTATUS(std::system("sh -c 'kill -PIPE $$; exit 0'")), 128 + SIGPIPE);  // NOLINT
  }));
}

template <typename Error>
void fail() {
  throw Error();
}

/// Like a destructor that fails.
template <typename Error>
void unwind() noexcept {
  fail<Error>();
}

TEST(LackOfMemory, EndsTheProcessWithStatusTwoWhereItCannotBeCaught) {
  EXPECT_EXIT(
      {
        survive_lack_of_memory();
        unwind<std::bad_alloc>();
      },
      testing::ExitedWithCode(2), "^ERROR: Out of memory\n$");
}

TEST(LackOfMemory, LeavesOtherErrorsThatCannotBeCaughtAsTheyAre) {
  EXPECT_EXIT(
      {
        survive_lack_of_memory();
        unwind<std::bad_function_call>();
      },
      testing::KilledBySignal(SIGABRT), "bad_function_call");
}

TEST(StandardStreams, AreOccupiedWhereTheyAreClosed) {
  for (const int closed : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    EXPECT_TRUE(passes_in_child([closed] {
      ::close(closed);
      harbix::occupy_closed_streams();
      EXPECT_NE(closed, ::open("/dev/null", O_RDWR | O_CLOEXEC));
      char byte = 'x';
      EXPECT_EQ(::write(closed, &byte, 1), -1);
      EXPECT_EQ(errno, EBADF);
      EXPECT_EQ(::read(closed, &byte, 1), -1);
      EXPECT_EQ(errno, EBADF);
      EXPECT_EQ(::fcntl(closed, F_GETFD), FD_CLOEXEC);
    })) << closed;
  }
}

TEST(StandardStreams, StayAsTheyAreWhereTheyAreOpen) {
  EXPECT_TRUE(passes_in_child([] {
    const int next = ::dup(STDIN_FILENO);
    ASSERT_EQ(::close(next), 0);
    harbix::occupy_closed_streams();
    EXPECT_EQ(::dup(STDIN_FILENO), next);
  }));
}

}  // namespace
}  // namespace harbix::test
