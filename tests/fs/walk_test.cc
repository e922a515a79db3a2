#include "fs/walk.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/file_descriptor.h"
#include "fs/identity.h"
#include "fs/tree.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/root.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;
using fs::Walk;
using fs::WalkItem;
using Texts = std::vector<std::string>;

Texts in_order(Texts texts) {
  std::ranges::sort(texts);
  return texts;
}

class WalkTest : public ::testing::Test {
 protected:
  /// What a walk meets, in order; `look` is called for each item before the next step.
  Texts met(const std::function<void(Walk&, const WalkItem&)>& look = [](Walk&, const WalkItem&) {}) {
    fs::Folder folder{Path(folder_.path())};
    Walk walk(folder, {}, {});
    Texts paths;
    while (const WalkItem* item = walk.next()) {
      if (item->failure) {
        failures_.emplace_back(item->failure->what());
      } else {
        paths.push_back(item->file.path().text());
      }
      look(walk, *item);
    }
    return paths;
  }

  TemporaryFolder folder_;
  TemporaryFolder elsewhere_;
  Texts failures_;
  bool moved_ = false;
};

TEST_F(WalkTest, MeetsEverythingBelowHiddenNamesIncluded) {
  Tree{file(".hidden"), dir("d", {file("f"), dir("e", {link("l", "..")})}), link("to_d", "d")}.build(
      folder_.path());
  EXPECT_EQ(in_order(met()), (Texts{".hidden", "d", "d/e", "d/e/l", "d/f", "to_d"}));
  EXPECT_EQ(failures_, Texts{});
}

TEST_F(WalkTest, NamesItsItemsAsItIsTold) {
  Tree{dir("d", {file("f")})}.build(folder_.path());
  fs::Folder folder{Path(folder_.path())};
  struct Row {
    const char *start, *shown, *first;
  };
  for (const Row& row : {Row{"", "", "d"}, Row{"", "/shown", "/shown/d"}, Row{"", "/", "/d"},
                         Row{"d", "", "f"}, Row{"d", "d", "d/f"}, Row{"d", "/x/y", "/x/y/f"}}) {
    Walk walk(folder, row.start, row.shown);
    const WalkItem* item = walk.next();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->file.path().text(), row.first) << row.start << " as " << row.shown;
  }
}

TEST_F(WalkTest, TellsWhereEachItemIs) {
  Tree{dir("d", {file("f", "12345")})}.build(folder_.path());
  met([](Walk& walk, const WalkItem& item) {
    struct ::stat record {};
    ASSERT_EQ(fs::look_up(walk.place(), record), 0);
    EXPECT_TRUE(item.file.is_same_object(record)) << item.file.path();
  });
}

TEST_F(WalkTest, StaysOutOfWhatItIsToldToLeave) {
  Tree{dir("a", {file("1")}), dir("b", {file("2")})}.build(folder_.path());
  EXPECT_EQ(in_order(met([](Walk& walk, const WalkItem& item) {
              if (item.file.path() == Path("a")) walk.stay_out();
            })),
            (Texts{"a", "b", "b/2"}));
}

TEST_F(WalkTest, GoesOnBehindAFolderThatCannotBeOpened) {
  Tree{dir("closed", {}, 0700), dir("open", {file("f")})}.build(folder_.path());
  const fs::EffectiveUser user(NOBODY);
  EXPECT_EQ(in_order(met()), (Texts{"closed", "open", "open/f"}));
  EXPECT_EQ(failures_, (Texts{"Directory 'closed' could not be opened. [errno:13 'Permission denied']"}));
}

TEST_F(WalkTest, ReportsItemsWhoseStatusMayNotBeTaken) {
  // Readable without search permission: names can be listed, their status cannot.
  Tree{dir("listed", {file("f")}, 0744)}.build(folder_.path());
  const fs::EffectiveUser user(NOBODY);
  EXPECT_EQ(met(), (Texts{"listed"}));
  EXPECT_EQ(failures_, (Texts{"Path 'listed/f' stat failed. [errno:13 'Permission denied']"}));
}

TEST_F(WalkTest, PassesOverWhatVanishesWhileItIsRead) {
  Tree{file("a"), file("b")}.build(folder_.path());
  EXPECT_EQ(met([this](Walk&, const WalkItem& item) {
              std::filesystem::remove(folder_ / (item.file.path() == Path("a") ? "b" : "a"));
            }).size(),
            1U);
  EXPECT_EQ(failures_, Texts{});
}

TEST_F(WalkTest, EntersNoLinkThatTakesAFoldersPlace) {
  Tree{dir("d", {file("mine")}), dir("others", {file("secret")})}.build(folder_.path());
  const Texts paths = met([this](Walk&, const WalkItem& item) {
    if (item.file.path() != Path("d") || moved_) return;
    moved_ = true;
    std::filesystem::rename(folder_ / "d", elsewhere_ / "away");
    std::filesystem::create_symlink("others", folder_ / "d");
  });
  EXPECT_EQ(std::ranges::find(paths, "d/secret"), paths.end());
  ASSERT_EQ(failures_.size(), 1U);
  EXPECT_TRUE(failures_[0].starts_with("Directory 'd' could not be opened.")) << failures_[0];
}

TEST_F(WalkTest, EntersNoOtherFolderThatTakesAFoldersPlace) {
  Tree{dir("d", {file("mine")})}.build(folder_.path());
  Tree{dir("others", {file("secret")})}.build(elsewhere_.path());
  const Texts paths = met([this](Walk&, const WalkItem& item) {
    if (item.file.path() != Path("d") || moved_) return;
    moved_ = true;
    std::filesystem::rename(folder_ / "d", elsewhere_ / "away");
    std::filesystem::rename(elsewhere_ / "others", folder_ / "d");
  });
  EXPECT_EQ(std::ranges::find(paths, "d/secret"), paths.end());
  EXPECT_EQ(failures_, (Texts{"Directory 'd' could not be opened. [errno:2 'No such file or directory']"}));
}

TEST_F(WalkTest, EntersNoLinkOnTheWayToAFolder) {
  Tree{dir("d", {dir("e", {file("mine")})}), dir("others", {dir("e", {file("secret")})})}.build(
      folder_.path());
  const Texts paths = met([this](Walk&, const WalkItem& item) {
    if (item.file.path() != Path("d/e") || moved_) return;
    moved_ = true;
    std::filesystem::rename(folder_ / "d", elsewhere_ / "away");
    std::filesystem::create_symlink("others", folder_ / "d");
  });
  EXPECT_EQ(std::ranges::find(paths, "d/e/secret"), paths.end());
}

TEST_F(WalkTest, HoldsFewDescriptorsAtAnyDepthAndLength) {
  constexpr int DEPTH = 1500;
  EXPECT_TRUE(passes_in_child([this] {
    base::FileDescriptor last(::open(folder_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (int depth = 0; depth < DEPTH; ++depth) {
      ASSERT_EQ(::mkdirat(last.get(), "folder", 0755), 0);
      last = base::FileDescriptor(::openat(last.get(), "folder", O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    const struct ::rlimit few { .rlim_cur = 24, .rlim_max = 24 };
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_EQ(met().size(), static_cast<std::size_t>(DEPTH));
    EXPECT_EQ(failures_, Texts{});
  }));
  fs::Folder folder{Path(folder_.path())};
  fs::remove_tree(folder, "folder");
}

}  // namespace
}  // namespace harbix::test
