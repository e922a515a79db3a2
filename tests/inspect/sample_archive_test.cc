#include <string>

#include <gmock/gmock.h>

#include "tests/inspect/inspect_run.h"
#include "tests/support/text.h"

namespace harbix::test {
namespace {

using ::testing::HasSubstr;

/// A backup of the sample device.
class InspectSample : public InspectRun {
 protected:
  InspectSample() {
    const Outcome outcome = run_program(
        {"sh", "-c",
         "'" HARBIX_DEVICE_PROGRAM "' -- sh -c 'harbix -f - app_media_settings 2>/dev/null' >" + name_});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
  }

  std::string name_ = folder_ / "all.tar";
};

TEST_F(InspectSample, LacksOnlyLinksThatLeadOut) {
  const Outcome outcome = inspect({"verify", name_});
  const std::vector<std::string> lines = lines_of(outcome.output);
  ASSERT_GT(lines.size(), 1U) << outcome.output << outcome.errors;
  for (std::size_t i = 0; i + 1 < lines.size(); ++i)
    EXPECT_THAT(lines[i], HasSubstr(": A restore refuses a link that leads out"));
  EXPECT_EQ(outcome.status, 1);
  const std::string listed = inspect({"list", name_}).output;
  EXPECT_EQ(lines_of(listed).size(),
            count_of(run_program({"bsdtar", "-tf", name_}).output, "/.backup.metadata\n"));
}

TEST_F(InspectSample, IsTheSameWhenOthersPackItAgain) {
  const std::string expected = inspect({"list", name_}).output;
  const std::string sums = inspect({"checksums", name_}).output;
  constexpr char PACK_AGAIN[] = R"(
import sys, tarfile
with tarfile.open(sys.argv[1], errors="surrogateescape") as old, \
     tarfile.open(sys.argv[2], sys.argv[4], format=getattr(tarfile, sys.argv[3]), errors="surrogateescape") as new:
    for item in old:
        new.addfile(item, old.extractfile(item) if item.isfile() else None)
)";
  for (const char* format : {"GNU_FORMAT", "PAX_FORMAT"}) {
    for (const char* mode : {"w", "w:gz"}) {
      const std::string again = folder_ / "again.tar";
      const Outcome packed = run_program({"python3", "-c", PACK_AGAIN, name_, again, format, mode});
      ASSERT_EQ(packed.status, 0) << packed.errors;
      EXPECT_EQ(inspect({"list", again}).output, expected) << format;
      EXPECT_EQ(inspect({"checksums", again}).output, sums) << format;
      EXPECT_EQ(inspect({"compare", name_, again}).output, "") << format;
    }
  }
}

// The reader was written from the description of the format alone.
TEST_F(InspectSample, IsReadByTheExampleOfTheFormat) {
  const Outcome outcome = run_program({"python3", HARBIX_EXAMPLES "/read_archive.py", name_});
  EXPECT_EQ(outcome.errors, "");
  const std::vector<std::string> lines = lines_of(outcome.output);
  const std::vector<std::string> packages = lines_of(inspect({"list", name_}).output);
  ASSERT_EQ(lines.size(), packages.size());
  for (const std::string& line : lines) EXPECT_THAT(line, HasSubstr(" 0 unknown, 0 without entry"));
}

TEST_F(InspectSample, CanBeExtractedAndChecked) {
  const Outcome outcome =
      inspect({"extract", name_, "/media", "/dtm", "/settings", "/app", "--to", folder_.path()});
  EXPECT_EQ(outcome.status, 1) << "some objects stand twice";
  for (const std::string& line : lines_of(outcome.errors)) {
    EXPECT_THAT(line, HasSubstr("'/settings/pps/"));
    EXPECT_THAT(line, HasSubstr("': File exists"));
  }
  write_file(folder_ / "sums", inspect({"checksums", name_}).output);
  const Outcome checked = run_program(
      {"sh", "-c", "cd " + folder_.path() + " && sha256sum --check --strict --ignore-missing --quiet sums"});
  // The manifest of a plain file is named as if that were a folder.
  EXPECT_EQ(checked.output, "dtm/revision/.backup.metadata: FAILED open or read\n");
}

}  // namespace
}  // namespace harbix::test
