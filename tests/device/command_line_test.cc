#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"
#include "tests/support/program.h"

namespace harbix::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

TEST(CommandLine, RefusesWhatItCannotDo) {
  struct Row {
    std::vector<std::string> arguments;
    int status;
    std::string output;
    std::vector<std::string> logged;
  };
  const std::string conflict = "can not specify both backup initiation and termination";
  Device device;
  for (const Row& row : {
           Row{{"-p", "media"}, 1, "", {}},
           Row{{"-j", "app"}, 1, "", {}},
           Row{{"-z", "app"}, 1, "", {}},
           Row{{"-i", "-t"}, 1, conflict, {conflict}},
           Row{{"-f", "", "media"}, 1, "Filename missing\n", {"Filename missing"}},
           Row{{"-f", "-r", "media"}, 1, "Filename missing\n", {"Filename missing"}},
           Row{{}, 1, "Keyword missing\n", {"Keyword missing"}},
           Row{{"foo"}, 1, "Keyword missing\n", {"Keyword missing"}},
           Row{{"mediaX_", "media"}, 1, "Keyword missing\n", {"Keyword missing"}},
           Row{{"-w", "media"}, 1, "", {}},
           Row{{"-w"}, 1, "", {}},
       }) {
    const Outcome outcome = device.harbix(row.arguments);
    EXPECT_EQ(outcome.status, row.status) << testing::PrintToString(row.arguments);
    EXPECT_EQ(outcome.output, row.output) << testing::PrintToString(row.arguments);
    EXPECT_EQ(outcome.errors, "") << testing::PrintToString(row.arguments);
    EXPECT_EQ(device.logged(LOG_PRIORITY_ERROR), row.logged) << testing::PrintToString(row.arguments);
  }
}

TEST(CommandLine, LeavesUnknownOptionsAndMissingArgumentsToGetopt) {
  Device device;
  for (const char* option : {"-x", "-d", "-f"}) {
    const Outcome outcome = device.harbix({option});
    EXPECT_EQ(outcome.status, 1) << option;
    EXPECT_EQ(outcome.output, "") << option;
    EXPECT_THAT(outcome.errors, MatchesRegex("harbix: [^\n]+\n")) << option;
    EXPECT_THAT(device.log(), IsEmpty()) << option;
  }
}

TEST(CommandLine, StopsParsingAtTheFirstOperand) {
  Device device;
  const Outcome outcome = device.harbix({"-v", "media", "-r", "-j"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_THAT(outcome.errors, testing::StartsWith("Filename: \nKeywords: \nmedia\nArchiving\nMedia\n"));
}

TEST(CommandLine, SelectsEachKnownKeywordOnce) {
  Device device;
  const Outcome outcome = device.harbix({"-v", "-f", "/tmp/a.tar", "media_media_foo__app"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.errors,
              testing::StartsWith("Filename: /tmp/a.tar\nKeywords: \nmedia\napp\nArchiving\n"));
}

TEST(CommandLine, RestoresNothingWithoutAKeyword) {
  Device device;
  device.write(std::string(SHARED) + "/Music/a.mp3", "a");
  ASSERT_EQ(device.harbix({"-f", "/tmp/a.tar", "media"}).status, 0);
  const Snapshot before = device.snapshot(SHARED);
  const Outcome outcome = device.harbix({"-r", "-w", "-f", "/tmp/a.tar"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(difference(before, device.snapshot(SHARED)), "");
  const Outcome of_nothing = device.harbix({"-r", "-w"});
  EXPECT_EQ(of_nothing.status, 0) << of_nothing.errors;
  EXPECT_EQ(of_nothing.errors, "");
}

TEST(CommandLine, TakesRelativeFileNamesFromTheRoot) {
  Device device;
  EXPECT_EQ(device.shell("cd /tmp && harbix -f tmp/below_root.tar media").status, 0);
  EXPECT_TRUE(device.exists("/tmp/below_root.tar"));
}

TEST(Log, SendsWhatTheLevelAllows) {
  Device device;
  struct Row {
    std::vector<std::string> options;
    bool running;
    bool archiving;
    bool file_name;
  };
  for (const Row& row : {
           Row{{}, false, false, false},
           Row{{"-d", "0"}, false, false, false},
           Row{{"-d", "1"}, false, false, false},
           Row{{"-d", "2"}, true, false, false},
           Row{{"-d", "3"}, true, true, false},
           Row{{"-d", "4"}, true, true, true},
           Row{{"-d", "5"}, true, true, true},
           Row{{"-d", "5", "-d", "7"}, true, true, true},
           Row{{"-d", "5", "-d", "-1"}, true, true, true},
       }) {
    std::vector<std::string> arguments = row.options;
    arguments.insert(arguments.end(), {"-f", "/tmp/a.tar", "media"});
    ASSERT_EQ(device.harbix(arguments).status, 0);
    const std::string shown = testing::PrintToString(row.options);
    const auto notices = device.logged(LOG_PRIORITY_NOTICE);
    EXPECT_EQ(testing::Value(notices, Contains("Harbix running")), row.running) << shown;
    EXPECT_EQ(testing::Value(notices, Contains("Harbix exiting")), row.running) << shown;
    EXPECT_EQ(testing::Value(device.logged(LOG_PRIORITY_INFO), Contains("Archiving")), row.archiving)
        << shown;
    EXPECT_EQ(testing::Value(device.logged(LOG_PRIORITY_DEBUG), Contains("Filename: /tmp/a.tar")),
              row.file_name)
        << shown;
  }
}

TEST(Log, ConfirmsTheLevelAtItsOwnSeverity) {
  Device device;
  struct Row {
    const char* level;
    int priority;
  };
  for (const Row& row : {Row{"0", 3}, Row{"1", 4}, Row{"2", 5}, Row{"3", 6}, Row{"4", 7}, Row{"5", 7}}) {
    ASSERT_EQ(device.harbix({"-d", row.level, "foo"}).status, 1);
    // The newline at the end of the message is the line's own; the log shows it or takes it as the end of the
    // line.
    EXPECT_THAT(device.logged(row.priority),
                Contains(testing::StartsWith(std::string("Debug level ") + row.level + " enabled")));
  }
}

TEST(Log, CutsLinesAt799Characters) {
  Device device;
  const std::string long_name = "/tmp/" + std::string(2000, 'x');
  EXPECT_EQ(device.harbix({"-d", "4", "-f", long_name, "media"}).status, 2);
  std::vector<std::size_t> lengths;
  for (const LogLine& line : device.log()) lengths.push_back(line.text.size());
  EXPECT_THAT(lengths, Contains(799U));
  EXPECT_EQ(*std::max_element(lengths.begin(), lengths.end()), 799U);
}

TEST(Log, TagsLinesWithProgramAndProcess) {
  Device device;
  ASSERT_EQ(device.harbix({"foo"}).status, 1);
  const std::vector<LogLine> lines = device.log();
  ASSERT_THAT(lines, SizeIs(1));
  EXPECT_THAT(lines[0].text, MatchesRegex("harbix\\[[0-9]+\\]:Keyword missing"));
}

TEST(Run, DoesWithoutASystemLog) {
  Device device;
  EXPECT_EQ(device.shell("rm /dev/log; harbix -d 5 -f /tmp/a.tar media").status, 0);
  EXPECT_THAT(device.log(), IsEmpty());
}

TEST(Run, TellsInOrderWhatItDoes) {
  Device device;
  ASSERT_EQ(device.harbix({"-d", "2", "-f", "/tmp/a.tar", "media"}).status, 0);
  EXPECT_THAT(device.logged(LOG_PRIORITY_NOTICE),
              ElementsAre(testing::StartsWith("Debug level 2 enabled"), "Harbix running", "Media",
                          "archiving dtm share", "Harbix exiting"));
  ASSERT_EQ(device.harbix({"-d", "2", "-r", "-f", "/tmp/a.tar", "media"}).status, 0);
  EXPECT_THAT(device.logged(LOG_PRIORITY_NOTICE),
              ElementsAre(testing::StartsWith("Debug level 2 enabled"), "Harbix running", "Restoring media",
                          "harbix_media_restore", "Restoring media finished. Return:0", "Harbix exiting"));
}

TEST(Run, ReportsAnArchiveThatCannotBeOpened) {
  Device device;
  device.write(std::string(SHARED) + "/Music/a.mp3", "a");
  const Snapshot before = device.snapshot(SHARED);
  const Outcome outcome = device.harbix({"-d", "2", "-r", "-f", "/tmp/missing.tar", "media"});
  EXPECT_EQ(outcome.status, 2);
  const std::string reason = "Archive error: Failed to open '/tmp/missing.tar': No such file or directory";
  EXPECT_EQ(outcome.errors, "ERROR: " + reason + "\n");
  EXPECT_THAT(device.logged(LOG_PRIORITY_ERROR), ElementsAre("ERROR: " + reason));
  EXPECT_THAT(device.logged(LOG_PRIORITY_NOTICE), Contains("Harbix exiting"));
  EXPECT_EQ(difference(before, device.snapshot(SHARED)), "");
}

TEST(Run, EndsByAnUncaughtExceptionWithoutTheSystemGroup) {
  Device device;
  device.write(std::string(SHARED) + "/Music/a.mp3", "a");
  ASSERT_EQ(device.shell("sed -i /^1000_sys:/d /etc/group").status, 0);
  const Snapshot before = device.snapshot(SHARED);
  for (const char* mode : {"-v", "-r"}) {
    const Outcome outcome = device.harbix({mode, "-f", "/tmp/a.tar", "media"});
    EXPECT_EQ(outcome.status, 128 + SIGABRT) << mode;
    EXPECT_THAT(outcome.errors, testing::HasSubstr("Group '1000_sys' does not exist")) << mode;
  }
  EXPECT_FALSE(device.exists("/tmp/a.tar"));
  EXPECT_EQ(difference(before, device.snapshot(SHARED)), "");
}

TEST(Run, DoesNoHarmWithoutTheMediaAccounts) {
  struct Row {
    const char* file;
    const char* account;
    const char* reason;
  };
  for (const Row& row : {Row{"group", "1000_shared", "Group '1000_shared' does not exist"},
                         Row{"group", "protected_media", "Group 'protected_media' does not exist"},
                         Row{"passwd", "media", "User 'media' does not exist"}}) {
    Device device;
    device.write(std::string(SHARED) + "/Music/a.mp3", "a");
    ASSERT_EQ(device.harbix({"-f", "/tmp/a.tar", "media"}).status, 0);
    const Snapshot before = device.snapshot(SHARED);
    ASSERT_EQ(device.shell(std::string("sed -i /^") + row.account + ":/d /etc/" + row.file).status, 0);

    const Outcome backup = device.harbix({"-f", "/tmp/b.tar", "media"});
    EXPECT_EQ(backup.status, 1) << row.account;
    EXPECT_EQ(backup.errors, std::string("Error: ") + row.reason + "\n");
    EXPECT_THAT(device.logged(LOG_PRIORITY_ERROR), ElementsAre(std::string("ERROR: ") + row.reason));

    const Outcome restore = device.harbix({"-r", "-f", "/tmp/a.tar", "media"});
    EXPECT_EQ(restore.status, 1) << row.account;
    EXPECT_EQ(restore.errors, std::string("Error: ") + row.reason + "\n");
    EXPECT_THAT(device.logged(LOG_PRIORITY_ERROR),
                ElementsAre(std::string("Error occured: '") + row.reason + "'"));
    EXPECT_EQ(difference(before, device.snapshot(SHARED)), "") << row.account;
  }
}

TEST(Run, DoesNoHarmWhenNotRoot) {
  Device device;
  device.write(std::string(SHARED) + "/Music/a.mp3", "a");
  ASSERT_EQ(device.harbix({"-f", "/tmp/a.tar", "media"}).status, 0);
  const Snapshot before = device.snapshot(SHARED);
  const std::string as_daemon = "setpriv --reuid=daemon --regid=daemon --clear-groups harbix ";

  const Outcome backup = device.shell(as_daemon + "-f /tmp/b.tar media");
  EXPECT_EQ(backup.status, 1);
  EXPECT_THAT(backup.errors,
              testing::StartsWith("Error: Failed to chdir to '/accounts/1000/shared' [errno:13 "));

  const Outcome restore = device.shell(as_daemon + "-r -f /tmp/a.tar media");
  EXPECT_EQ(restore.status, 1);
  EXPECT_EQ(difference(before, device.snapshot(SHARED)), "");

  ASSERT_EQ(device.shell("chmod 755 /accounts/1000/shared").status, 0);
  const Outcome switched = device.shell(as_daemon + "-f /tmp/c.tar media");
  EXPECT_EQ(switched.status, 1);
  EXPECT_EQ(switched.errors, "Error: Could not set effective uid: Operation not permitted\n");
  EXPECT_THAT(device.logged(LOG_PRIORITY_ERROR),
              ElementsAre("Could not set effective uid 0: Operation not permitted",
                          "ERROR: Could not set effective uid: Operation not permitted"));
}

TEST(Usage, StandsInASectionOfTheProgram) {
  const Outcome usage = run_program({"objcopy", "-O", "binary", "--only-section=.usage",
                                     "--set-section-flags", ".usage=alloc", HARBIX_PROGRAM, "/dev/stdout"});
  const Outcome record = run_program({"cat", HARBIX_USAGE_RECORD});
  EXPECT_EQ(usage.output, record.output);
  EXPECT_THAT(record.output,
              testing::StartsWith(
                  "harbix [-d n] [-f filename] [-r] [-s] [-w] [-p] [-v] [-i] [-t] keyword [package-ids]\n"));
}

}  // namespace
}  // namespace harbix::test
