#include "archive/output_file.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <span>
#include <string>

#include <gtest/gtest.h>

#include "archive/error.h"
#include "tests/support/archive.h"
#include "tests/support/captured_output.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using harbix::OutputFile;

std::span<const std::byte> bytes(const std::string& text) { return std::as_bytes(std::span(text)); }

TEST(OutputFile, IsCreatedWithMode0666LessTheMask) {
  const TemporaryFolder folder;
  const mode_t before = ::umask(027);
  OutputFile output(folder / "a");
  ::umask(before);
  EXPECT_EQ(output.close(), 0);
  EXPECT_TRUE((Tree{file("a", "", 0640)}.matches(folder.path())));
}

TEST(OutputFile, TruncatesWhatWasThere) {
  const TemporaryFolder folder;
  write_file(folder / "a", "something longer");
  OutputFile output(folder / "a");
  output.write(bytes("new"));
  EXPECT_EQ(output.close(), 0);
  EXPECT_EQ(read_file(folder / "a"), "new");
}

TEST(OutputFile, LeavesWhatWasThereUntilTheFirstByteIsWrittenOut) {
  const TemporaryFolder folder;
  write_file(folder / "a", "yesterday");
  {
    OutputFile output(folder / "a");
    EXPECT_EQ(output.write(bytes("gathered")), 0);
  }
  EXPECT_EQ(read_file(folder / "a"), "yesterday");
}

TEST(OutputFile, LeavesNoFileThatItMadeForNothing) {
  const TemporaryFolder folder;
  { const OutputFile output(folder / "a"); }
  EXPECT_TRUE(Tree{}.matches(folder.path()));
}

TEST(OutputFile, TakesStandardOutputForAnEmptyName) {
  const CapturedOutput captured(STDOUT_FILENO);
  OutputFile output("");
  output.write(bytes("text"));
  EXPECT_EQ(output.close(), 0);
  EXPECT_EQ(captured.text(), "text");
}

TEST(OutputFile, KeepsEveryByteInOrderAcrossItsGatheredWrites) {
  const TemporaryFolder folder;
  std::string expected;
  OutputFile output(folder / "a");
  // Pieces that never meet the size of the gathered write, and one that is larger than it.
  for (std::size_t i = 0; i < 3000; ++i) {
    const std::string piece(i % 777 + 1, static_cast<char>('a' + i % 26));
    expected += piece;
    EXPECT_EQ(output.write(bytes(piece)), 0);
  }
  const std::string large((std::size_t{3} << 20) + 5, 'L');
  expected += large;
  EXPECT_EQ(output.write(bytes(large)), 0);
  EXPECT_EQ(output.size(), static_cast<std::int64_t>(expected.size()));
  EXPECT_EQ(output.close(), 0);
  EXPECT_TRUE(expected == read_file(folder / "a"));
}

TEST(OutputFile, TakesWhatIsPutIntoItsRoomInOrderWithWhatIsNot) {
  const TemporaryFolder folder;
  OutputFile output(folder / "a");
  std::string expected;
  for (std::size_t i = 0; i < 300; ++i) {
    const std::string header(512, static_cast<char>('A' + i % 26));
    EXPECT_EQ(output.write(bytes(header)), 0);
    // Small, larger than any room, and in between.
    std::string contents(i % 50 == 0 ? 1'000'000 : i * 131 % 70'000, static_cast<char>('a' + i % 26));
    expected += header + contents;
    for (std::span<const std::byte> rest = bytes(contents); !rest.empty();) {
      const std::span<std::byte> room = output.room(rest.size() + 1);
      ASSERT_GE(room.size(), std::min<std::size_t>(rest.size(), 60'000));
      const std::span<const std::byte> part = rest.first(std::min(room.size(), rest.size()));
      std::ranges::copy(part, room.begin());
      // In two pieces, as a library may hand it on.
      EXPECT_EQ(output.write(room.first(part.size() / 3)), 0);
      EXPECT_EQ(output.write(room.first(part.size()).subspan(part.size() / 3)), 0);
      rest = rest.subspan(part.size());
    }
  }
  EXPECT_EQ(output.close(), 0);
  EXPECT_TRUE(read_file(folder / "a") == expected);
}

TEST(OutputFile, TellsWhyItCannotBeOpened) {
  EXPECT_EQ(message_of<harbix::ArchiveError>([] { const OutputFile output("/nonexistent/a.tar"); }),
            "Archive error: Failed to open '/nonexistent/a.tar': No such file or directory");
  EXPECT_EQ(message_of<harbix::ArchiveError>([] { const OutputFile output("/"); }),
            "Archive error: Failed to open '/': Is a directory");
}

TEST(OutputFile, TellsOfAFullDiskAtTheVeryEnd) {
  OutputFile output("/dev/full");
  EXPECT_EQ(output.write(bytes("gathered, so far")), 0);
  EXPECT_EQ(output.close(), ENOSPC);
}

TEST(OutputFile, RemembersTheFirstFailure) {
  OutputFile output("/dev/full");
  EXPECT_EQ(output.write(bytes(std::string(std::size_t{1} << 20, 'x'))), ENOSPC);
  EXPECT_EQ(output.write(bytes("more")), ENOSPC);
  EXPECT_EQ(output.close(), ENOSPC);
}

TEST(OutputFile, TellsOfAClosedPipe) {
  EXPECT_TRUE(passes_in_child([] {
    ASSERT_NE(std::signal(SIGPIPE, SIG_IGN), SIG_ERR);
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    ::close(ends[0]);
    OutputFile output("/proc/self/fd/" + std::to_string(ends[1]));
    output.write(bytes("text"));
    EXPECT_EQ(output.close(), EPIPE);
  }));
}

TEST(OutputFile, WritesNothingBehindAWriteThatFailed) {
  const TemporaryFolder folder;
  EXPECT_TRUE(passes_in_child([&folder] {
    ASSERT_NE(std::signal(SIGXFSZ, SIG_IGN), SIG_ERR);
    constexpr std::size_t LIMIT = std::size_t{1536} << 10;
    const struct ::rlimit limit { .rlim_cur = LIMIT, .rlim_max = RLIM_INFINITY };
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    OutputFile output(folder / "a");
    EXPECT_EQ(output.write(bytes(std::string(std::size_t{3} << 20, 'x'))), EFBIG);
    const struct ::rlimit none { .rlim_cur = RLIM_INFINITY, .rlim_max = RLIM_INFINITY };
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &none), 0);
    EXPECT_EQ(output.write(bytes("behind the gap")), EFBIG);
    EXPECT_EQ(output.close(), EFBIG);
    EXPECT_EQ(read_file(folder / "a").size(), LIMIT);
  }));
}

TEST(OutputFile, KnowsItselfByItsStatus) {
  const TemporaryFolder folder;
  const OutputFile output(folder / "a");
  write_file(folder / "b", "");
  struct ::stat record {};
  ASSERT_EQ(::stat((folder / "a").c_str(), &record), 0);
  EXPECT_TRUE(output.is_described_by(record));
  ASSERT_EQ(::stat((folder / "b").c_str(), &record), 0);
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
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), FD_CLOEXEC);
  }
  EXPECT_EQ(found, 1);
}

}  // namespace
}  // namespace harbix::test
