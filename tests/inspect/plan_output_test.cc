#include <string>

#include <gmock/gmock.h>

#include "tests/inspect/plan_fixture.h"

namespace harbix::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

TEST_F(PlanOfCrafted, HasLinesOfEveryKindThatIsDescribed) {
  TarBuilder tar;
  tar.file("/media/M/.backup.metadata", "\n").add(TarBuilder::FIFO, "/media/M/fifo");
  for (const std::string& archive : {tar.text(), tar.truncated_text()}) {
    device_.write("/tmp/a.tar", archive);
    plan(device_, "media");
  }
  EXPECT_THAT(schema_.unmet(), Not(Contains(StartsWith("plan_"))));
}

TEST_F(PlanOfCrafted, HasTheRestoresOwnMessageForAWholeArchive) {
  const std::string media =
      TarBuilder().file("/media/M/.backup.metadata", "\n").file("/media/M/a", "1").text();
  const std::string large = TarBuilder()
                                .file("/media/M/.backup.metadata", "\n")
                                .add(TarBuilder::FILE, "/media/M/a", "", 0660, "", std::uint64_t{1} << 33)
                                .truncated_text();
  struct Row {
    std::string archive;
    const char* keyword;
  };
  for (const Row& row :
       {Row{TarBuilder().file("letter/a", "text").text(), "media"}, Row{media, "app"}, Row{media, "settings"},
        Row{TarBuilder().file("letter/a", "text").text(), "app"}, Row{large, "media"},
        Row{TarBuilder().text(), "media"}, Row{cut_archive_of({binary().file("main", "new")}), "app"}}) {
    device_.write("/tmp/a.tar", row.archive);
    const Foreseen all = plan(device_, row.keyword);
    const Outcome outcome = device_.harbix({"-r", "-f", "/tmp/a.tar", row.keyword});
    EXPECT_EQ(all.status, outcome.status) << row.keyword << outcome.errors;
    for (const std::string& trouble : all.troubles) {
      const std::string shown = trouble.substr(0, trouble.find(" '/"));
      EXPECT_THAT(outcome.errors + "Package not recognized", HasSubstr(shown));
    }
    EXPECT_EQ(all.troubles.empty(), outcome.status == 0) << row.keyword;
  }
}

TEST_F(PlanOfCrafted, RefusesWhatCannotFit) {
  device_.write("/tmp/a.tar",
                archive_of({CraftedPackage::binary(bought_.id).file("large", std::string(900000, 'x'))}));
  const Outcome outcome = device_.shell(
      "mount -t tmpfs -o size=256k,mode=755 none /apps; mount -t tmpfs -o size=256k,mode=755 none "
      "/accounts/1000/appdata\nharbix-inspect plan /tmp/a.tar; echo $?; harbix -r -f /tmp/a.tar app; umount "
      "/apps "
      "/accounts/1000/appdata");
  const std::string message = outcome.errors.substr(0, outcome.errors.find('\n'));
  EXPECT_THAT(message, StartsWith("Error: The applications need 900000 bytes, and there is room for "));
  EXPECT_EQ(lines_of(outcome.output).front(), "end app: " + behind(message, "Error: "));
}

TEST_F(PlanOfCrafted, IsPrintedForPeople) {
  device_.write("/tmp/a.tar",
                archive_of({binary().file("main", "new"), data("absent").file("data/\033[31m", "red"),
                            data().folder("data").file("data/\033[31m", "red").file("x\ty", "")}));
  const Outcome outcome = device_.shell("harbix-inspect plan /tmp/a.tar");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(
      lines_of(outcome.output),
      ElementsAre(StartsWith("removed app files "), StartsWith("removed app files "),
                  "restored app binaries 1 0 /app/a.pkg/bin",
                  "skipped app data 0 1 /app/absent.pkg/appdata: the application is not installed",
                  "  /app/a.pkg/appdata/x\\ty: of an application's data only what lies in data, logs and tmp "
                  "comes back",
                  "restored app data 2 1 /app/a.pkg/appdata",
                  "/tmp/a.tar: 2 packages, 3 items would come back; 1 packages and 2 items would not"));
  EXPECT_THAT(device_.shell("harbix-inspect plan --color always /tmp/a.tar").output,
              HasSubstr("\033[32mrestored"));
}

TEST_F(PlanOfCrafted, EndsWithZeroWhereAllComesBack) {
  device_.write("/tmp/a.tar", archive_of({binary().file("main", "new")}));
  const Outcome outcome =
      device_.shell("cat /tmp/a.tar | harbix-inspect plan - app | tail -n 1; exit ${PIPESTATUS[1]}");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "-: all would come back: 1 packages, 1 items\n");
}

TEST_F(PlanOfCrafted, NeedsADeviceAndRootAndAnArchive) {
  EXPECT_EQ(device_.shell("harbix-inspect plan /missing").status, 2);
  EXPECT_EQ(device_.shell("harbix-inspect plan /dev/null").status, 2);
  EXPECT_EQ(device_.shell("harbix-inspect plan /tmp/a.tar photos").status, 64);
  device_.write("/tmp/a.tar", TarBuilder().text());
  EXPECT_THAT(device_.shell("harbix-inspect plan /tmp/a.tar").errors,
              HasSubstr("The archive holds no packages"));
  EXPECT_THAT(device_.shell("setpriv --reuid media harbix-inspect plan /tmp/a.tar").errors,
              HasSubstr("Only root can plan a restore"));
  const Outcome elsewhere = run_program({HARBIX_INSPECT_PROGRAM, "plan", "/tmp/a.tar"});
  EXPECT_EQ(elsewhere.status, 2);
  EXPECT_THAT(elsewhere.errors, StartsWith("harbix-inspect: Not on a device: there is no '"));
}

}  // namespace
}  // namespace harbix::test
