#include "app/package_extraction.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "base/flags.h"
#include "fs/identity.h"
#include "tests/app/app_device.h"
#include "tests/support/archive.h"
#include "tests/support/captured_output.h"
#include "tests/support/recorded_log.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using harbix::ApplicationPackage;
using harbix::PackageExtraction;
using harbix::Restorable;

constexpr gid_t APP_GROUP = 10007;
constexpr char DATA_FOLDER[] = "/accounts/1000/appdata/a";
constexpr char NO_ERROR[] = "Archive errno at this point: 0\n";

/// The path of a record, and the name of its entry.
std::string in_data(const std::string& name) { return DATA_FOLDER + ("/" + name); }
std::string entry(const std::string& name) { return "/app/p/appdata/" + name; }

struct Extracted {
  bool is_on_disk = false;
  bool is_complete = false;
  std::string errors;
};

/// Extracts a data package that has these records, from an archive of its entries alone.
Extracted extract(meta::Manifest records, const std::string& archive,
                  Restorable restorable = Restorable::EVERYTHING) {
  write_file("/a.tar", archive);
  Reader reader("/a.tar");
  const ApplicationPackage package({"/app/p/appdata/.backup.metadata", std::move(records)});
  const fs::FileMask mask(007);
  const CapturedOutput errors(STDERR_FILENO);
  PackageExtraction extraction(reader, package, fs::Path(DATA_FOLDER), restorable);
  extraction.extract(APPS_USER, APP_GROUP);
  return {extraction.is_on_disk(), extraction.is_complete(), errors.text()};
}

TreeItem owned(const TreeItem& item) { return item.owned_by(APPS_USER, APP_GROUP); }

class PackageExtractionTest : public AppDevice {};

TEST_F(PackageExtractionTest, GivesItemsTheStatusOfTheirRecords) {
  EXPECT_TRUE(on_the_device([] {
    const Extracted extracted =
        extract({record(S_IFDIR | 0700, in_data("d")), record(S_IFREG | 0640, in_data("d/f")),
                 record(S_IFREG | 0400, in_data("g"))},
                TarBuilder()
                    .folder(entry("d"), 0777)
                    .file(entry("d/f"), "text", 0777)
                    .file(entry("g"), "", 0777)
                    .text());
    EXPECT_TRUE(extracted.is_on_disk);
    EXPECT_EQ(extracted.errors, NO_ERROR);
    EXPECT_TRUE(
        (Tree{owned(dir("d", {owned(file("f", "text", 0640))}, 0700)), owned(file("g", "", 0400))}.matches(
            DATA_FOLDER)));
  }));
}

TEST_F(PackageExtractionTest, GivesItemsTheirEntrysStatusWhereTheRecordHasNone) {
  EXPECT_TRUE(on_the_device([] {
    const Extracted extracted =
        extract({{"File", in_data("f")}}, TarBuilder().file(entry("f"), "text", 0654).text());
    EXPECT_TRUE(extracted.is_on_disk);
    EXPECT_TRUE((Tree{owned(file("f", "text", 0650))}.matches(DATA_FOLDER)));
  }));
}

TEST_F(PackageExtractionTest, DropsSetIdBitsAndWhatTheMaskForbids) {
  EXPECT_TRUE(on_the_device([] {
    static_cast<void>(extract({record(S_IFREG | 06755, in_data("f")), record(S_IFDIR | 07777, in_data("d"))},
                              TarBuilder().file(entry("f"), "", 06755).folder(entry("d"), 07777).text()));
    EXPECT_TRUE((Tree{owned(file("f", "", 0750)), owned(dir("d", {}, 0770))}.matches(DATA_FOLDER)));
  }));
}

TEST_F(PackageExtractionTest, SkipsWhatIsNoFileFolderOrLink) {
  EXPECT_TRUE(on_the_device([] {
    put("/etc/secret", "text");
    struct Row {
      char type;
      mode_t own_type;
    };
    for (const Row& row : {Row{TarBuilder::HARD_LINK, S_IFREG}, Row{TarBuilder::CHARACTER_DEVICE, S_IFCHR},
                           Row{TarBuilder::BLOCK_DEVICE, S_IFBLK}, Row{TarBuilder::FIFO, S_IFIFO}}) {
      for (const mode_t type : {row.own_type, static_cast<mode_t>(S_IFREG)}) {
        const Extracted extracted = extract(
            {record(type | 0660, in_data("x")), record(S_IFREG | 0660, in_data("f"))},
            TarBuilder().add(row.type, entry("x"), "", 0660, "/etc/secret").file(entry("f"), "text").text());
        EXPECT_TRUE(extracted.is_on_disk);
        EXPECT_EQ("Skip: " + in_data("x") + "\n" + NO_ERROR, extracted.errors) << row.type;
        EXPECT_TRUE((Tree{file("f", "text", 0660)}.matches(DATA_FOLDER))) << row.type;
      }
    }
  }));
}

TEST_F(PackageExtractionTest, SkipsWhatTheRecordCallsSomethingElse) {
  EXPECT_TRUE(on_the_device([] {
    struct Row {
      char type;
      mode_t recorded;
    };
    for (const Row& row :
         {Row{TarBuilder::FILE, S_IFDIR}, Row{TarBuilder::FILE, S_IFLNK}, Row{TarBuilder::FILE, S_IFCHR},
          Row{TarBuilder::FILE, 0}, Row{TarBuilder::FOLDER, S_IFREG}, Row{TarBuilder::FOLDER, S_IFLNK},
          Row{TarBuilder::SYMBOLIC_LINK, S_IFREG}, Row{TarBuilder::SYMBOLIC_LINK, S_IFDIR},
          Row{TarBuilder::SYMBOLIC_LINK, S_IFBLK}}) {
      const Extracted extracted = extract({record(row.recorded | 0660, in_data("x"))},
                                          TarBuilder().add(row.type, entry("x"), "", 0660, "target").text());
      EXPECT_EQ("Error: The record of '" + in_data("x") +
                    "' describes another kind of item than its entry\nSkip: " + in_data("x") + "\n" +
                    NO_ERROR,
                extracted.errors)
          << row.type << row.recorded;
      EXPECT_FALSE(extracted.is_complete);
      EXPECT_FALSE(fs::exists(fs::Path(in_data("x"))));
    }
  }));
}

TEST_F(PackageExtractionTest, RestoresLinksWhereverTheyLead) {
  EXPECT_TRUE(on_the_device([] {
    const Extracted extracted =
        extract({record(S_IFLNK | 0777, in_data("l")), record(S_IFLNK | 0777, in_data("m"))},
                TarBuilder().link(entry("l"), "/etc/passwd").link(entry("m"), "../b").text());
    EXPECT_EQ(extracted.errors, NO_ERROR);
    EXPECT_TRUE((Tree{owned(link("l", "/etc/passwd")), owned(link("m", "../b"))}.matches(DATA_FOLDER)));
  }));
}

TEST_F(PackageExtractionTest, WritesNothingThroughALinkOfThePackage) {
  EXPECT_TRUE(on_the_device([] {
    put("/out/kept", "old");
    ASSERT_EQ(::chmod("/out", 0777), 0);
    const Extracted extracted = extract(
        {record(S_IFLNK | 0777, in_data("l")), record(S_IFREG | 0660, in_data("l/f")),
         record(S_IFREG | 0660, in_data("g"))},
        TarBuilder().link(entry("l"), "/out").file(entry("l/f"), "text").file(entry("g"), "text").text());
    EXPECT_EQ(extracted.errors, "Skip: " + in_data("l") + "\n" + NO_ERROR);
    EXPECT_TRUE(
        (Tree{dir("l", {file("f", "text", 0660)}, 0770), file("g", "text", 0660)}.matches(DATA_FOLDER)));
    EXPECT_TRUE((Tree{file("kept", "old")}.matches("/out")));
  }));
}

TEST_F(PackageExtractionTest, ReplacesALinkInsteadOfWritingToItsTarget) {
  EXPECT_TRUE(on_the_device([] {
    put("/out", "old");
    ASSERT_EQ(::chmod("/out", 0666), 0);
    const Extracted extracted =
        extract({record(S_IFLNK | 0777, in_data("l")), record(S_IFREG | 0660, in_data("l"))},
                TarBuilder().link(entry("l"), "/out").file(entry("l"), "text").text());
    EXPECT_EQ(extracted.errors, NO_ERROR);
    EXPECT_TRUE((Tree{file("l", "text", 0660)}.matches(DATA_FOLDER)));
    EXPECT_EQ(read_file("/out"), "old");
  }));
}

TEST_F(PackageExtractionTest, WritesNothingThroughALinkThatIsThere) {
  EXPECT_TRUE(on_the_device([] {
    std::filesystem::create_directory("/out");
    ASSERT_EQ(::chmod("/out", 0777), 0);
    std::filesystem::create_directory(DATA_FOLDER);
    ASSERT_EQ(::chmod(DATA_FOLDER, 0777), 0);
    std::filesystem::create_symlink("/out", in_data("data"));
    harbix::verbose = true;
    const Extracted extracted =
        extract({record(S_IFREG | 0660, in_data("data/f")), record(S_IFREG | 0660, in_data("g"))},
                TarBuilder().file(entry("data/f"), "text").file(entry("g"), "text").text());
    EXPECT_FALSE(extracted.is_on_disk) << "one entry costs itself";
    EXPECT_TRUE(Tree{}.matches("/out"));
    EXPECT_TRUE((Tree{link("data", "/out"), file("g", "text", 0660)}.matches(DATA_FOLDER)));
    const std::string what =
        "1 " + in_data("data/f") + "\nExtracting as 4321:10007" + in_data("data/f") + "\nWarning: ";
    EXPECT_EQ(extracted.errors.substr(0, what.size()), what);
    EXPECT_EQ(count_of(extracted.errors, "\nError extracting " + in_data("data/f")), 1U) << extracted.errors;
    EXPECT_EQ(count_of(extracted.errors, "HERE"), 1U);
    // The last entry that was extracted had none.
    EXPECT_TRUE(extracted.errors.ends_with(NO_ERROR)) << extracted.errors;
  }));
}

TEST_F(PackageExtractionTest, TellsOfTheLastWarningsNumberAtTheEnd) {
  EXPECT_TRUE(on_the_device([] {
    put(in_data("d/kept"), "old");
    ASSERT_EQ(::chmod(DATA_FOLDER, 0777), 0);
    const Extracted extracted =
        extract({record(S_IFREG | 0660, in_data("d"))}, TarBuilder().file(entry("d"), "text").text());
    EXPECT_FALSE(extracted.is_on_disk);
    EXPECT_TRUE((Tree{dir("d", {file("kept", "old")})}.matches(DATA_FOLDER)));
    EXPECT_EQ(count_of(extracted.errors, "Warning: "), 1U) << extracted.errors;
    EXPECT_EQ(count_of(extracted.errors, "\nHERE\nArchive errno at this point: "), 1U) << extracted.errors;
    EXPECT_FALSE(extracted.errors.ends_with(NO_ERROR)) << extracted.errors;
    EXPECT_EQ(count_of(extracted.errors, "Error extracting "), 0U) << "for verbose runs only";
  }));
}

TEST_F(PackageExtractionTest, OfDataKeepsToTheFoldersThatComeBack) {
  EXPECT_TRUE(on_the_device([] {
    for (const char* name : {"data", "data/x", "data/x/y", "logs", "logs/x", "tmp/x"}) {
      const Extracted extracted =
          extract({record(S_IFREG | 0660, in_data(name))}, TarBuilder().file(entry(name), "text").text(),
                  Restorable::DATA_FOLDERS);
      EXPECT_EQ(extracted.errors, NO_ERROR) << name;
      EXPECT_TRUE(fs::exists(fs::Path(in_data(name)))) << name;
      std::filesystem::remove_all(DATA_FOLDER);
    }
    for (const char* name :
         {"database/x", "datax", "Data/x", "x", "x/data/y", "dat", ".data/x", "tmp2", "log/x"}) {
      const Extracted extracted =
          extract({record(S_IFREG | 0660, in_data(name))}, TarBuilder().file(entry(name), "text").text(),
                  Restorable::DATA_FOLDERS);
      EXPECT_EQ(extracted.errors, "Skip: " + in_data(name) + "\n" + NO_ERROR) << name;
      EXPECT_FALSE(fs::exists(fs::Path(DATA_FOLDER))) << name;
    }
  }));
}

TEST_F(PackageExtractionTest, WritesNothingWhenOnlyPretending) {
  EXPECT_TRUE(on_the_device([] {
    harbix::pretend = true;
    const Extracted extracted = extract(
        {record(S_IFDIR | 0700, in_data("data")), record(S_IFREG | 0660, in_data("data/f"))},
        TarBuilder().folder(entry("data")).file(entry("data/f"), "text").text(), Restorable::DATA_FOLDERS);
    EXPECT_TRUE(extracted.is_on_disk);
    EXPECT_EQ(extracted.errors, NO_ERROR);
    EXPECT_FALSE(fs::exists(fs::Path(DATA_FOLDER)));
  }));
}

TEST_F(PackageExtractionTest, ComesBackToTheIdentityItBeganWith) {
  EXPECT_TRUE(on_the_device([] {
    static_cast<void>(extract({}, TarBuilder().text()));
    EXPECT_EQ(::geteuid(), 0U);
    EXPECT_EQ(::getegid(), 0U);
  }));
}

TEST_F(PackageExtractionTest, EndsWhereTheArchiveEnds) {
  EXPECT_TRUE(on_the_device([] {
    const Extracted extracted =
        extract({record(S_IFREG | 0660, in_data("f")), record(S_IFREG | 0660, in_data("g")),
                 record(S_IFREG | 0660, in_data("h"))},
                TarBuilder().file(entry("f"), "text").text());
    EXPECT_EQ("Warning: unexpected failure of read next header\nWarning: No entry in the archive for " +
                  in_data("g") + "\nWarning: No entry in the archive for " + in_data("h") + "\n" + NO_ERROR,
              extracted.errors);
    EXPECT_TRUE(extracted.is_on_disk);
    EXPECT_FALSE(extracted.is_complete);
    EXPECT_TRUE((Tree{file("f", "text", 0660)}.matches(DATA_FOLDER)));
  }));
}

TEST_F(PackageExtractionTest, IsNotWholeWhereDataIsCutOff) {
  EXPECT_TRUE(on_the_device([] {
    const RecordedLog log;
    const Extracted extracted =
        extract({record(S_IFREG | 0660, in_data("f")), record(S_IFREG | 0660, in_data("g"))},
                TarBuilder()
                    .file(entry("f"), "text")
                    .add(TarBuilder::FILE, entry("g"), "cut", 0660, "", 9999)
                    .truncated_text());
    EXPECT_FALSE(extracted.is_on_disk);
    EXPECT_EQ(read_file(in_data("f")), "text");
    EXPECT_EQ(1U,
              count_of(extracted.errors, "Error: Extracting data for '" + in_data("g") + "' failed ('%s')\n"))
        << extracted.errors;
    EXPECT_FALSE(extracted.errors.ends_with(NO_ERROR)) << extracted.errors;
    EXPECT_EQ(::geteuid(), 0U);
    ASSERT_FALSE(log.messages().empty());
    EXPECT_EQ(log.messages().back(), "2 ERROR: Extracting data for '" + in_data("g") + "' failed ('%s')");
  }));
}

TEST_F(PackageExtractionTest, IsNotWholeWhereAHeaderIsDamaged) {
  EXPECT_TRUE(on_the_device([] {
    const Extracted extracted =
        extract({record(S_IFREG | 0660, in_data("f")), record(S_IFREG | 0660, in_data("g"))},
                TarBuilder().file(entry("f"), "text").truncated_text() + std::string(512, 'x'));
    EXPECT_FALSE(extracted.is_on_disk);
    EXPECT_EQ(read_file(in_data("f")), "text");
    EXPECT_EQ(1U, count_of(extracted.errors, "Warning: unexpected failure of read next header\n"))
        << extracted.errors;
    EXPECT_FALSE(extracted.errors.ends_with(NO_ERROR)) << extracted.errors;
  }));
}

}  // namespace
}  // namespace harbix::test
