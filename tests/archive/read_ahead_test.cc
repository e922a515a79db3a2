#include "archive/read_ahead.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace {

/// What the system was told.
struct Advice {
  std::string path;
  std::int64_t bytes;
};
std::vector<Advice> advices;
/// What the system says that was read from disks.
long blocks = 0;

int record_advice(int descriptor, off_t offset, off_t size, int advice) {
  EXPECT_EQ(offset, 0);
  EXPECT_EQ(advice, POSIX_FADV_WILLNEED);
  advices.push_back(
      {std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor)).string(), size});
  ++blocks;
  return EIO;  // which has no consequences
}

}  // namespace

// In the place of the system's: a test in memory never waits for a disk.
extern "C" {
int advise_in_test(int descriptor, off_t offset, off_t size, int advice) __asm__("posix_fadvise");
int advise_in_test64(int descriptor, off_t offset, off_t size, int advice) __asm__("posix_fadvise64");
int usage_in_test(int who, struct ::rusage* usage) noexcept __asm__("getrusage");
}

int advise_in_test(int descriptor, off_t offset, off_t size, int advice) {
  return record_advice(descriptor, offset, size, advice);
}
int advise_in_test64(int descriptor, off_t offset, off_t size, int advice) {
  return record_advice(descriptor, offset, size, advice);
}
int usage_in_test(int /*who*/, struct ::rusage* usage) noexcept {
  *usage = {};
  usage->ru_inblock = blocks;
  return 0;
}

namespace harbix::test {
namespace {

using fs::Path;
using Names = std::vector<std::string>;

constexpr std::size_t WINDOW = 256;

bool is_taken(const Path& path) { return path.basename() != Path("object"); }

class ReadAheadTest : public ::testing::Test {
 protected:
  ReadAheadTest() {
    advices.clear();
    ahead_.emplace(folder_, list_, is_taken);
  }

  void add(const Path& path) { list_.add(fs::File(path, folder_.file(path).record())); }
  void add_files(int count, std::size_t size) {
    for (int i = 0; i < count; ++i) {
      const std::string name = "f" + std::to_string(i);
      write_file(temporary_ / name, "x");
      std::filesystem::resize_file(temporary_ / name, size);
      add(Path(name));
    }
  }
  /// The names that were announced since this was last asked, below the folder.
  Names announced() {
    Names names;
    for (const Advice& advice : advices) names.push_back(advice.path.substr(temporary_.path().size() + 1));
    advices.clear();
    return names;
  }
  static std::size_t open_descriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
  }

  TemporaryFolder temporary_;
  fs::Folder folder_{Path(temporary_.path())};
  ItemList list_;
  std::optional<ReadAhead> ahead_;
};

TEST_F(ReadAheadTest, LeavesAloneWhatNoDiskIsWaitedFor) {
  add_files(300, 1);
  for (std::size_t i = 0; i < list_.size(); ++i) ahead_->reach(i);
  EXPECT_EQ(announced(), Names());
}

TEST_F(ReadAheadTest, AnnouncesWhatFollowsWhereTheListingWaited) {
  add_files(3, 10);
  ++blocks;
  ahead_->reach(0);
  ASSERT_EQ(advices.size(), 2U);
  EXPECT_EQ(advices.front().bytes, 10);
  EXPECT_EQ(announced(), (Names{"f1", "f2"}));
}

TEST_F(ReadAheadTest, BeginsSoonWhereOnlyContentsAreWaitedFor) {
  add_files(200, 1);
  for (std::size_t i = 0; i <= 100; ++i) {
    if (i == 1) ++blocks;
    ahead_->reach(i);
  }
  const Names names = announced();
  ASSERT_FALSE(names.empty());
  EXPECT_EQ(names.front(), "f65");
}

TEST_F(ReadAheadTest, AnnouncesEachFileOnceAndNoMoreThanAWindow) {
  constexpr int COUNT = 2000;
  add_files(COUNT, 1);
  ++blocks;
  Names all;
  for (std::size_t i = 0; i < COUNT; ++i) {
    ahead_->reach(i);
    const Names names = announced();
    all.insert(all.end(), names.begin(), names.end());
    ASSERT_LE(all.size(), i + WINDOW) << i;
    // The next one is always announced.
    ASSERT_GE(all.size(), std::min<std::size_t>(i + 1, COUNT - 1)) << i;
  }
  Names expected;
  for (int i = 1; i < COUNT; ++i) expected.push_back("f" + std::to_string(i));
  EXPECT_EQ(all, expected);
}

TEST_F(ReadAheadTest, AnnouncesTheBeginningsOfAFewLargeFiles) {
  constexpr std::size_t LARGE = std::size_t{20} << 30;
  add_files(100, LARGE);
  ++blocks;
  ahead_->reach(0);
  std::int64_t bytes = 0;
  for (const Advice& advice : advices) bytes += advice.bytes;
  EXPECT_EQ(bytes, std::int64_t{16} << 20);
  EXPECT_EQ(advices.size(), 16U);
}

TEST_F(ReadAheadTest, StopsWhenWhatItAnnouncesIsInMemory) {
  add_files(2000, 1);
  ++blocks;
  ahead_->reach(0);
  EXPECT_EQ(announced().size(), WINDOW);
  const long so_far = blocks;
  ahead_->reach(WINDOW / 2 + 1);
  EXPECT_NE(announced(), Names());
  // These were in memory, and so is the rest.
  for (std::size_t i = WINDOW / 2 + 2; i < list_.size(); ++i) {
    blocks = so_far;
    ahead_->reach(i);
  }
  EXPECT_EQ(announced(), Names());
}

TEST_F(ReadAheadTest, PassesOverWhatHasNoContentsOnADisk) {
  Tree{file("first"),      file("empty"),       dir("d", {file("inside", "x")}),
       link("l", "first"), file("object", "x"), file("last", "x")}
      .build(temporary_.path());
  for (const char* name : {"first", "empty", "d", "l", "object", "d/inside", "last"}) add(name);
  ++blocks;
  ahead_->reach(0);
  EXPECT_EQ(announced(), (Names{"d/inside", "last"}));
}

TEST_F(ReadAheadTest, PassesOverWhatHasChangedSinceItWasListed) {
  Tree{file("first", "x"),
       file("gone", "x"),
       file("other", "x"),
       file("link", "x"),
       file("fifo", "x"),
       file("folder", "x"),
       dir("moved", {file("f", "x")}),
       file("last", "x")}
      .build(temporary_.path());
  for (const char* name : {"first", "gone", "other", "link", "fifo", "folder", "moved/f", "last"}) add(name);
  for (const char* name : {"gone", "link", "fifo", "folder"}) std::filesystem::remove(temporary_ / name);
  write_file(temporary_ / "new", "y");
  std::filesystem::rename(temporary_ / "new", temporary_ / "other");
  Tree{link("link", "first"), fifo("fifo"), dir("folder"), dir("away")}.build(temporary_.path());
  std::filesystem::rename(temporary_ / "moved", temporary_ / "away/moved");
  std::filesystem::create_symlink("away/moved", temporary_ / "moved");
  ++blocks;
  ahead_->reach(0);
  EXPECT_EQ(announced(), (Names{"last"}));
}

TEST_F(ReadAheadTest, KeepsNothingOpen) {
  Tree{file("first", "x"), dir("a", {dir("b", {dir("c", {file("f", "x")})})})}.build(temporary_.path());
  for (const char* name : {"first", "a/b/c/f"}) add(name);
  const std::size_t before = open_descriptors();
  ++blocks;
  ahead_->reach(0);
  EXPECT_EQ(announced(), (Names{"a/b/c/f"}));
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(ReadAheadTest, DoesWithoutWhatDescriptorsDoNotSufficeFor) {
  Tree{file("first", "x"), dir("a", {file("f", "x")})}.build(temporary_.path());
  for (const char* name : {"first", "a/f"}) add(name);
  struct ::rlimit usual {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
  const int next = ::dup(folder_.descriptor());
  ASSERT_EQ(::close(next), 0);
  // None left, one for the folder itself, one for the folder below it.
  for (const int spare : {0, 1, 2}) {
    const struct ::rlimit few { static_cast<rlim_t>(next + spare), usual.rlim_max };
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    ++blocks;
    ReadAhead ahead(folder_, list_, is_taken);
    ++blocks;
    EXPECT_NO_THROW(ahead.reach(0)) << spare;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);
    EXPECT_EQ(announced(), Names()) << spare;
  }
}

}  // namespace
}  // namespace harbix::test
