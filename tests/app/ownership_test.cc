#include "app/ownership.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/flags.h"
#include "fs/exception.h"
#include "fs/identity.h"
#include "tests/support/captured_output.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/recorded_log.h"
#include "tests/support/text.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;
using harbix::apply_ownership;
using harbix::apply_ownership_below;
using harbix::data_owner;
using harbix::Ownership;
using harbix::parse_application_group;

constexpr uid_t USER = 1234;
constexpr gid_t GROUP = 5678;
constexpr uid_t NOBODY = 65534;

constexpr Ownership OF_BINARIES{.user = USER, .group = GROUP, .mode = 0750};
constexpr Ownership OF_DATA{.user = USER, .group = GROUP, .mode = 0770};

std::vector<std::string> sorted(std::vector<std::string> texts) {
  std::ranges::sort(texts);
  return texts;
}

/// What handing a file over throws, "" when it throws nothing.
template <typename Body>
std::string failure_of(const Body& body) {
  try {
    body();
  } catch (const fs::Exception& error) {
    return error.what();
  }
  return "";
}

class OwnershipTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string path(const std::string& name) const { return folder_ / name; }
  TemporaryFolder folder_;
  fs::Folder root_{Path(folder_.path())};
};

TEST_F(OwnershipTest, OnlyTakesPermissionsAway) {
  struct Row {
    mode_t before, binaries, data;
  };
  for (const Row& row : {Row{0777, 0750, 0770}, Row{0600, 0600, 0600}, Row{0644, 0640, 0640}, Row{0, 0, 0},
                         Row{0007, 0, 0}, Row{0755, 0750, 0750}, Row{0662, 0640, 0660},
                         Row{07777, 0750, 0770}, Row{06755, 0750, 0750}, Row{01070, 0050, 0070}}) {
    for (const Ownership& ownership : {OF_BINARIES, OF_DATA}) {
      const mode_t after = ownership.mode == OF_BINARIES.mode ? row.binaries : row.data;
      Tree{file("f", "", row.before), dir("d", {}, row.before)}.build(folder_.path());
      apply_ownership(ownership, root_, "f");
      apply_ownership(ownership, root_, "d");
      EXPECT_TRUE((
          Tree{file("f", "", after).owned_by(USER, GROUP), dir("d", {}, after).owned_by(USER, GROUP)}.matches(
              folder_.path())))
          << std::oct << row.before;
      ASSERT_EQ(::unlink(path("f").c_str()), 0);
      ASSERT_EQ(::rmdir(path("d").c_str()), 0);
    }
  }
}

TEST_F(OwnershipTest, OfALinkIsItsOwnAndNotThatOfItsTarget) {
  Tree{file("f", "", 0777), link("l", "f"), link("dangling", "nowhere")}.build(folder_.path());
  apply_ownership(OF_DATA, root_, "l");
  apply_ownership(OF_DATA, root_, "dangling");
  EXPECT_TRUE((Tree{file("f", "", 0777).owned_by(0, 0), link("l", "f").owned_by(USER, GROUP),
                    link("dangling", "nowhere").owned_by(USER, GROUP)}
                   .matches(folder_.path())));
}

TEST_F(OwnershipTest, NeverTouchesTheFoldersOfEveryFolder) {
  Tree{dir("d", {}, 0777)}.build(folder_.path());
  for (const char* name : {"d/."}) apply_ownership(OF_DATA, root_, name);
  EXPECT_TRUE((Tree{dir("d", {}, 0777).owned_by(0, 0)}.matches(folder_.path())));
  struct ::stat record {};
  ASSERT_EQ(::stat(folder_.path().c_str(), &record), 0);
  EXPECT_EQ(record.st_uid, 0U);
  // Names that only begin like them are names.
  Tree{file("..."), file("..x")}.build(folder_.path());
  for (const char* name : {"...", "..x"}) {
    apply_ownership(OF_DATA, root_, name);
    EXPECT_EQ(root_.file(name).record().st_uid, USER) << name;
  }
}

TEST_F(OwnershipTest, IsToldOfWhenVerbose) {
  EXPECT_TRUE(passes_in_child([this] {
    Tree{file("f")}.build(folder_.path());
    const CapturedOutput errors(STDERR_FILENO);
    apply_ownership(OF_DATA, root_, "f");
    EXPECT_EQ(errors.text(), "");
    harbix::verbose = true;
    apply_ownership(OF_DATA, root_, "f");
    apply_ownership(OF_DATA, root_, ".");
    EXPECT_EQ(errors.text(), "Applying ownership 1234:5678 to " + path("f") + "\n");
  }));
}

TEST_F(OwnershipTest, FailsWherePermissionsCannotBeSet) {
  EXPECT_TRUE(passes_in_child([this] {
    Tree{file("theirs", "", 0777)}.build(folder_.path());
    const fs::EffectiveUser user(NOBODY);
    const RecordedLog log;
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_EQ(failure_of([&] { apply_ownership(OF_DATA, root_, "theirs"); }),
              "Applying perms. to " + path("theirs") + " [errno:1 'Operation not permitted']");
    EXPECT_EQ(errors.text(),
              "ERROR applying permissions to " + path("theirs") + " (Operation not permitted)\n");
    EXPECT_TRUE(log.messages().empty());
  }));
}

TEST_F(OwnershipTest, FailsWhereTheOwnerCannotBeSet) {
  EXPECT_TRUE(passes_in_child([this] {
    Tree{link("theirs", "nowhere")}.build(folder_.path());
    const fs::EffectiveUser user(NOBODY);
    const RecordedLog log;
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_EQ(failure_of([&] { apply_ownership(OF_DATA, root_, "theirs"); }),
              "Applying exception to " + path("theirs") + " [errno:1 'Operation not permitted']");
    EXPECT_EQ(errors.text(),
              "ERROR applying ownership to " + path("theirs") + " (Operation not permitted)\n");
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"2 ERROR applying ownership to " + path("theirs") +
                                                        " ('Operation not permitted')"}));
  }));
}

TEST_F(OwnershipTest, GoesToNothingThatIsReachedThroughALink) {
  Tree{dir("app", {link("folder", "../others")}), dir("others", {file("secret", "", 0666)})}.build(
      folder_.path());
  EXPECT_NE(failure_of([this] { apply_ownership(OF_DATA, root_, "app/folder/secret"); }), "");
  EXPECT_NE(failure_of([this] { apply_ownership_below(OF_DATA, root_, "app/folder"); }), "");
  EXPECT_TRUE((Tree{dir("app", {link("folder", "../others")}),
                    dir("others", {file("secret", "", 0666).owned_by(0, 0)})}
                   .matches(folder_.path())));
}

TEST_F(OwnershipTest, OfAFileWithOtherNamesStaysAsItIs) {
  for (const mode_t mode : {mode_t{0600}, mode_t{0666}}) {
    Tree{dir("app"), file("secret", "", mode)}.build(folder_.path());
    ASSERT_EQ(::link(path("secret").c_str(), path("app/secret").c_str()), 0);
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_NE(failure_of([this] { apply_ownership(OF_BINARIES, root_, "app/secret"); }), "");
    EXPECT_NE(failure_of([this] { apply_ownership_below(OF_DATA, root_, "app"); }), "");
    EXPECT_TRUE(
        (Tree{dir("app", {file("secret", "", mode).owned_by(0, 0)}), file("secret", "", mode)}.matches(
            folder_.path())))
        << std::oct << mode;
    ASSERT_EQ(::unlink(path("app/secret").c_str()), 0);
    ASSERT_EQ(::rmdir(path("app").c_str()), 0);
    ASSERT_EQ(::unlink(path("secret").c_str()), 0);
  }
}

TEST_F(OwnershipTest, OfTheOwnersFileWithOtherNamesIsSet) {
  Tree{file("one", "", 0666).owned_by(USER, 0)}.build(folder_.path());
  ASSERT_EQ(::link(path("one").c_str(), path("two").c_str()), 0);
  apply_ownership(OF_DATA, root_, "two");
  EXPECT_TRUE(
      (Tree{file("one", "", 0660).owned_by(USER, GROUP), file("two", "", 0660).owned_by(USER, GROUP)}.matches(
          folder_.path())));
}

TEST_F(OwnershipTest, FailsForWhatIsGone) {
  EXPECT_EQ(failure_of([this] { apply_ownership(OF_DATA, root_, "gone"); }),
            "Path '" + path("gone") + "' stat failed. [errno:2 'No such file or directory']");
}

TEST_F(OwnershipTest, GoesThroughATreeAndLeavesItsRoot) {
  Tree{dir("d", {file("f", "", 0777), dir("e", {link("l", "../../out"), file(".h", "", 0600)}, 0777)}, 0777),
       dir("out", {file("g", "", 0777)}, 0777)}
      .build(folder_.path());
  const CapturedOutput errors(STDERR_FILENO);
  apply_ownership_below(OF_DATA, root_, "d");
  EXPECT_TRUE((Tree{
      dir("d",
          {file("f", "", 0770).owned_by(USER, GROUP),
           dir("e",
               {link("l", "../../out").owned_by(USER, GROUP), file(".h", "", 0600).owned_by(USER, GROUP)},
               0770)
               .owned_by(USER, GROUP)},
          0777)
          .owned_by(0, 0),
      dir("out", {file("g", "", 0777).owned_by(0, 0)}, 0777).owned_by(0, 0)}
                   .matches(folder_.path())));
  EXPECT_EQ(sorted(lines_of(errors.text())),
            (std::vector<std::string>{path("d/e"), path("d/e/.h"), path("d/e/l"), path("d/f")}));
}

TEST_F(OwnershipTest, GoesThroughATreeFromItsDeepestEnd) {
  EXPECT_TRUE(passes_in_child([this] {
    Tree{dir("a", {dir("b", {dir("c", {file("d")})}), file("e")}), file("f")}.build(folder_.path());
    harbix::verbose = true;
    const CapturedOutput errors(STDERR_FILENO);
    apply_ownership_below(OF_DATA, root_, "");
    const std::vector<std::string> lines = lines_of(errors.text());
    ASSERT_EQ(lines.size(), 12U) << errors.text();
    // The list comes first, and is then gone through from its end.
    for (std::size_t i = 0; i < 6; ++i)
      EXPECT_EQ(lines[6 + i], "Applying ownership 1234:5678 to " + lines[5 - i]);
    const auto place = [&lines](const std::string& name) { return std::ranges::find(lines, name); };
    EXPECT_LT(place(path("a")), place(path("a/b")));
    EXPECT_LT(place(path("a")), place(path("a/e")));
    EXPECT_LT(place(path("a/b")), place(path("a/b/c")));
    EXPECT_LT(place(path("a/b/c")), place(path("a/b/c/d")));
  }));
}

TEST_F(OwnershipTest, ListsATreeOfManyFilesInFull) {
  std::vector<std::string> names;
  for (int i = 0; i < 1500; ++i) {
    names.push_back(path(std::string(60, 'n') + std::to_string(i)));
    write_file(names.back(), "");
  }
  const CapturedOutput errors(STDERR_FILENO);
  apply_ownership_below(OF_DATA, root_, "");
  EXPECT_EQ(sorted(lines_of(errors.text())), sorted(names));
}

TEST_F(OwnershipTest, StopsAtTheFirstFailureAndKeepsWhatIsDone) {
  EXPECT_TRUE(passes_in_child([this] {
    Tree{dir("a", {file("mine", "", 0777).owned_by(NOBODY, 0)}, 0777)}.build(folder_.path());
    const fs::EffectiveUser user(NOBODY);
    const CapturedOutput errors(STDERR_FILENO);
    const Ownership ownership{.user = NOBODY, .group = 0, .mode = 0700};
    EXPECT_EQ(failure_of([&] { apply_ownership_below(ownership, root_, ""); }),
              "Applying perms. to " + path("a") + " [errno:1 'Operation not permitted']");
    EXPECT_TRUE((Tree{dir("a", {file("mine", "", 0700)}, 0777).owned_by(0, 0)}.matches(folder_.path())));
  }));
}

TEST_F(OwnershipTest, NeedsATreeThatCanBeListed) {
  const CapturedOutput errors(STDERR_FILENO);
  EXPECT_EQ(failure_of([this] { apply_ownership_below(OF_DATA, root_, "gone"); }),
            "Directory '" + path("gone") + "' could not be opened. [errno:2 'No such file or directory']");
  EXPECT_EQ(errors.text(), "");
}

TEST(ApplicationGroup, IsADecimalNumber) {
  struct Row {
    const char* text;
    gid_t group;
  };
  for (const Row& row : {Row{"0", 0}, Row{"1", 1}, Row{"9999", 9999}, Row{"10000", 10000},
                         Row{"010001", 10001}, Row{"429496", 429496}})
    EXPECT_EQ(parse_application_group(row.text), row.group) << row.text;
}

TEST(ApplicationGroup, ThatIsNoneIsQuotedInTheError) {
  for (const std::string text :
       {"", " ", "-1", "+1", " 1", "1 ", "1\n", "0x2710", "ten", "10001,10002", "1e4", "10001.0", "429497",
        "4294967295", "4294967296", "18446744073709561617"}) {
    try {
      static_cast<void>(parse_application_group(text));
      ADD_FAILURE() << text;
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(error.what(), "'" + text + "' is not a group id");
    }
  }
}

TEST(ApplicationGroup, HasAUserOfItsOwnForData) {
  EXPECT_EQ(data_owner(0), 1000U);
  EXPECT_EQ(data_owner(harbix::FIRST_APPLICATION_GROUP), 100001000U);
  EXPECT_EQ(data_owner(10001), 100011000U);
  // The last one that stays below the id that stands for "unchanged".
  EXPECT_EQ(data_owner(429496), 4294961000U);
}

}  // namespace
}  // namespace harbix::test
