#include <string>

#include <gmock/gmock.h>

#include "tests/inspect/inspect_run.h"

namespace harbix::test {
namespace {

using ::testing::AllOf;
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

TEST_F(InspectList, HasShortSizesOnATerminalAlone) {
  struct Row {
    std::uint64_t size;
    const char* text;
  };
  for (const Row& row : {Row{0, "0"}, Row{1023, "1023"}, Row{1024, "1.0K"}, Row{10 << 10, "10K"},
                         Row{(1 << 20) - 1, "1.0M"}, Row{1536 << 10, "1.5M"}}) {
    TarBuilder tar;
    tar.file("/media/A/.backup.metadata", "\n").file("/media/A/x", std::string(row.size, 'x'));
    const std::string name = archive(tar.text());
    const std::string command = "TERM=dumb '" HARBIX_INSPECT_PROGRAM "' list ";
    EXPECT_THAT(run_program({"script", "-qec", command + name, "/dev/null"}).output,
                HasSubstr(" " + std::string(row.text) + "          0:0 /media/A\r\n"));
    EXPECT_THAT(run_program({"script", "-qec", command + "--bytes " + name, "/dev/null"}).output,
                HasSubstr(" " + std::to_string(row.size) + "          0:0 /media/A\r\n"));
    EXPECT_EQ(inspect({"list", name}).output,
              "media media 1 " + std::to_string(row.size) + " 0:0 /media/A\n");
  }
}

TEST_F(InspectList, NamesTheOwnerOfAPackageThatHasOne) {
  TarBuilder tar;
  tar.owner(1, 2).file("/media/A/.backup.metadata", "\n").file("/media/A/x", "").file("/media/A/y", "");
  tar.file("/media/B/.backup.metadata", "\n").file("/media/B/x", "").owner(1, 3).file("/media/B/y", "");
  tar.file("/media/C/.backup.metadata", "\n");
  const std::string name = archive(tar.text());
  EXPECT_EQ(inspect({"list", name}).output,
            "media media 2 0 1:2 /media/A\n"
            "media media 2 0 several /media/B\n"
            "media media 0 0 - /media/C\n");
  const std::string rest = R"("items":2,"bytes":0)";
  const std::string json = inspect({"list", "--json", name}).output;
  EXPECT_THAT(json, HasSubstr(R"("name":"/media/A",)" + rest + R"(,"uid":1,"gid":2})"));
  EXPECT_THAT(json, HasSubstr(R"("name":"/media/B",)" + rest + "}"));
}

TEST_F(InspectList, ShowsItemsOfAllKindsAndModes) {
  TarBuilder tar;
  tar.time(1'400'000'000).file("/media/A/.backup.metadata", "\n").file("/media/A/set", "", 06755);
  tar.file("/media/A/odd", "", 07000).folder("/media/A/tmp", 01777);
  tar.add(TarBuilder::HARD_LINK, "/media/A/hard", "", 0644, "/media/A/set")
      .add(TarBuilder::FIFO, "/media/A/fifo");
  setenv("TZ", "UTC", 1);
  const std::string name = archive(tar.text());
  EXPECT_EQ(inspect({"list", "-l", name}).output,
            "-rwsr-sr-x 0/0               0 2014-05-13 16:53 /media/A/set\n"
            "---S--S--T 0/0               0 2014-05-13 16:53 /media/A/odd\n"
            "drwxrwxrwt 0/0               0 2014-05-13 16:53 /media/A/tmp\n"
            "hrw-r--r-- 0/0               0 2014-05-13 16:53 /media/A/hard link to /media/A/set\n"
            "?rw-rw---- 0/0               0 2014-05-13 16:53 /media/A/fifo\n");
  EXPECT_THAT(inspect({"list", "-l", "--json", name}).output,
              HasSubstr(R"({"type":"item","kind":"hard link","name":"/media/A/hard","package":"/media/A",)"
                        R"("mode":"0644","uid":0,"gid":0,"size":0,"modified":1400000000,"position":2560,)"
                        R"("target":"/media/A/set"})"));
}

TEST_F(InspectList, HeadsTheItemsOfAPackageOnATerminal) {
  const std::string command = "TERM=dumb '" HARBIX_INSPECT_PROGRAM "' list -l " + archive(two_packages());
  EXPECT_THAT(run_program({"script", "-qec", command, "/dev/null"}).output,
              AllOf(HasSubstr("/media/Music:\r\n"), HasSubstr("/settings:\r\n")));
}

TEST_F(InspectList, HasNoColoursWhereNobodyWantsThem) {
  const std::string command = "TERM=xterm '" HARBIX_INSPECT_PROGRAM "' list " + archive(two_packages());
  for (const std::string& plain : {"NO_COLOR=1 " + command, command + " --color never"})
    EXPECT_EQ(run_program({"script", "-qec", plain, "/dev/null"}).output.find('\033'), std::string::npos)
        << plain;
}

TEST_F(InspectList, TellsOfItemsBeforeTheFirstPackage) {
  TarBuilder tar;
  tar.file("letter/a", "text").folder("letter/b");
  const std::string name = archive(tar.truncated_text() + music().text());
  const Outcome outcome = inspect({"list", name});
  EXPECT_EQ(outcome.output, "media media 3 4 0:0 /media/Music\n");
  EXPECT_EQ(outcome.errors, "harbix-inspect: 2 items stand before the first package\n");
  EXPECT_THAT(inspect({"list", "-l", name}).output, HasSubstr(" letter/a\n"));
  EXPECT_EQ(inspect({"list", name, "Music"}).output.find("letter"), std::string::npos);
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
