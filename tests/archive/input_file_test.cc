#include "archive/input_file.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "archive/error.h"
#include "tests/support/archive.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using harbix::InputFile;

constexpr std::size_t BLOCK = std::size_t{256} << 10;

std::string text_of(std::span<const std::byte> block) {
  return {reinterpret_cast<const char*>(block.data()), block.size()};
}

std::string rest_of(InputFile& input) {
  std::string text;
  for (;;) {
    const auto block = input.read_block();
    if (!block || block->empty()) return text;
    text += text_of(*block);
  }
}

TEST(InputFile, HandsOverTheWholeFileAndThenNothing) {
  const TemporaryFolder folder;
  std::string content;
  while (content.size() < 2 * BLOCK + 7) content += std::to_string(content.size()) + ",";
  write_file(folder / "a", content);
  InputFile input(folder / "a");
  EXPECT_TRUE(content == rest_of(input));
  EXPECT_FALSE(input.is_empty());
  EXPECT_TRUE(input.read_block()->empty());
}

TEST(InputFile, OfZeroBytesIsEmpty) {
  const TemporaryFolder folder;
  write_file(folder / "a", "");
  InputFile input(folder / "a");
  EXPECT_TRUE(input.read_block()->empty());
  EXPECT_TRUE(input.is_empty());
}

TEST(InputFile, TellsWhyItCannotBeOpened) {
  EXPECT_EQ(message_of<harbix::ArchiveError>([] { const InputFile input("/nonexistent/a.tar"); }),
            "Archive error: Failed to open '/nonexistent/a.tar': No such file or directory");
}

TEST(InputFile, TellsWhyItCannotBeRead) {
  InputFile input("/");
  EXPECT_FALSE(input.read_block());
  EXPECT_EQ(errno, EISDIR);
}

TEST(InputFile, SkipsInARegularFileButNeverPastItsEnd) {
  const TemporaryFolder folder;
  write_file(folder / "a", std::string(1000, 'a') + std::string(1000, 'b'));
  InputFile input(folder / "a");
  EXPECT_TRUE(input.is_regular());
  EXPECT_EQ(input.skip(1500), 1500);
  EXPECT_EQ(input.skip(100000), 500);
  EXPECT_EQ(input.skip(1), 0);
  EXPECT_EQ(input.seek(1000, SEEK_SET), 1000);
  EXPECT_EQ(rest_of(input), std::string(1000, 'b'));
  EXPECT_EQ(input.seek(-1, SEEK_SET), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(InputFile, ReadsLittleBehindALongSkip) {
  const TemporaryFolder folder;
  write_file(folder / "a", std::string(8 * BLOCK, 'a'));
  InputFile input(folder / "a");
  const std::size_t first = input.read_block()->size();
  EXPECT_LT(first, BLOCK / 8);
  std::size_t size = first;
  while (size < BLOCK) EXPECT_EQ(input.read_block()->size(), size *= 2);
  EXPECT_EQ(input.read_block()->size(), BLOCK) << "as much as there is room for";
  EXPECT_EQ(input.skip(BLOCK - 1), BLOCK - 1);
  EXPECT_EQ(input.read_block()->size(), BLOCK) << "between small files";
  EXPECT_EQ(input.skip(BLOCK), BLOCK);
  EXPECT_EQ(input.read_block()->size(), first);
}

TEST(InputFile, SkipsInAPipeButNeverPastItsEnd) {
  EXPECT_TRUE(passes_in_child([] {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    const std::string text = std::string(20'000, 'a') + std::string(20'000, 'b');
    ASSERT_EQ(::write(ends[1], text.data(), text.size()), ssize_t{40'000});
    ASSERT_EQ(::fcntl(ends[0], F_SETFL, O_NONBLOCK), 0);
    ASSERT_EQ(::dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
    InputFile input("");
    EXPECT_EQ(input.skip(25'000), 25'000);
    EXPECT_EQ(input.position(), 25'000);
    EXPECT_EQ(text_of(*input.read_block()), std::string(15'000, 'b'));
    ASSERT_EQ(::write(ends[1], "text", 4), 4);
    ::close(ends[1]);
    EXPECT_EQ(input.skip(1'000'000), 4);
    EXPECT_EQ(input.skip(1), 0);
    EXPECT_TRUE(input.read_block()->empty());
    EXPECT_FALSE(input.is_empty());
  }));
}

TEST(InputFile, ReadsStandardInputForAnEmptyName) {
  EXPECT_TRUE(passes_in_child([] {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    ASSERT_EQ(::write(ends[1], "text", 4), 4);
    ::close(ends[1]);
    ASSERT_EQ(::dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
    InputFile input("");
    EXPECT_FALSE(input.is_regular());
    EXPECT_EQ(rest_of(input), "text");
  }));
}

TEST(InputFile, ReadsAwayWhatWaitsInAPipeAndWaitsForNoMore) {
  EXPECT_TRUE(passes_in_child([] {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    ASSERT_EQ(::write(ends[1], "text", 4), 4);
    ASSERT_EQ(::dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
    InputFile input("");
    input.drain();
    int waiting = -1;
    ASSERT_EQ(::ioctl(ends[0], FIONREAD, &waiting), 0);
    EXPECT_EQ(waiting, 0);
  }));
}

TEST(InputFile, TellsThatStandardInputIsClosed) {
  EXPECT_TRUE(passes_in_child([] {
    ::close(STDIN_FILENO);
    EXPECT_EQ(message_of<harbix::ArchiveError>([] { const InputFile input(""); }),
              "Archive error: Failed to open '': Bad file descriptor");
  }));
}

}  // namespace
}  // namespace harbix::test
