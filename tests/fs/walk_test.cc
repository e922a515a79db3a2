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
#include "support/child_process.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using fs::Path;
using fs::Walk;
using fs::WalkItem;
using test::dir;
using test::file;
using test::link;
using test::Tree;
using Texts = std::vector<std::string>;

constexpr uid_t NOBODY = 65534;

Texts sorted(Texts texts) {
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

  test::TemporaryFolder folder_;
  test::TemporaryFolder elsewhere_;
  Texts failures_;
  bool moved_ = false;
};

TEST_F(WalkTest, MeetsEverythingBelowHiddenNamesIncluded) {
  Tree{file(".hidden"), dir("d", {file("f"), dir("e", {link("l", "..")})}), link("to_d", "d")}.build(
      folder_.path());
  EXPECT_EQ((Texts{".hidden", "d", "d/e", "d/e/l", "d/f", "to_d"}), sorted(met()));
  EXPECT_EQ(Texts{}, failures_);
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
    ASSERT_NE(nullptr, item);
    EXPECT_EQ(row.first, item->file.path().text()) << row.start << " as " << row.shown;
  }
}

TEST_F(WalkTest, TellsWhereEachItemIs) {
  Tree{dir("d", {file("f", "12345")})}.build(folder_.path());
  met([](Walk& walk, const WalkItem& item) {
    struct ::stat record {};
    ASSERT_EQ(0, fs::look_up(walk.place(), record));
    EXPECT_TRUE(item.file.is_same_object(record)) << item.file.path();
  });
}

TEST_F(WalkTest, StaysOutOfWhatItIsToldToLeave) {
  Tree{dir("a", {file("1")}), dir("b", {file("2")})}.build(folder_.path());
  EXPECT_EQ((Texts{"a", "b", "b/2"}), sorted(met([](Walk& walk, const WalkItem& item) {
              if (item.file.path() == Path("a")) walk.stay_out();
            })));
}

TEST_F(WalkTest, GoesOnBehindAFolderThatCannotBeOpened) {
  Tree{dir("closed", {}, 0700), dir("open", {file("f")})}.build(folder_.path());
  const fs::EffectiveUser user(NOBODY);
  EXPECT_EQ((Texts{"closed", "open", "open/f"}), sorted(met()));
  EXPECT_EQ((Texts{"Directory 'closed' could not be opened. [errno:13 'Permission denied']"}), failures_);
}

TEST_F(WalkTest, ReportsItemsWhoseStatusMayNotBeTaken) {
  // Readable without search permission: names can be listed, their status cannot.
  Tree{dir("listed", {file("f")}, 0744)}.build(folder_.path());
  const fs::EffectiveUser user(NOBODY);
  EXPECT_EQ((Texts{"listed"}), met());
  EXPECT_EQ((Texts{"Path 'listed/f' stat failed. [errno:13 'Permission denied']"}), failures_);
}

TEST_F(WalkTest, PassesOverWhatVanishesWhileItIsRead) {
  Tree{file("a"), file("b")}.build(folder_.path());
  EXPECT_EQ(1U, met([this](Walk&, const WalkItem& item) {
                  std::filesystem::remove(folder_ / (item.file.path() == Path("a") ? "b" : "a"));
                }).size());
  EXPECT_EQ(Texts{}, failures_);
}

TEST_F(WalkTest, EntersNoLinkThatTakesAFoldersPlace) {
  Tree{dir("d", {file("mine")}), dir("others", {file("secret")})}.build(folder_.path());
  const Texts paths = met([this](Walk&, const WalkItem& item) {
    if (item.file.path() != Path("d") || moved_) return;
    moved_ = true;
    std::filesystem::rename(folder_ / "d", elsewhere_ / "away");
    std::filesystem::create_symlink("others", folder_ / "d");
  });
  EXPECT_EQ(paths.end(), std::ranges::find(paths, "d/secret"));
  ASSERT_EQ(1U, failures_.size());
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
  EXPECT_EQ(paths.end(), std::ranges::find(paths, "d/secret"));
  EXPECT_EQ((Texts{"Directory 'd' could not be opened. [errno:2 'No such file or directory']"}), failures_);
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
  EXPECT_EQ(paths.end(), std::ranges::find(paths, "d/e/secret"));
}

TEST_F(WalkTest, HoldsFewDescriptorsAtAnyDepthAndLength) {
  constexpr int DEPTH = 1500;
  EXPECT_TRUE(test::passes_in_child([this] {
    base::FileDescriptor last(::open(folder_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (int depth = 0; depth < DEPTH; ++depth) {
      ASSERT_EQ(0, ::mkdirat(last.get(), "folder", 0755));
      last = base::FileDescriptor(::openat(last.get(), "folder", O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    const struct ::rlimit few { .rlim_cur = 24, .rlim_max = 24 };
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &few));
    EXPECT_EQ(static_cast<std::size_t>(DEPTH), met().size());
    EXPECT_EQ(Texts{}, failures_);
  }));
  fs::Folder folder{Path(folder_.path())};
  fs::remove_tree(folder, "folder");
}

}  // namespace
