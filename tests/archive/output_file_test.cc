#include "archive/output_file.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string>

#include <gtest/gtest.h>

#include "archive/archive_test_support.h"
#include "archive/error.h"
#include "support/captured_output.h"
#include "support/child_process.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using harbix::OutputFile;
using test::message_of;
using test::TemporaryFolder;

std::span<const std::byte> bytes(const std::string& text) { return std::as_bytes(std::span(text)); }

TEST(OutputFile, IsCreatedWithMode0666LessTheMask) {
  const TemporaryFolder folder;
  const mode_t before = ::umask(027);
  OutputFile output(folder / "a");
  ::umask(before);
  EXPECT_EQ(0, output.close());
  EXPECT_TRUE((test::Tree{test::file("a", "", 0640)}.matches(folder.path())));
}

TEST(OutputFile, TruncatesWhatWasThere) {
  const TemporaryFolder folder;
  test::write_file(folder / "a", "something longer");
  OutputFile output(folder / "a");
  output.write(bytes("new"));
  EXPECT_EQ(0, output.close());
  EXPECT_EQ("new", test::read_file(folder / "a"));
}

TEST(OutputFile, TakesStandardOutputForAnEmptyName) {
  const test::CapturedOutput captured(STDOUT_FILENO);
  OutputFile output("");
  output.write(bytes("text"));
  EXPECT_EQ(0, output.close());
  EXPECT_EQ("text", captured.text());
}

TEST(OutputFile, KeepsEveryByteInOrderAcrossItsGatheredWrites) {
  const TemporaryFolder folder;
  std::string expected;
  OutputFile output(folder / "a");
  // Pieces that never meet the size of the gathered write, and one that is larger than it.
  for (std::size_t i = 0; i < 3000; ++i) {
    const std::string piece(i % 777 + 1, static_cast<char>('a' + i % 26));
    expected += piece;
    EXPECT_EQ(0, output.write(bytes(piece)));
  }
  const std::string large((std::size_t{3} << 20) + 5, 'L');
  expected += large;
  EXPECT_EQ(0, output.write(bytes(large)));
  EXPECT_EQ(static_cast<std::int64_t>(expected.size()), output.size());
  EXPECT_EQ(0, output.close());
  EXPECT_TRUE(expected == test::read_file(folder / "a"));
}

TEST(OutputFile, TellsWhyItCannotBeOpened) {
  EXPECT_EQ("Archive error: Failed to open '/nonexistent/a.tar': No such file or directory",
            message_of<harbix::ArchiveError>([] { const OutputFile output("/nonexistent/a.tar"); }));
  EXPECT_EQ("Archive error: Failed to open '/': Is a directory",
            message_of<harbix::ArchiveError>([] { const OutputFile output("/"); }));
}

TEST(OutputFile, TellsOfAFullDiskAtTheVeryEnd) {
  OutputFile output("/dev/full");
  EXPECT_EQ(0, output.write(bytes("gathered, so far")));
  EXPECT_EQ(ENOSPC, output.close());
}

TEST(OutputFile, RemembersTheFirstFailure) {
  OutputFile output("/dev/full");
  EXPECT_EQ(ENOSPC, output.write(bytes(std::string(std::size_t{1} << 20, 'x'))));
  EXPECT_EQ(ENOSPC, output.write(bytes("more")));
  EXPECT_EQ(ENOSPC, output.close());
}

TEST(OutputFile, TellsOfAClosedPipe) {
  EXPECT_TRUE(test::passes_in_child([] {
    ASSERT_NE(SIG_ERR, std::signal(SIGPIPE, SIG_IGN));
    std::array<int, 2> ends{};
    ASSERT_EQ(0, ::pipe(ends.data()));
    ::close(ends[0]);
    OutputFile output("/proc/self/fd/" + std::to_string(ends[1]));
    output.write(bytes("text"));
    EXPECT_EQ(EPIPE, output.close());
  }));
}

TEST(OutputFile, WritesNothingBehindAWriteThatFailed) {
  const TemporaryFolder folder;
  EXPECT_TRUE(test::passes_in_child([&folder] {
    ASSERT_NE(SIG_ERR, std::signal(SIGXFSZ, SIG_IGN));
    constexpr std::size_t LIMIT = std::size_t{1536} << 10;
    const struct ::rlimit limit { .rlim_cur = LIMIT, .rlim_max = RLIM_INFINITY };
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &limit));
    OutputFile output(folder / "a");
    EXPECT_EQ(EFBIG, output.write(bytes(std::string(std::size_t{3} << 20, 'x'))));
    const struct ::rlimit none { .rlim_cur = RLIM_INFINITY, .rlim_max = RLIM_INFINITY };
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &none));
    EXPECT_EQ(EFBIG, output.write(bytes("behind the gap")));
    EXPECT_EQ(EFBIG, output.close());
    EXPECT_EQ(LIMIT, test::read_file(folder / "a").size());
  }));
}

TEST(OutputFile, KnowsItselfByItsStatus) {
  const TemporaryFolder folder;
  const OutputFile output(folder / "a");
  test::write_file(folder / "b", "");
  struct ::stat record {};
  ASSERT_EQ(0, ::stat((folder / "a").c_str(), &record));
  EXPECT_TRUE(output.is_described_by(record));
  ASSERT_EQ(0, ::stat((folder / "b").c_str(), &record));
  EXPECT_FALSE(output.is_described_by(record));
}

TEST(OutputFile, IsClosedInProgramsThatAreStarted) {
  const TemporaryFolder folder;
  const OutputFile output(folder / "a");
  int found = 0;
  for (int descriptor = 3; descriptor < 64; ++descriptor) {
    struct ::stat record {};
    if (::fstat(descriptor, &record) == -1 || !output.is_described_by(record)) continue;
    ++found;
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(descriptor, F_GETFD));
  }
  EXPECT_EQ(1, found);
}

}  // namespace
