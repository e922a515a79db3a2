#include "fs/tree.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/file_descriptor.h"
#include "fs/exception.h"
#include "fs/identity.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/recorded_log.h"
#include "tests/support/root.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Descent;
using fs::File;
using fs::Path;
using fs::Tolerance;

std::vector<std::string> names(const std::vector<File>& files, const std::string& folder) {
  std::vector<std::string> result;
  result.reserve(files.size());
  for (const File& item : files) result.push_back(item.path().relative_to(Path(folder)).text());
  return result;
}

std::vector<std::string> sorted(std::vector<std::string> texts) {
  std::ranges::sort(texts);
  return texts;
}

std::size_t position(const std::vector<std::string>& texts, const std::string& text) {
  return static_cast<std::size_t>(std::ranges::find(texts, text) - texts.begin());
}

class TreeWalk : public ::testing::Test {
 protected:
  [[nodiscard]] std::vector<std::string> listed(Descent descent, Tolerance tolerance) const {
    return names(fs::list_tree(Path(folder_.path()), descent, tolerance), folder_.path());
  }
  TemporaryFolder folder_;
};

TEST_F(TreeWalk, ListsEverythingBelowHiddenNamesIncluded) {
  Tree{file(".hidden", "123"), dir("d", {file("f"), dir("e", {link("l", "..")})}), link("to_d", "d")}.build(
      folder_.path());
  for (const Descent descent : {Descent::IMMEDIATE, Descent::DEFERRED}) {
    EXPECT_EQ(sorted(listed(descent, Tolerance::STRICT)),
              (std::vector<std::string>{".hidden", "d", "d/e", "d/e/l", "d/f", "to_d"}));
  }
}

TEST_F(TreeWalk, RecordsTheStatusOfLinksNotOfTheirTargets) {
  Tree{dir("d", {file("f", "12345")}), link("to_d", "d")}.build(folder_.path());
  for (const File& item : fs::list_tree(Path(folder_.path()), Descent::IMMEDIATE, Tolerance::STRICT)) {
    EXPECT_EQ(item.is_symbolic_link(), item.path().basename() == Path("to_d"));
    EXPECT_EQ(item.is_directory(), item.path().basename() == Path("d"));
    if (item.is_regular()) {
      EXPECT_EQ(item.record().st_size, 5);
    }
  }
}

TEST_F(TreeWalk, PutsADirectorysContentsDirectlyBehindItWhenItDescendsAtOnce) {
  Tree{dir("a", {file("1"), file("2")}), dir("b", {file("3"), dir("c", {file("4")})}), file("5")}.build(
      folder_.path());
  const std::vector<std::string> order = listed(Descent::IMMEDIATE, Tolerance::STRICT);
  ASSERT_EQ(order.size(), 8U);
  // Contiguous: the contents of "a" take the two places behind it, those of "b" the three places behind it.
  const std::size_t a = position(order, "a");
  EXPECT_EQ(sorted({order.begin() + static_cast<std::ptrdiff_t>(a) + 1,
                    order.begin() + static_cast<std::ptrdiff_t>(a) + 3}),
            (std::vector<std::string>{"a/1", "a/2"}));
  const std::size_t b = position(order, "b");
  EXPECT_EQ(sorted({order.begin() + static_cast<std::ptrdiff_t>(b) + 1,
                    order.begin() + static_cast<std::ptrdiff_t>(b) + 4}),
            (std::vector<std::string>{"b/3", "b/c", "b/c/4"}));
  EXPECT_EQ(position(order, "b/c/4"), position(order, "b/c") + 1);
}

TEST_F(TreeWalk, PutsDirectoriesContentsBehindAllSiblingsWhenItDefers) {
  Tree{dir("a", {file("1"), dir("d", {file("6")})}), dir("b", {file("3")}), file("5")}.build(folder_.path());
  const std::vector<std::string> order = listed(Descent::DEFERRED, Tolerance::STRICT);
  ASSERT_EQ(order.size(), 7U);
  EXPECT_EQ(sorted({order.begin(), order.begin() + 3}), (std::vector<std::string>{"5", "a", "b"}));
  // The queued folders follow in the order met, each with everything below it.
  const bool a_first = position(order, "a") < position(order, "b");
  EXPECT_EQ(position(order, "a/d/6") < position(order, "b/3"), a_first);
  EXPECT_LT(position(order, "a/1"), position(order, "a/d/6"));
}

TEST_F(TreeWalk, ListsADirectoryBeforeAnythingInsideIt) {
  Tree{dir("a", {dir("b", {dir("c", {file("f")})})})}.build(folder_.path());
  for (const Descent descent : {Descent::IMMEDIATE, Descent::DEFERRED}) {
    EXPECT_EQ(listed(descent, Tolerance::STRICT), (std::vector<std::string>{"a", "a/b", "a/b/c", "a/b/c/f"}));
  }
}

TEST_F(TreeWalk, ThrowsOnAMissingDirectoryUnlessTolerant) {
  const Path missing(folder_ / "missing");
  try {
    static_cast<void>(fs::list_tree(missing, Descent::IMMEDIATE, Tolerance::STRICT));
    ADD_FAILURE();
  } catch (const fs::Exception& error) {
    EXPECT_EQ(error.what(), "Directory '" + missing.text() +
                                "' could not be opened. [errno:2 'No such file or directory']");
    EXPECT_EQ(error.error(), ENOENT);
  }
  const RecordedLog log(5);
  EXPECT_TRUE(fs::list_tree(missing, Descent::IMMEDIATE, Tolerance::TOLERANT).empty());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(TreeWalk, ThrowsOnAnUnreadableDirectoryAtAnyDepthWhenStrict) {
  Tree{dir("a", {dir("closed", {}, 0700)})}.build(folder_.path());
  const fs::EffectiveUser user(NOBODY);
  try {
    static_cast<void>(listed(Descent::IMMEDIATE, Tolerance::STRICT));
    ADD_FAILURE();
  } catch (const fs::Exception& error) {
    EXPECT_EQ(error.what(), "Directory '" + (folder_ / "a/closed") +
                                "' could not be opened. [errno:13 'Permission denied']");
  }
}

TEST_F(TreeWalk, LeavesOutWhatMayNotBeReadAndWrittenWhenTolerant) {
  Tree{file("both", "", 0666),
       file("read_only", "", 0444),
       file("write_only", "", 0222),
       dir("open", {file("f", "", 0666)}, 0777),
       dir("read_only_dir", {file("g", "", 0666)}, 0755),
       dir("closed", {file("h", "", 0666)}, 0700),
       link("l", "nowhere")}
      .build(folder_.path());
  const fs::EffectiveUser user(NOBODY);
  for (const Descent descent : {Descent::IMMEDIATE, Descent::DEFERRED}) {
    EXPECT_EQ(sorted(listed(descent, Tolerance::TOLERANT)),
              (std::vector<std::string>{"both", "l", "open", "open/f"}));
  }
}

TEST_F(TreeWalk, KeepsNamesAsBytes) {
  const std::string longest(255, 'n');
  Tree{file("\xFF\xFE"), file("e\xCC\x81"), file("\xC3\xA9"), file(longest), file(" a\n:")}.build(
      folder_.path());
  EXPECT_EQ(sorted(listed(Descent::IMMEDIATE, Tolerance::STRICT)),
            (std::vector<std::string>{" a\n:", "e\xCC\x81", longest, "\xC3\xA9", "\xFF\xFE"}));
}

TEST_F(TreeWalk, FollowsPathsLongerThanTheSystemsLimit) {
  // 30 levels of 200 characters, which no single path may name.
  EXPECT_TRUE(passes_in_child([this] {
    ASSERT_EQ(::chdir(folder_.path().c_str()), 0);
    const std::string name(200, 'd');
    for (int depth = 0; depth < 30; ++depth) {
      ASSERT_EQ(::mkdir(name.c_str(), 0755), 0);
      ASSERT_EQ(::chdir(name.c_str()), 0);
    }
    try {
      const std::vector<File> files =
          fs::list_tree(Path(folder_.path()), Descent::DEFERRED, Tolerance::TOLERANT);
      EXPECT_EQ(files.size(), 30U);
    } catch (const fs::Exception& error) {
      ADD_FAILURE() << error.what();
    }
  }));
}

TEST_F(TreeWalk, HoldsOneDirectoryOpenWhenItDefers) {
  std::string path = folder_.path();
  for (int depth = 0; depth < 60; ++depth) {
    path += "/d";
    ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
  }
  EXPECT_TRUE(passes_in_child([this] {
    const struct ::rlimit few { .rlim_cur = 24, .rlim_max = 24 };
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_EQ(listed(Descent::DEFERRED, Tolerance::STRICT).size(), 60U);
  }));
}

TEST_F(TreeWalk, RemovesATreeWithEverythingBelowIt) {
  Tree{dir("gone",
           {file("f", "", 0), dir("d", {dir("e"), file("g"), link("l", "../../kept")}), file(".hidden")}),
       file("kept", "text")}
      .build(folder_.path());
  const RecordedLog log(5);
  fs::remove_tree(File(Path(folder_ / "gone")));
  EXPECT_TRUE((Tree{file("kept", "text")}.matches(folder_.path())));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(TreeWalk, RemovesAFileOrLinkAlone) {
  Tree{file("f"), link("l", "d"), dir("d", {file("kept")})}.build(folder_.path());
  fs::remove_tree(File(Path(folder_ / "f")));
  fs::remove_tree(File(Path(folder_ / "l")));
  EXPECT_TRUE((Tree{dir("d", {file("kept")})}.matches(folder_.path())));
}

TEST_F(TreeWalk, LeavesATreeThatCannotBeListedAsItWas) {
  const Tree tree{dir("d", {file("f", "", 0666), dir("closed", {}, 0700)}, 0777)};
  tree.build(folder_.path());
  const RecordedLog log;
  {
    const fs::EffectiveUser user(NOBODY);
    fs::remove_tree(File(Path(folder_ / "d")));
  }
  EXPECT_TRUE(tree.matches(folder_.path()));
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{"3 Errors encountered while unlinking '" + (folder_ / "d") +
                                      "' (Directory '" + (folder_ / "d/closed") +
                                      "' could not be opened. [errno:13 'Permission denied'])"}));
}

TEST_F(TreeWalk, RemovesWhatItCanAndLogsTheRest) {
  Tree{dir("d", {dir("protected", {file("kept")}, 0755), file("gone")}, 0777)}.build(folder_.path());
  const RecordedLog log;
  {
    const fs::EffectiveUser user(NOBODY);
    fs::remove_tree(File(Path(folder_ / "d")));
  }
  EXPECT_TRUE((Tree{dir("d", {dir("protected", {file("kept")}, 0755)}, 0777)}.matches(folder_.path())));
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{
                "3 Failed to unlink '" + (folder_ / "d/protected/kept") + "' (Permission denied)",
                "3 Failed to rmdir '" + (folder_ / "d/protected") + "' (Directory not empty)",
                "3 Failed to rmdir '" + (folder_ / "d") + "' (Permission denied)"}));
}

TEST_F(TreeWalk, RemovesATreeThatIsDeeperThanAnyPathTells) {
  fs::Folder folder{Path(folder_.path())};
  base::FileDescriptor last(::open(folder_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  constexpr int DEPTH = 2000;
  for (int depth = 0; depth < DEPTH; ++depth) {
    ASSERT_EQ(::mkdirat(last.get(), "d", 0755), 0);
    last = base::FileDescriptor(::openat(last.get(), "d", O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
  const RecordedLog log;
  fs::remove_tree(folder, "d");
  EXPECT_TRUE(Tree{}.matches(folder_.path()));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(TreeWalk, RemovesNothingThroughALink) {
  const Tree tree{dir("app", {link("data", "../others")}), dir("others", {file("kept")})};
  tree.build(folder_.path());
  fs::Folder folder{Path(folder_.path())};
  const RecordedLog log;
  fs::remove_tree(folder, "app/data/kept");
  EXPECT_TRUE(tree.matches(folder_.path()));
  EXPECT_EQ(log.lines().size(), 1U);
  fs::remove_tree(folder, "app/data");
  EXPECT_TRUE((Tree{dir("app"), dir("others", {file("kept")})}.matches(folder_.path())));
}

TEST_F(TreeWalk, ReachesWhatIsMadeInThePlaceOfARemovedTree) {
  const Tree tree{dir("app", {dir("data", {file("f")})})};
  tree.build(folder_.path());
  fs::Folder folder{Path(folder_.path())};
  fs::remove_tree(folder, "app");
  tree.build(folder_.path());
  EXPECT_TRUE(folder.holds("app/data/f"));
  EXPECT_TRUE(folder.holds("app/data"));
}

}  // namespace
}  // namespace harbix::test
