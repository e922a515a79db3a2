#include "fs/containment.h"

#include <gtest/gtest.h>

#include "fs/exception.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::is_record_path_below;
using fs::leads_inside;
using fs::Path;

struct Row {
  const char *path, *target, *folder;
};

TEST(LinkCheck, AcceptsWhatStaysInTheFolder) {
  const Row rows[] = {
      {"/f/l", "/f/a", "/f"},
      {"/f/l", "/f", "/f"},
      {"/f/l", "a", "/f"},
      {"/f/l", "./a/b", "/f"},
      {"/f/l", "", "/f"},
      {"/f/l", ".", "/f"},
      {"/f/l", "...", "/f"},
      {"/f/l", "..a", "/f"},
      {"/f/l", "/f//a/./b/", "/f"},
      {"/f/l", "../f/a", "/f"},
      {"/f/d/l", "..", "/f"},
      {"/f/d/l", "../a", "/f"},
      {"/f/d/e/l", "../../a", "/f"},
      {"/f/d/l", "a", "/f"},
      // A link may lie elsewhere itself.
      {"/x/l", "/f/a", "/f"},
      {"/x/l", "../f/a", "/f"},
      // A folder that is not in normal form is the folder that it leads to.
      {"/f/l", "a", "/x/../f/"},
      {"/l", "/etc/passwd", "/"},
      {"/l", "../../a", "/"},
  };
  fs::Folder root("/");
  for (const Row& row : rows)
    EXPECT_TRUE(leads_inside(root, fs::Path(row.path), row.target, fs::Path(row.folder)))
        << row.path << " -> " << row.target << " in " << row.folder;
}

TEST(LinkCheck, RefusesWhatLeavesTheFolder) {
  const Row rows[] = {
      {"/f/l", "/", "/f"},
      {"/f/l", "/etc/passwd", "/f"},
      {"/f/l", "..", "/f"},
      {"/f/l", "../a", "/f"},
      {"/f/l", "../ff", "/f"},
      {"/f/l", "/ff", "/f"},
      {"/f/l", "/ff/a", "/f"},
      {"/f/l", "/f/..", "/f"},
      {"/f/l", "/f/../a", "/f"},
      {"/f/l", "/f/a/../../b", "/f"},
      {"/f/l", "a/../../b", "/f"},
      {"/f/l", "./../f2/a", "/f"},
      {"/f/d/l", "../../a", "/f"},
      {"/f/d/l", "../..", "/f"},
      {"/f/l", "../../../f2", "/f"},
      {"/f/g/l", "../a", "/f/g"},
      {"/f/g/l", "/f/g2", "/f/g"},
      {"/x/l", "a", "/f"},
      // What a name leads to can be another link by the time at which this one is used.
      {"/f/l", "/f/a/../b", "/f"},
      {"/f/l", "/x/../f/a", "/f"},
      {"/f/l", "b/../c", "/f"},
      {"/f/d/l", "../e/..", "/f"},
  };
  fs::Folder root("/");
  for (const Row& row : rows)
    EXPECT_FALSE(leads_inside(root, fs::Path(row.path), row.target, fs::Path(row.folder)))
        << row.path << " -> " << row.target << " in " << row.folder;
}

class LinksOnDisk : public testing::Test {
 protected:
  [[nodiscard]] bool leads(const std::string& target) {
    return leads_inside(root_, Path(folder_ / "own/sub/link"), target, Path(folder_ / "own"));
  }

  TemporaryFolder folder_;
  fs::Folder root_{"/"};
};

TEST_F(LinksOnDisk, AreFollowedToWhereTheyLead) {
  Tree{dir("own",
           {dir("sub", {link("here", "."), link("up", "..")}), link("out", "../others"), link("root", "/"),
            link("inside", "sub"), link("round", "round"), link("dangling", "none"), file("file")}),
       dir("others", {link("back", "../own")})}
      .build(folder_.path());
  for (const char* target : {"here", "here/x", "up", "up/x", "../inside/x", "../dangling", "../file",
                             "../sub/up/sub", "none", "none/x", "../inside/here/up/file"}) {
    EXPECT_TRUE(leads(target)) << target;
  }
  for (const char* target : {"../out", "../out/x", "../out/back/sub/../../others", "../root/etc/passwd",
                             "../round", "up/out/x", "here/up/root", "../file/x", "../inside/up/out"}) {
    EXPECT_FALSE(leads(target)) << target;
  }
  EXPECT_TRUE(leads(folder_ / "own/inside/x"));
  EXPECT_TRUE(leads("../out/back/sub"));
  EXPECT_FALSE(leads(folder_ / "own/out/x"));
}

TEST(RecordPath, LiesStrictlyBelowTheBase) {
  for (const char* path :
       {"/f/a/x", "/f/a/x/y z", "/f/a/...", "/f/a/..x", "/f/a/x.", "/f/a/\xFF", "/f/a/x\ny"})
    EXPECT_TRUE(is_record_path_below(Path(path), Path("/f/a"))) << path;
}

TEST(RecordPath, IsNeitherTheBaseNorOutsideOfIt) {
  for (const char* path :
       {"", "/", "/f", "/f/", "/f/a", "/f/a/", "/f/ab", "/f/ab/x", "/f/b/x", "/F/a/x", "f/a/x", "x"})
    EXPECT_FALSE(is_record_path_below(Path(path), Path("/f/a"))) << path;
}

TEST(RecordPath, IsInNormalForm) {
  for (const char* path :
       {"/f/a/.", "/f/a/..", "/f/a/./x", "/f/a//x", "//f/a/x", "/f/a/x/", "/f/a/x//", "/f/a/x/.", "/f/a/x/..",
        "/f/a/x/../y", "/f/a/../b", "/f/./a/x", "/x/../f/a/y", "./f/a/x", "/f/a/x/../../.."})
    EXPECT_FALSE(is_record_path_below(Path(path), Path("/f/a"))) << path;
}

TEST(PlainComponent, IsOneNameAndNothingElse) {
  for (const char* name : {"a", "a.b c", "...", "..a", "a..", "\xFF", "a\nb"})
    EXPECT_TRUE(fs::is_plain_component(name)) << name;
  for (const char* name : {"", ".", "..", "/", "a/", "/a", "a/b", "../a", "./a"})
    EXPECT_FALSE(fs::is_plain_component(name)) << name;
}

TEST(NameBelow, IsWhatFollowsThePrefix) {
  EXPECT_EQ(fs::name_below("/media/Music/a", "/media"), Path("Music/a"));
  EXPECT_EQ(fs::name_below("/media", "/media"), Path(""));
}

TEST(NameBelow, IsRefusedToWhatOnlyBeginsWithTheSameCharacters) {
  for (const char* name : {"/mediax", "/mediax/a", "/medi", "media/a", ""}) {
    try {
      ADD_FAILURE() << fs::name_below(name, "/media");
    } catch (const fs::Exception& refused) {
      EXPECT_EQ(refused.what(), "Path '" + std::string(name) + "' is not subdirectory of '/media'");
    }
  }
}

}  // namespace
}  // namespace harbix::test
