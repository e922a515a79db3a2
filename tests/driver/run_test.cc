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
#include "support/captured_output.h"
#include "support/child_process.h"
#include "support/device_accounts.h"
#include "support/recorded_log.h"
#include "support/tar_builder.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using test::CapturedOutput;
using test::passes_in_child;
using test::passes_with_device_accounts;
using test::RecordedLog;
using test::TemporaryFolder;

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
      EXPECT_EQ(1, run(row.words));
      EXPECT_EQ(row.output, output.text());
      EXPECT_EQ("", errors.text());
      EXPECT_EQ(Words{row.logged}, log.messages());
    }));
  }
}

TEST(Run, EndsAtOnceWithStatusOne) {
  for (const Words& words : {Words{"-p", "media"}, Words{"-j", "app"}, Words{"-z", "app"}, Words{"-x"}}) {
    EXPECT_TRUE(passes_in_child([&words] {
      const RecordedLog log(5);
      const CapturedOutput output(STDOUT_FILENO);
      const CapturedOutput errors(STDERR_FILENO);
      EXPECT_EQ(1, run(words));
      EXPECT_EQ("", output.text());
      EXPECT_TRUE(log.lines().empty());
    }));
  }
}

TEST(Run, NotifiesWithoutAKeywordAndEndsWithStatusZero) {
  for (const Words& words :
       {Words{"-i"}, Words{"-t"}, Words{"-r", "-i"}, Words{"-s", "-i"}, Words{"-r", "-t", "foo"}}) {
    EXPECT_TRUE(passes_in_child([&words] {
      const RecordedLog log(5);
      EXPECT_EQ(0, run(words));
      EXPECT_EQ(Words{"4 Harbix running"}, log.messages());
    }));
  }
}

TEST(Run, LetsTheMissingSystemGroupEscape) {
  EXPECT_TRUE(passes_in_child([] {
    try {
      run({"-w", "media"});
      ADD_FAILURE();
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ("Group '1000_sys' does not exist", error.what());
    }
  }));
}

TEST(Run, WipesNothingWithStatusOne) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    const RecordedLog log(4);
    EXPECT_EQ(1, run({"-w", "media"}));
    EXPECT_EQ((Words{"4 Harbix running", "6 Filename: ", "4 Harbix exiting"}), log.messages());
  }));
}

TEST(Run, StandsInTheRootWithTheTwoGroups) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    EXPECT_EQ(1, run({"-w"}));
    EXPECT_EQ("/", fs::current_directory().text());
    std::array<gid_t, 8> groups{};
    ASSERT_EQ(2, ::getgroups(static_cast<int>(groups.size()), groups.data()));
    EXPECT_EQ(1000U, groups[0]);
    EXPECT_EQ(test::SYSTEM_GROUP, groups[1]);
  }));
}

TEST(Run, TellsOfFileAndKeywordsWhenVerbose) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_EQ(1, run({"-w", "-v", "-f", "/tmp/a.tar", "settings_media"}));
    EXPECT_EQ("Filename: /tmp/a.tar\nKeywords: \nsettings\nmedia\n", errors.text());
  }));
}

TEST(Run, TriesRestoreBeforeWipe) {
  const TemporaryFolder folder;
  test::write_file(folder / "a.tar", test::TarBuilder().text());
  EXPECT_TRUE(passes_with_device_accounts([&folder] {
    EXPECT_EQ(0, run({"-r", "-w", "-f", folder / "a.tar"}));
  }));
}

TEST(Run, TurnsAnExceptionOfTheArchiveStageIntoStatusTwo) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    const RecordedLog log(2);
    const CapturedOutput output(STDOUT_FILENO);
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_EQ(2, run({"-r", "-f", "/nonexistent/a.tar", "media"}));
    const std::string reason =
        "Archive error: Failed to open '/nonexistent/a.tar': No such file or directory";
    EXPECT_EQ("ERROR: " + reason + "\n", errors.text());
    EXPECT_EQ("", output.text());
    EXPECT_EQ((Words{"4 Harbix running", "2 ERROR: " + reason, "4 Harbix exiting"}), log.messages());
  }));
}

// Here is no installer, so that there is nothing to archive for "app".

TEST(Run, EndsTheArchiveOfAnOperationThatFailsAndAnswersItsStatus) {
  const TemporaryFolder folder;
  EXPECT_TRUE(passes_with_device_accounts([&folder] {
    const RecordedLog log(3);
    EXPECT_EQ(1, run({"-f", folder / "a.tar", "app"}));
    EXPECT_EQ(
        (Words{"4 Harbix running", "5 Archiving", "4 app",
               "2 ERROR: Failed to open /pps/system/installer/registeredapps/.all", "4 Harbix exiting"}),
        log.messages());
  }));
  EXPECT_EQ(std::string(1024, '\0'), test::read_file(folder / "a.tar"));
}

TEST(Run, ReportsTheSizeOfNothing) {
  const TemporaryFolder folder;
  EXPECT_TRUE(passes_with_device_accounts([&folder] {
    EXPECT_EQ(1, run({"-s", "-f", folder / "out.txt", "app"}));
  }));
  EXPECT_EQ("bytesize=2048\ncount=0\n", test::read_file(folder / "out.txt"));
}

TEST(Run, SetsUtf8NamesOnlyToWrite) {
  const TemporaryFolder folder;
  test::write_file(folder / "a.tar", test::TarBuilder().text());
  EXPECT_TRUE(passes_with_device_accounts([&folder] {
    EXPECT_EQ(1, run({"-r", "-f", folder / "a.tar", "app"}));
    EXPECT_STREQ("C", std::setlocale(LC_CTYPE, nullptr));
    EXPECT_EQ(1, run({"-f", folder / "b.tar", "app"}));
    EXPECT_STREQ("C.UTF-8", std::setlocale(LC_CTYPE, nullptr));
    EXPECT_STREQ("C", std::setlocale(LC_NUMERIC, nullptr));
  }));
}

}  // namespace
