#include "driver/run.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <clocale>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/flags.h"
#include "fs/working_directory.h"
#include "tests/support/captured_output.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/recorded_log.h"
#include "tests/support/root.h"
#include "tests/support/tar_builder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using Words = std::vector<std::string>;

int run(Words words) {
  words.insert(words.begin(), "harbix");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  return harbix::run_program(static_cast<int>(words.size()), arguments.data());
}

TEST(Run, RefusesOnStandardOutputAndInTheLog) {
  struct Row {
    Words words;
    const char *output, *logged;
  };
  const std::vector<Row> rows{{{"-i", "-t"},
                               "can not specify both backup initiation and termination",
                               "2 can not specify both backup initiation and termination"},
                              {{"-f", "-r", "media"}, "Filename missing\n", "2 Filename missing"},
                              {{"-f", "", "media"}, "Filename missing\n", "2 Filename missing"},
                              {{"foo"}, "Keyword missing\n", "2 Keyword missing"},
                              {{}, "Keyword missing\n", "2 Keyword missing"}};
  for (const Row& row : rows) {
    EXPECT_TRUE(passes_in_child([&row] {
      const RecordedLog log(0);
      const CapturedOutput output(STDOUT_FILENO);
      const CapturedOutput errors(STDERR_FILENO);
      EXPECT_EQ(run(row.words), 1);
      EXPECT_EQ(output.text(), row.output);
      EXPECT_EQ(errors.text(), "");
      EXPECT_EQ(log.messages(), Words{row.logged});
    }));
  }
}

TEST(Run, EndsAtOnceWithStatusOne) {
  for (const Words& words : {Words{"-p", "media"}, Words{"-j", "app"}, Words{"-z", "app"}, Words{"-x"}}) {
    EXPECT_TRUE(passes_in_child([&words] {
      const RecordedLog log(5);
      const CapturedOutput output(STDOUT_FILENO);
      const CapturedOutput errors(STDERR_FILENO);
      EXPECT_EQ(run(words), 1);
      EXPECT_EQ(output.text(), "");
      EXPECT_TRUE(log.lines().empty());
    }));
  }
}

TEST(Run, NotifiesWithoutAKeywordAndEndsWithStatusZero) {
  for (const Words& words :
       {Words{"-i"}, Words{"-t"}, Words{"-r", "-i"}, Words{"-s", "-i"}, Words{"-r", "-t", "foo"}}) {
    EXPECT_TRUE(passes_in_child([&words] {
      const RecordedLog log(5);
      EXPECT_EQ(run(words), 0);
      EXPECT_EQ(log.messages(), Words{"4 Harbix running"});
    }));
  }
}

TEST(Run, LetsTheMissingSystemGroupEscape) {
  EXPECT_TRUE(passes_in_child([] {
    try {
      run({"-w", "media"});
      ADD_FAILURE();
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), "Group '1000_sys' does not exist");
    }
  }));
}

TEST(Run, WipesNothingWithStatusOne) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    const RecordedLog log(4);
    EXPECT_EQ(run({"-w", "media"}), 1);
    EXPECT_EQ(log.messages(), (Words{"4 Harbix running", "6 Filename: ", "4 Harbix exiting"}));
  }));
}

TEST(Run, StandsInTheRootWithTheTwoGroups) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    EXPECT_EQ(run({"-w"}), 1);
    EXPECT_EQ(fs::current_directory().text(), "/");
    std::array<gid_t, 8> groups{};
    ASSERT_EQ(::getgroups(static_cast<int>(groups.size()), groups.data()), 2);
    EXPECT_EQ(groups[0], 1000U);
    EXPECT_EQ(groups[1], SYSTEM_GROUP);
  }));
}

TEST(Run, TellsOfFileAndKeywordsWhenVerbose) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_EQ(run({"-w", "-v", "-f", "/tmp/a.tar", "settings_media"}), 1);
    EXPECT_EQ(errors.text(), "Filename: /tmp/a.tar\nKeywords: \nsettings\nmedia\n");
  }));
}

TEST(Run, TriesRestoreBeforeWipe) {
  const TemporaryFolder folder;
  write_file(folder / "a.tar", TarBuilder().text());
  EXPECT_TRUE(passes_with_device_accounts([&folder] {
    EXPECT_EQ(run({"-r", "-w", "-f", folder / "a.tar"}), 0);
  }));
}

TEST(Run, TurnsAnExceptionOfTheArchiveStageIntoStatusTwo) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    const RecordedLog log(2);
    const CapturedOutput output(STDOUT_FILENO);
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_EQ(run({"-r", "-f", "/nonexistent/a.tar", "media"}), 2);
    const std::string reason =
        "Archive error: Failed to open '/nonexistent/a.tar': No such file or directory";
    EXPECT_EQ(errors.text(), "ERROR: " + reason + "\n");
    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(log.messages(), (Words{"4 Harbix running", "2 ERROR: " + reason, "4 Harbix exiting"}));
  }));
}

// Here is no installer, so that there is nothing to archive for "app".

TEST(Run, MakesNoArchiveForAnOperationThatFailsBeforeItsFirstEntryAndAnswersItsStatus) {
  const TemporaryFolder folder;
  EXPECT_TRUE(passes_with_device_accounts([&folder] {
    const RecordedLog log(3);
    EXPECT_EQ(run({"-f", folder / "a.tar", "app"}), 1);
    EXPECT_EQ(log.messages(), (Words{"4 Harbix running", "5 Archiving", "4 app",
                                     "2 ERROR: Failed to open /pps/system/installer/registeredapps/.all",
                                     "4 Harbix exiting"}));
  }));
  EXPECT_TRUE(Tree{}.matches(folder.path()));
}

TEST(Run, ReportsTheSizeOfNothing) {
  const TemporaryFolder folder;
  EXPECT_TRUE(passes_with_device_accounts([&folder] {
    EXPECT_EQ(run({"-s", "-f", folder / "out.txt", "app"}), 1);
  }));
  EXPECT_EQ(read_file(folder / "out.txt"), "bytesize=2048\ncount=0\n");
}

TEST(Run, SetsUtf8NamesOnlyToWrite) {
  const TemporaryFolder folder;
  write_file(folder / "a.tar", TarBuilder().text());
  EXPECT_TRUE(passes_with_device_accounts([&folder] {
    EXPECT_EQ(run({"-r", "-f", folder / "a.tar", "app"}), 1);
    EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C");
    EXPECT_EQ(run({"-f", folder / "b.tar", "app"}), 1);
    EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C.UTF-8");
    EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C");
  }));
}

}  // namespace
}  // namespace harbix::test
