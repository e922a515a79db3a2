#include <string>

#include <gmock/gmock.h>

#include "tests/inspect/inspect_run.h"
#include "tests/support/text.h"

namespace harbix::test {
namespace {

using ::testing::HasSubstr;

class InspectVerify : public InspectRun {
 protected:
  /// What verify says of an archive, without the line that sums it up.
  Outcome verify(const std::string& bytes) {
    Outcome outcome = inspect({"verify", "--notes", archive(bytes)});
    const Outcome piped = inspect({"verify", "--notes", "-"}, bytes);
    EXPECT_EQ(piped.status, outcome.status);
    std::vector<std::string> lines = lines_of(outcome.output);
    if (!lines.empty()) lines.pop_back();
    outcome.output.clear();
    for (const std::string& line : lines) outcome.output += line + '\n';
    return outcome;
  }
};

TarBuilder package(const std::string& name, const std::string& manifest) {
  TarBuilder tar;
  tar.file(name + "/.backup.metadata", manifest, 0700);
  return tar;
}

TEST_F(InspectVerify, SaysInALineThatAnArchiveIsGood) {
  const std::string tar = archive(music().text());
  const Outcome outcome = inspect({"verify", tar});
  EXPECT_EQ(outcome.output, tar + ": good: 1 packages, 3 items, 4 bytes\n");
  EXPECT_EQ(outcome.errors, "");
  EXPECT_EQ(outcome.status, 0);
}

TEST_F(InspectVerify, HasTheStatusOfTheWorstOfManyArchives) {
  const std::string good = archive(music().text(), "good");
  const std::string cut = archive(music().truncated_text(), "cut");
  const std::string odd = archive(TarBuilder().file("x", "").text(), "odd");
  EXPECT_EQ(inspect({"verify", good, good}).status, 0);
  EXPECT_EQ(inspect({"verify", good, odd}).status, 1);
  const Outcome outcome = inspect({"verify", cut, odd, good});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.output,
              HasSubstr(cut + ": damage: Truncated archive: the end mark is missing (at byte "));
  EXPECT_THAT(outcome.output, HasSubstr(odd + ": problem: x: Stands before the first package (at byte 0)\n"));
  EXPECT_THAT(outcome.output, HasSubstr(good + ": good"));
}

TEST_F(InspectVerify, NotesMediaWithoutAPackageWhichComeBack) {
  TarBuilder tar;
  tar.file("/media/Music/a.mp3", "text").file("/dtm/b", "b");
  tar.file("/media/Photos/.backup.metadata", media_manifest({{"Photos", 4096}})).folder("/media/Photos");
  const std::string name = archive(tar.text());
  const Outcome outcome = inspect({"verify", "--notes", name});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, HasSubstr("note: /media/Music: Has no manifest, and comes back all the same"));
  EXPECT_THAT(outcome.output, HasSubstr("note: /dtm/b: Stands in the package '/media/Music'"));
  EXPECT_THAT(outcome.output, HasSubstr(": good: 1 packages, 3 items, 5 bytes"));
  // The rules of media hold all the same.
  tar = TarBuilder();
  tar.link("/media/Music/link", "").file("/media/A/.backup.metadata", "\n");
  EXPECT_THAT(inspect({"verify", archive(tar.text())}).output, HasSubstr("problem: /media/Music/link: "));
}

TEST_F(InspectVerify, FindsWhatIsWrongWithTheStream) {
  const std::string whole = music().text();
  struct Row {
    std::string bytes;
    int status;
    const char* output;
  };
  std::string flipped = whole;
  flipped[1536 + 3] ^= 1;
  for (const Row& row :
       {Row{"", 2, "damage: Archive error: The archive is empty\n"},
        Row{std::string(100'000, '\0'), 2, "damage: Archive error: The archive holds nothing but zeros\n"},
        Row{"no archive at all", 2, "damage: Archive error: Unrecognized archive format\n"},
        Row{TarBuilder().text(), 0, "note: The archive holds no packages\n"},
        Row{whole + "garbage", 1,
            "problem: Something follows the end mark, which no restore reads (at byte 3072)\n"},
        Row{whole + whole, 1,
            "problem: Something follows the end mark, which no restore reads (at byte 3072)\n"},
        Row{whole + std::string(9216, '\0'), 0, ""},
        Row{whole.substr(0, whole.size() - 512), 2,
            "damage: Truncated archive: the end mark is missing (at byte 3072)\n"},
        Row{whole.substr(0, 2700), 2, "damage: Truncated tar archive (at byte 1536)\n"},
        Row{flipped, 2, "damage: Damaged tar archive (at byte 1536)\n"}}) {
    const Outcome outcome = verify(row.bytes);
    EXPECT_EQ(outcome.output, row.output) << row.bytes.size();
    EXPECT_EQ(outcome.status, row.status) << outcome.output;
  }
}

TEST_F(InspectVerify, HoldsRecordsOfMediaAgainstEntries) {
  const std::string manifest =
      media_manifest({{"Music", 4096}, {"Music/gone", 1}, {"Music/shrunk", 9}, {"Music/dir", 4096}});
  TarBuilder tar = package("/media/Music", manifest);
  tar.folder("/media/Music")
      .file("/media/Music/shrunk", "1")
      .folder("/media/Music/dir")
      .file("/media/Music/new", "");
  const Outcome outcome = verify(tar.text());
  EXPECT_EQ(outcome.output,
            "note: /media/Music/shrunk: The size is not the record's: the file changed during the backup (at "
            "byte 1536)\n"
            "note: /media/Music/new: The manifest has no record of this item (at byte 3072)\n"
            "note: Music/gone: The record has no entry: the item vanished during the backup\n");
  EXPECT_EQ(outcome.status, 0) << "all of it comes back";
}

TEST_F(InspectVerify, SeesNamesThatHaveChanged) {
  TarBuilder tar = package("/media/Music", media_manifest({{"Music/caf\xc3\xa9", 0}}));
  tar.file("/media/Music/caf\xc3\xa8", "");
  const Outcome outcome = verify(tar.text());
  EXPECT_THAT(outcome.output,
              HasSubstr("problem: /media/Music: Holds items under names that it does not list\n"));
  EXPECT_EQ(outcome.status, 1);
}

TEST_F(InspectVerify, NamesWhatARestoreOfMediaWouldRefuseOrLose) {
  struct Row {
    char type;
    std::string name;
    std::string target;
    const char* reason;
  };
  for (const Row& row :
       {Row{TarBuilder::HARD_LINK, "/media/Music/x", "/media/Music/a.mp3", "A hard link never comes back"},
        Row{TarBuilder::FIFO, "/media/Music/x", "", "Devices, fifos and sockets never come back"},
        Row{TarBuilder::CHARACTER_DEVICE, "/media/Music/x", "", "Devices, fifos and sockets never come back"},
        Row{TarBuilder::FILE, "/media/Music/../../x", "", "A restore refuses a name with '..'"},
        Row{TarBuilder::FILE, "/media/..", "", "A restore refuses a name with '..'"},
        Row{TarBuilder::FILE, "/media/Music/a.mp3", "", "The same name stands twice: one of the two is lost"},
        Row{TarBuilder::FILE, "/media/Music/a.mp3/x", "", "Lies behind something that is no folder"},
        Row{TarBuilder::FILE, "/media/Music/link/x", "", "Lies behind something that is no folder"},
        Row{TarBuilder::FILE, "/mediax/y", "", "No item of media: the restore of media ends here"},
        Row{TarBuilder::FILE, "/foo/.backup.metadata", "",
            "A manifest in a place where no package begins"}}) {
    TarBuilder tar;
    tar.file("/media/Music/.backup.metadata", media_manifest({{"Music", 4096},
                                                              {"Music/a.mp3", 4},
                                                              {"Music/link", 5},
                                                              {"Music/x", 0},
                                                              {"Music/a.mp3/x", 0},
                                                              {"Music/link/x", 0},
                                                              {"Music/../../x", 0},
                                                              {"..", 0}}));
    tar.folder("/media/Music").file("/media/Music/a.mp3", "text").link("/media/Music/link", "a.mp3");
    tar.add(row.type, row.name, "", 0660, row.target);
    const Outcome outcome = verify(tar.text());
    EXPECT_THAT(outcome.output, HasSubstr("problem: " + row.name + ": " + row.reason + " (at byte "))
        << row.type;
    EXPECT_EQ(outcome.status, 1);
  }
}

TEST_F(InspectVerify, JudgesSettingsByTheirText) {
  struct Row {
    char type;
    std::string name;
    std::string target;
    const char* reason;
  };
  for (const Row& row :
       {Row{TarBuilder::SYMBOLIC_LINK, "/settings/etc/x", "/etc/passwd2", ""},
        Row{TarBuilder::SYMBOLIC_LINK, "/settings/etc/x", "../root/y",
            "A restore refuses a link that leads out of its folder"},
        Row{TarBuilder::SYMBOLIC_LINK, "/settings/etc/x", "a/../../y",
            "A restore refuses a link that leads out of its folder"},
        Row{TarBuilder::FILE, "/settings/etc/./x", "", "A restore refuses a path that is not in normal form"},
        Row{TarBuilder::FILE, "/media/Music", "", "No item of settings: a restore refuses it"}}) {
    TarBuilder tar = package("/settings", "File: 0\n" + row.name.substr(9) + "\n\n");
    tar.add(row.type, row.name, "", 0660, row.target);
    const Outcome outcome = verify(tar.text());
    const bool is_good = *row.reason == '\0';
    EXPECT_EQ(outcome.status, is_good ? 0 : 1) << outcome.output;
    if (is_good) continue;
    EXPECT_THAT(outcome.output, HasSubstr(row.name + ": " + row.reason));
  }
  TarBuilder large = package("/settings", "File: 0\n/pps/system/x\n\n");
  large.file("/settings/pps/system/x", std::string((1 << 20) + 1, 'x'));
  EXPECT_THAT(verify(large.text()).output, HasSubstr("A restore refuses a PPS object of more than 1 MiB"));
  EXPECT_THAT(
      verify(package("/settings", std::string("File: 0\n/e\0tc\n\n", 15)).text()).output,
      HasSubstr("problem: /settings/.backup.metadata: Manifest with a null byte: no setting comes back"));
}

TEST_F(InspectVerify, KnowsTheOrderOfPackages) {
  const std::string media = music().truncated_text();
  const std::string settings = package("/settings", "\n").truncated_text();
  const std::string end = TarBuilder().text();
  EXPECT_EQ(verify(media + settings + end).status, 0);
  EXPECT_THAT(verify(settings + media + end).output,
              HasSubstr("problem: /media/Music: Stands behind packages of a later keyword: a restore of "
                        "everything passes over it"));
  EXPECT_THAT(verify(media + media + end).output,
              HasSubstr("problem: /media/Music: The package stands in the archive twice"));
  EXPECT_THAT(verify(package("/app/x/pps", "\n").text()).output,
              HasSubstr("problem: /app/x/pps: No restore knows what to do with this package"));
}

TEST_F(InspectVerify, ShowsHowFarItHasComeOnATerminalAlone) {
  TarBuilder tar = music();
  for (int i = 0; i < 200; ++i) tar.folder("/media/Music/" + std::to_string(i));
  const std::string bytes = tar.text();
  // A pipe that is filled slowly: the pause between two lines is a fifth of a second.
  const std::string half = archive(bytes.substr(0, bytes.size() / 2), "half");
  const std::string rest = archive(bytes.substr(bytes.size() / 2), "rest");
  const std::string command = "(cat " + half + "; sleep 0.5; cat " + rest +
                              ") | "
                              "'" HARBIX_INSPECT_PROGRAM "' verify -";
  EXPECT_THAT(run_program({"script", "-qec", command, "/dev/null"}).output, HasSubstr(" MB/s"));
  EXPECT_EQ(run_program({"sh", "-c", command}).errors, "");
}

TEST_F(InspectVerify, ShowsHowFarItHasComeInALargeFile) {
  const std::string bytes = music().file("/media/Music/long", std::string(4 << 20, 'x')).text();
  const std::string half = archive(bytes.substr(0, bytes.size() / 2), "half");
  const std::string rest = archive(bytes.substr(bytes.size() / 2), "rest");
  const std::string command =
      "(cat " + half + "; sleep 0.5; cat " + rest + ") | '" HARBIX_INSPECT_PROGRAM "' verify -";
  EXPECT_THAT(run_program({"script", "-qec", command, "/dev/null"}).output, HasSubstr(" MB/s"));
}

}  // namespace
}  // namespace harbix::test
