#include <string>

#include <gmock/gmock.h>

#include "tests/inspect/inspect_run.h"

namespace harbix::test {
namespace {

using ::testing::HasSubstr;

class InspectList : public InspectRun {};

std::string two_packages() {
  TarBuilder tar = music();
  tar.owner(1000).file("/settings/.backup.metadata", "\n").file("/settings/etc/x", "12345", 0640);
  return tar.text();
}

TEST_F(InspectList, HasALineAPackage) {
  const Outcome outcome = inspect({"list", archive(two_packages())});
  EXPECT_EQ(outcome.output,
            "media media 3 4 0:0 /media/Music\n"
            "settings settings 1 5 1000:0 /settings\n");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(inspect({"list", "-"}, two_packages()).output, outcome.output);
}

TEST_F(InspectList, ShowsTheItemsOfPackagesThatAreNamedInAnyWay) {
  const std::string tar = archive(two_packages());
  setenv("TZ", "UTC", 1);
  const std::string items =
      "drwxrwx--- 0/0               0 1970-01-01 00:00 /media/Music\n"
      "-rw-rw---- 0/0               4 1970-01-01 00:00 /media/Music/a.mp3\n"
      "lrwxrwxrwx 0/0               0 1970-01-01 00:00 /media/Music/link -> a.mp3\n";
  for (const char* name : {"/media/Music", "media/Music/", "Music"})
    EXPECT_EQ(inspect({"list", tar, name}).output, items) << name;
  EXPECT_EQ(inspect({"list", "--long", tar}).output,
            items + "-rw-r----- 1000/0            5 1970-01-01 00:00 /settings/etc/x\n");
  const Outcome missing = inspect({"list", tar, "Videos"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.errors, "harbix-inspect: No package 'Videos' in the archive\n");
}

TEST_F(InspectList, LetsNoControlCharacterThrough) {
  TarBuilder tar;
  tar.file("/media/\033]0;x\007/.backup.metadata", "\n").link("/media/\033]0;x\007/a\nb", "\033[2J");
  const std::string name = archive(tar.text());
  for (const char* option : {"--bytes", "--long", "--json"}) {
    const std::string output = inspect({"list", option, name}).output;
    for (const char byte : output) EXPECT_TRUE(byte == '\n' || byte >= ' ') << option << output;
  }
  EXPECT_THAT(inspect({"list", "-l", name}).output, HasSubstr("/media/\\033]0;x\\007/a\\nb -> \\033[2J\n"));
}

TEST_F(InspectList, IsATableOnATerminal) {
  const std::string tar = archive(two_packages());
  const std::string command = "'" HARBIX_INSPECT_PROGRAM "' list " + tar;
  const Outcome plain = run_program({"script", "-qec", "TERM=dumb " + command, "/dev/null"});
  EXPECT_THAT(plain.output, HasSubstr("KEYWORD  KIND        ITEMS   SIZE        OWNER PACKAGE\r\n"));
  EXPECT_THAT(plain.output, HasSubstr("settings settings        1      5       1000:0 /settings\r\n"));
  EXPECT_EQ(plain.output.find('\033'), std::string::npos);
  const Outcome coloured = run_program({"script", "-qec", "TERM=xterm " + command, "/dev/null"});
  EXPECT_THAT(coloured.output, HasSubstr("\033[34m/settings\033[0m"));
  EXPECT_THAT(inspect({"list", "--color=always", "-l", tar}).output,
              HasSubstr("\033[36m/media/Music/link\033[0m"));
}

TEST_F(InspectList, TellsThatAnArchiveIsCut) {
  const std::string whole = two_packages();
  const Outcome outcome = inspect({"list", archive(whole.substr(0, whole.size() - 1024))});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.output, HasSubstr("/settings\n"));
  EXPECT_THAT(outcome.errors, HasSubstr("Truncated archive: the end mark is missing (behind byte "));
}

}  // namespace
}  // namespace harbix::test
