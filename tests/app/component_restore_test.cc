#include "app/component_restore.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>

#include "tests/app/app_device.h"
#include "tests/support/archive.h"
#include "tests/support/captured_output.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;
using harbix::ComponentRestore;
using harbix::EntryView;

constexpr mode_t MASK = 0177;
constexpr mode_t GROUP_MASK = 0117;

/// Restores every entry of an archive under its own name.
/// @return what it says.
std::string restore_component(const TarBuilder& archive, mode_t mask = MASK) {
  write_file("/a.tar", archive.text());
  Reader reader("/a.tar");
  const CapturedOutput errors(STDERR_FILENO);
  harbix::Completeness completeness;
  ComponentRestore component(reader, APPS_USER, mask, completeness);
  while (const std::optional<EntryView> entry = reader.next_header()) {
    const Path destination = entry->name().value();
    component.extract(*entry, entry->destination(destination));
  }
  return errors.text();
}

class ComponentRestoreTest : public AppDevice {};

TEST_F(ComponentRestoreTest, LimitsModesByTheMaskAndKeepsFoldersSearchable) {
  EXPECT_TRUE(on_the_device([] {
    EXPECT_EQ(restore_component(TarBuilder()
                                    .file(in_component("f"), "text", 07777)
                                    .file(in_component("none"), "", 0)
                                    .folder(in_component("d"), 07777)
                                    .folder(in_component("write_only"), 0200)
                                    .folder(in_component("read_only"), 0444)
                                    .link(in_component("l"), "f")),
              "");
    EXPECT_TRUE((Tree{file("f", "text", 0600).owned_by(APPS_USER, 0), file("none", "", 0),
                      dir("d", {}, 0700).owned_by(APPS_USER, 0), dir("write_only", {}, 0200),
                      dir("read_only", {}, 0500), link("l", "f").owned_by(APPS_USER, 0)}
                     .matches(COMPONENT_FOLDER)));
    std::filesystem::remove_all(COMPONENT_FOLDER);
    EXPECT_EQ(restore_component(TarBuilder()
                                    .file(in_component("f"), "text", 0777)
                                    .folder(in_component("d"), 0777)
                                    .folder(in_component("mine"), 0700),
                                GROUP_MASK),
              "");
    EXPECT_TRUE(
        (Tree{file("f", "text", 0660), dir("d", {}, 0770), dir("mine", {}, 0700)}.matches(COMPONENT_FOLDER)));
  }));
}

TEST_F(ComponentRestoreTest, MakesTheFoldersAboveAnEntry) {
  EXPECT_TRUE(on_the_device([] {
    EXPECT_EQ(restore_component(
                  TarBuilder().file(in_component("d/e/f"), "text").folder(in_component("d/g/h"), 0770)),
              "");
    EXPECT_TRUE((Tree{dir("sys.navigator",
                          {dir("d",
                               {dir("e", {file("f", "text", 0600)}, 0700).owned_by(APPS_USER, 0),
                                dir("g", {dir("h", {}, 0700)}, 0700)},
                               0700)
                               .owned_by(APPS_USER, 0)},
                          0700)
                          .owned_by(APPS_USER, 0)}
                     .matches(APPLICATION_DATA)));
    std::filesystem::remove_all(COMPONENT_FOLDER);
    EXPECT_EQ(restore_component(TarBuilder().file(in_component("d/f"), "text"), GROUP_MASK), "");
    EXPECT_TRUE((Tree{dir("sys.navigator", {dir("d", {file("f", "text", 0660)}, 0770)}, 0770)}.matches(
        APPLICATION_DATA)));
  }));
}

TEST_F(ComponentRestoreTest, LeavesFoldersAsTheyAre) {
  EXPECT_TRUE(on_the_device([] {
    std::filesystem::create_directories(in_component("d"));
    ASSERT_EQ(::chmod(COMPONENT_FOLDER, 0755), 0);
    ASSERT_EQ(::chmod(in_component("d").c_str(), 0777), 0);
    EXPECT_EQ(restore_component(TarBuilder().file(in_component("d/f"), "text")), "");
    EXPECT_TRUE((Tree{dir("sys.navigator", {dir("d", {file("f", "text", 0600)}, 0777)}, 0755)}.matches(
        APPLICATION_DATA)));
  }));
}

TEST_F(ComponentRestoreTest, MakesNothingBehindALink) {
  EXPECT_TRUE(on_the_device([] {
    std::filesystem::create_directories("/out");
    ASSERT_EQ(::chmod("/out", 0777), 0);
    std::filesystem::create_directories(COMPONENT_FOLDER);
    ASSERT_EQ(::chmod(COMPONENT_FOLDER, 0777), 0);
    std::filesystem::create_symlink("/out", in_component("l"));
    const std::string errors = restore_component(TarBuilder()
                                                     .file(in_component("l/f"), "text")
                                                     .file(in_component("l/d/f"), "text")
                                                     .file(in_component("f"), "text"));
    EXPECT_TRUE(Tree{}.matches("/out"));
    EXPECT_TRUE((Tree{link("l", "/out"), file("f", "text", 0600)}.matches(COMPONENT_FOLDER)));
    EXPECT_EQ(count_of(errors, "Warning: "), 2U) << errors;
  }));
}

TEST_F(ComponentRestoreTest, GivesIdentityAndMaskBack) {
  EXPECT_TRUE(on_the_device([] {
    ASSERT_EQ(::setegid(12), 0);
    const mode_t before = ::umask(0123);
    {
      write_file("/a.tar", TarBuilder().text());
      Reader reader("/a.tar");
      harbix::Completeness completeness;
      ComponentRestore component(reader, APPS_USER, MASK, completeness);
      EXPECT_EQ(::geteuid(), APPS_USER);
      EXPECT_EQ(::getegid(), 0U);
    }
    EXPECT_EQ(::geteuid(), 0U);
    EXPECT_EQ(::getegid(), 12U);
    EXPECT_EQ(::umask(before), 0123U);
  }));
}

}  // namespace
}  // namespace harbix::test
