#include <algorithm>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/inspect/inspect_run.h"
#include "tests/support/text.h"

namespace harbix::test {
namespace {

using ::testing::HasSubstr;

const std::string MANIFEST = "/.backup.metadata";

std::vector<std::string> sorted_lines(const std::string& text) {
  std::vector<std::string> lines = lines_of(text);
  std::ranges::sort(lines);
  return lines;
}

/// The records of a manifest, a line each, without what depends on the file system: their order, and the
/// sizes of folders.
std::vector<std::string> comparable(const std::string& manifest) {
  const std::string records = std::regex_replace(manifest, std::regex("(File: [0-9]+)\n"), "$1 ");
  const std::regex folder("File: [0-9]+ (40[0-9]+ |bookmarks\n|bookmarks/News\n)");
  return sorted_lines(std::regex_replace(records, folder, "File: SIZE $1"));
}

/// Takes a text up to the end of the next `mark`; the mark is not in what is returned.
std::string take_up_to(std::string& text, const std::string& mark) {
  const std::size_t end = text.find(mark);
  EXPECT_NE(end, std::string::npos) << mark;
  if (end == std::string::npos) return "";
  const std::string taken = text.substr(0, end);
  text.erase(0, end + mark.size());
  return taken;
}

/// Takes the text of the next display of a manual page.
std::string take_display(std::string& page) {
  static_cast<void>(take_up_to(page, ".Bd -literal\n"));
  return take_up_to(page, ".Ed\n");
}

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
  const Outcome outcome = run_program({"python3", HARBIX_SOURCES "/docs/examples/read_archive.py", name_});
  EXPECT_EQ(outcome.errors, "");
  const std::vector<std::string> lines = lines_of(outcome.output);
  const std::vector<std::string> packages = lines_of(inspect({"list", name_}).output);
  ASSERT_EQ(lines.size(), packages.size());
  for (const std::string& line : lines) EXPECT_THAT(line, HasSubstr(" 0 unknown, 0 without entry"));
}

TEST_F(InspectSample, HoldsTheExamplesOfTheManual) {
  std::string page = read_file(HARBIX_SOURCES "/docs/man/harbix-archive.5");
  const std::vector<std::string> names = lines_of(run_program({"bsdtar", "-tf", name_}).output);
  for (const std::string package : {"/app/sys.browser.E4tOj7FyNs2vIcM/appdata", "/media/bookmarks"}) {
    static_cast<void>(take_up_to(page, package + MANIFEST));
    EXPECT_EQ(comparable(inspect({"extract", name_, package + MANIFEST, "--to", "-"}).output),
              comparable(take_display(page)));
    std::vector<std::string> found;
    std::ranges::copy_if(names, std::back_inserter(found), [&](const std::string& name) {
      return name.starts_with(package + '/') && name != package + MANIFEST;
    });
    std::ranges::sort(found);
    EXPECT_EQ(found, sorted_lines(take_display(page)));
  }
}

TEST_F(InspectSample, HasNoExtensionsThatTheManualDoesNotName) {
  constexpr char PRINT_KEYS[] = R"(
import sys, tarfile
with tarfile.open(sys.argv[1], errors="surrogateescape") as tar:
    for key in sorted({key for item in tar for key in item.pax_headers}):
        print(key)
)";
  const Outcome outcome = run_program({"python3", "-c", PRINT_KEYS, name_});
  EXPECT_EQ(outcome.errors, "");
  EXPECT_EQ(outcome.output, "hdrcharset\nlinkpath\npath\nuid\n");
  const std::string page = read_file(HARBIX_SOURCES "/docs/man/harbix-archive.5");
  for (const std::string& key : lines_of(outcome.output)) EXPECT_THAT(page, HasSubstr(".Ql " + key));
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
