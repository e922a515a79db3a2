#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/settings/restore_run.h"
#include "tests/settings/settings_device.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

class SettingsRestoreLinks : public SettingsDevice {
 protected:
  static constexpr const char* NAME = "/settings/w/s/link";

  [[nodiscard]] ::testing::AssertionResult restores(const std::string& target, bool comes_back) const {
    return on_the_device([&] {
      put_script("1", naming({"/w"}));
      std::filesystem::create_directories("/w/s");
      const Restored restored = restore_settings(package(1).link(NAME, target).text());
      EXPECT_EQ(restored.status, 0);
      EXPECT_EQ(restored.errors, (comes_back ? "Restore: " : "Skip: ") + std::string(NAME) + "\n") << target;
      if (comes_back) {
        EXPECT_TRUE((Tree{link("link", target)}).matches("/w/s")) << target;
      } else {
        EXPECT_TRUE(Tree{}.matches("/w/s")) << target;
      }
    });
  }
};

TEST_F(SettingsRestoreLinks, ComeBackWhenTheyStayInTheirFolder) {
  for (const char* target : {"/w/s/b", "/w/s/b/c", "b", "./b", "b/c", "../s/b", "../../w/s/b", "/w/s/./b",
                             "/w/s//b", "b c:", "...", "..b", "."})
    EXPECT_TRUE(restores(target, true)) << target;
}

TEST_F(SettingsRestoreLinks, AreSkippedWhenTheyLeadOut) {
  for (const char* target : {"/etc/x",
                             "/",
                             "/w",
                             "/w/",
                             "/w/sx",
                             "/w/sx/b",
                             "/w/s2",
                             "..",
                             "../",
                             "../b",
                             "../sx",
                             "../sx/b",
                             "../..",
                             "b/../..",
                             "b/../../sx",
                             "/w/s/..",
                             "/w/s/../b",
                             "/w/s/../sx/b",
                             "/w/s/b/../../../etc",
                             "../../../../etc/x",
                             "./../b",
                             "b/./../../c",
                             "/settings/w/s/b",
                             "w/../../s2"})
    EXPECT_TRUE(restores(target, false)) << target;
}

TEST_F(SettingsRestoreLinks, ReplaceNothingThatIsUnlisted) {
  EXPECT_TRUE(on_the_device([] {
    put_script("1", naming({"/w"}));
    put("/w/s/file", "old");
    const Restored restored = restore_settings(package(1).link("/settings/w/s/file", "b").text());
    EXPECT_EQ(restored.status, 0);
    EXPECT_TRUE((Tree{link("file", "b")}).matches("/w/s"));
  }));
}

TEST_F(SettingsRestoreLinks, AreNotFollowedByTheEntriesBehindThem) {
  EXPECT_TRUE(on_the_device([] {
    put_script("1", naming({"/w"}));
    put("/etc/file", "old");
    std::filesystem::create_directories("/w/s/real");
    std::filesystem::create_symlink("/etc", "/w/s/out");
    const Restored restored = restore_settings(package(4)
                                                   .link("/settings/w/s/in", "real")
                                                   .file("/settings/w/s/in/file", "new")
                                                   .file("/settings/w/s/out/file", "new")
                                                   .file("/settings/w/s/out/other", "new")
                                                   .text());
    EXPECT_EQ(restored.status, 1);
    EXPECT_TRUE((Tree{file("file", "old")}).matches("/etc"));
    EXPECT_TRUE((Tree{dir("real"), link("in", "real"), link("out", "/etc")}).matches("/w/s"));
    EXPECT_NE(std::string::npos, restored.errors.find("Restore: /settings/w/s/out/file\nWarning: "))
        << restored.errors;
  }));
}

TEST_F(SettingsRestoreLinks, ThatExistAreNotWrittenThrough) {
  EXPECT_TRUE(on_the_device([] {
    put_script("1", naming({"/w"}));
    put("/etc/file", "old");
    std::filesystem::create_directories("/w/s");
    std::filesystem::create_symlink("/etc/file", "/w/s/listed");
    const Restored restored = restore_settings(package(1).file("/settings/w/s/listed", "new").text());
    EXPECT_EQ(restored.status, 0);
    EXPECT_EQ(read_file("/etc/file"), "old");
  }));
}

}  // namespace
}  // namespace harbix::test
