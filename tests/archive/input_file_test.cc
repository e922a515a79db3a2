#include "archive/input_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "archive/archive_test_support.h"
#include "archive/error.h"
#include "support/child_process.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using harbix::InputFile;
using test::message_of;
using test::TemporaryFolder;

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
  test::write_file(folder / "a", content);
  InputFile input(folder / "a");
  EXPECT_TRUE(content == rest_of(input));
  EXPECT_FALSE(input.is_empty());
  EXPECT_TRUE(input.read_block()->empty());
}

TEST(InputFile, OfZeroBytesIsEmpty) {
  const TemporaryFolder folder;
  test::write_file(folder / "a", "");
  InputFile input(folder / "a");
  EXPECT_TRUE(input.read_block()->empty());
  EXPECT_TRUE(input.is_empty());
}

TEST(InputFile, TellsWhyItCannotBeOpened) {
  EXPECT_EQ("Archive error: Failed to open '/nonexistent/a.tar': No such file or directory",
            message_of<harbix::ArchiveError>([] { const InputFile input("/nonexistent/a.tar"); }));
}

TEST(InputFile, TellsWhyItCannotBeRead) {
  InputFile input("/");
  EXPECT_FALSE(input.read_block());
  EXPECT_EQ(EISDIR, errno);
}

TEST(InputFile, SkipsInARegularFileButNeverPastItsEnd) {
  const TemporaryFolder folder;
  test::write_file(folder / "a", std::string(1000, 'a') + std::string(1000, 'b'));
  InputFile input(folder / "a");
  EXPECT_TRUE(input.is_regular());
  EXPECT_EQ(1500, input.skip(1500));
  EXPECT_EQ(500, input.skip(100000));
  EXPECT_EQ(0, input.skip(1));
  EXPECT_EQ(1000, input.seek(1000, SEEK_SET));
  EXPECT_EQ(std::string(1000, 'b'), rest_of(input));
  EXPECT_EQ(-1, input.seek(-1, SEEK_SET));
  EXPECT_EQ(EINVAL, errno);
}

TEST(InputFile, ReadsStandardInputForAnEmptyNameAndSkipsNothingInAPipe) {
  EXPECT_TRUE(test::passes_in_child([] {
    std::array<int, 2> ends{};
    ASSERT_EQ(0, ::pipe(ends.data()));
    ASSERT_EQ(4, ::write(ends[1], "text", 4));
    ::close(ends[1]);
    ASSERT_EQ(STDIN_FILENO, ::dup2(ends[0], STDIN_FILENO));
    InputFile input("");
    EXPECT_FALSE(input.is_regular());
    EXPECT_EQ(0, input.skip(2));
    EXPECT_EQ("text", rest_of(input));
  }));
}

TEST(InputFile, TellsThatStandardInputIsClosed) {
  EXPECT_TRUE(test::passes_in_child([] {
    ::close(STDIN_FILENO);
    EXPECT_EQ("Archive error: Failed to open '': Bad file descriptor",
              message_of<harbix::ArchiveError>([] { const InputFile input(""); }));
  }));
}

}  // namespace
