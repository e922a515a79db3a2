#include "app/package_entries.h"

#include <unistd.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/archive.h"
#include "tests/support/captured_output.h"
#include "tests/support/folder.h"
#include "tests/support/recorded_log.h"
#include "tests/support/tar_builder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;
using harbix::FileRecord;
using harbix::PackageEntries;
using Texts = std::vector<std::string>;

constexpr char NO_MORE[] = "Warning: unexpected failure of read next header\n";

std::vector<FileRecord> records_of(const Texts& names) {
  std::vector<FileRecord> records;
  for (const std::string& name : names) records.push_back({0, Path("/base/" + name), {}});
  return records;
}

/// Files of these names, each with its name for content.
TarBuilder archive_of(const Texts& names) {
  TarBuilder archive;
  for (const std::string& name : names) archive.file(name, name);
  return archive;
}

std::string missing(const std::string& name) {
  return "Warning: No entry in the archive for /base/" + name + "\n";
}

std::string stranger(const std::string& name) {
  return "Error: No record in the manifest for '" + name + "'\nSkip: " + name + "\n";
}

class PackageEntriesTest : public ::testing::Test {
 protected:
  Reader& open(const std::string& archive) {
    write_file(folder_ / "a.tar", archive);
    return reader_.emplace(folder_ / "a.tar");
  }

  /// For each record the content of the entry that it was given, or "-".
  static Texts pair(Reader& reader, const std::vector<FileRecord>& records, const char* name = "/app/p/bin") {
    PackageEntries entries(reader, records, Path(name), Path("/base"));
    Texts contents(records.size(), "-");
    while (const std::optional<PackageEntries::Match> match = entries.next())
      contents[match->position] = reader.data();
    return contents;
  }

  TemporaryFolder folder_;
  std::optional<Reader> reader_;
};

TEST_F(PackageEntriesTest, BelongToTheRecordOfTheirName) {
  struct Row {
    Texts records, entries, pairs;
    std::string errors;
  };
  const std::string p = "/app/p/bin/";
  const std::string next = "/app/q/bin/.backup.metadata";
  const Row rows[] = {
      {{"a", "b", "d/c"}, {p + "a", p + "b", p + "d/c", next}, {p + "a", p + "b", p + "d/c"}, ""},
      {{}, {next}, {}, ""},
      // Records without an entry.
      {{"a", "b", "c"}, {p + "a", p + "c", next}, {p + "a", "-", p + "c"}, missing("b")},
      {{"a", "b", "c", "d"},
       {p + "d", next},
       {"-", "-", "-", p + "d"},
       missing("a") + missing("b") + missing("c")},
      {{"a", "b", "c"}, {p + "a", next}, {p + "a", "-", "-"}, missing("b") + missing("c")},
      {{"a", "b"}, {next}, {"-", "-"}, missing("a") + missing("b")},
      // Entries without a record.
      {{"a", "b"},
       {p + "x", p + "a", p + "y", p + "z", p + "b", next},
       {p + "a", p + "b"},
       stranger(p + "x") + stranger(p + "y") + stranger(p + "z")},
      {{"a", "b"}, {p + "a", p + "x", next}, {p + "a", "-"}, stranger(p + "x") + missing("b")},
      {{"a", "b", "c"},
       {p + "x", p + "c", next},
       {"-", "-", p + "c"},
       stranger(p + "x") + missing("a") + missing("b")},
      // The same record, or entry, more than once.
      {{"a", "a", "b"}, {p + "a", p + "a", p + "b", next}, {p + "a", p + "a", p + "b"}, ""},
      {{"a", "a", "b"}, {p + "a", p + "b", next}, {p + "a", "-", p + "b"}, missing("a")},
      {{"a", "b", "a"}, {p + "a", p + "b", p + "a", next}, {p + "a", p + "b", p + "a"}, ""},
      {{"a", "b", "a"}, {p + "a", p + "a", next}, {p + "a", "-", p + "a"}, missing("b")},
      {{"a", "b"}, {p + "a", p + "a", p + "b", next}, {p + "a", p + "b"}, stranger(p + "a")},
      // Another order than that of the records.
      {{"a", "b", "c"}, {p + "b", p + "a", p + "c", next}, {p + "a", p + "b", p + "c"}, ""},
      {{"a", "b", "c"}, {p + "c", p + "b", p + "a", next}, {p + "a", p + "b", p + "c"}, ""},
      {{"a", "b", "c", "d"},
       {p + "d", p + "b", p + "x", p + "a", next},
       {p + "a", p + "b", "-", p + "d"},
       stranger(p + "x") + missing("c")},
      // Names of other packages, and of none.
      {{"a"},
       {"/app/p/bin", "/app/p/binx/a", "/app/p/appdata/a", "/app/q/bin/a", "/base/a", "a", "/a", p + "a",
        next},
       {p + "a"},
       "Skip: /app/p/bin\nSkip: /app/p/binx/a\nSkip: /app/p/appdata/a\nSkip: /app/q/bin/a\nSkip: /base/a\n"
       "Skip: a\nSkip: /a\n"},
      {{"a"},
       {"/x" + p + "a", "/app/p/bin/../bin/a", p + "a/b", p + "A", next},
       {"-"},
       "Skip: /x/app/p/bin/a\n" + stranger("/app/p/bin/../bin/a") + stranger(p + "a/b") + stranger(p + "A") +
           missing("a")},
      // Names that have lost their separator.
      {{"a", "d/b"}, {"app/p/bin/a", "app/p/bin/d/b", next}, {"app/p/bin/a", "app/p/bin/d/b"}, ""},
  };
  for (const Row& row : rows) {
    const std::string what =
        testing::PrintToString(row.records) + " of " + testing::PrintToString(row.entries);
    Reader& reader = open(archive_of(row.entries).text());
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_EQ(pair(reader, records_of(row.records)), row.pairs) << what;
    EXPECT_EQ(errors.text(), row.errors) << what;
    // What follows the package is still there when the next package is looked for.
    EXPECT_EQ(reader.names(), (Texts{next})) << what;
  }
}

TEST_F(PackageEntriesTest, MayBelongToAPackageWithoutASeparatorInFront) {
  Reader& reader = open(archive_of({"app/p/bin/a", "/app/p/bin/b"}).text());
  EXPECT_EQ(pair(reader, records_of({"a", "b"}), "app/p/bin"), (Texts{"app/p/bin/a", "/app/p/bin/b"}));
}

TEST_F(PackageEntriesTest, OfThePackagesOwnNameBelongToNoRecord) {
  for (const char* base : {"/base", "/base/"}) {
    Reader& reader = open(archive_of({"/app/p/bin"}).text());
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_EQ(pair(reader, {{0, Path(base), {}}}), (Texts{"-"})) << base;
    EXPECT_EQ(
        "Skip: /app/p/bin\n" + std::string(NO_MORE) + "Warning: No entry in the archive for " + base + "\n",
        errors.text())
        << base;
  }
}

TEST_F(PackageEntriesTest, OfFoldersAreFoundToo) {
  Reader& reader = open(TarBuilder().folder("/app/p/bin/d/").file("/app/p/bin/d/f", "text").text());
  const std::vector<FileRecord> records = records_of({"d", "d/f"});
  PackageEntries entries(reader, records, Path("/app/p/bin"), Path("/base"));
  EXPECT_TRUE(entries.next());
  EXPECT_TRUE(entries.next());
  EXPECT_TRUE(entries.is_complete());
}

TEST_F(PackageEntriesTest, ThatAreMissingAreLogged) {
  Reader& reader = open(archive_of({"/app/p/bin/b"}).text());
  const RecordedLog log;
  const CapturedOutput errors(STDERR_FILENO);
  EXPECT_EQ(pair(reader, records_of({"a", "b"})), (Texts{"-", "/app/p/bin/b"}));
  EXPECT_EQ(log.messages(), (Texts{"3 No entry in the archive for '/base/a'"}));
}

TEST_F(PackageEntriesTest, EndWithTheArchive) {
  Reader& reader = open(archive_of({"/app/p/bin/a"}).text());
  const std::vector<FileRecord> records = records_of({"a", "b", "c"});
  PackageEntries entries(reader, records, Path("/app/p/bin"), Path("/base"));
  const CapturedOutput errors(STDERR_FILENO);
  EXPECT_TRUE(entries.next());
  EXPECT_EQ(errors.text(), "");
  EXPECT_FALSE(entries.next());
  EXPECT_FALSE(entries.next());
  EXPECT_EQ(NO_MORE + missing("b") + missing("c"), errors.text());
  EXPECT_EQ(reader.error_number(), 0);
  EXPECT_TRUE(entries.is_readable());
}

TEST_F(PackageEntriesTest, EndWhereTheArchiveIsDamaged) {
  Reader& reader = open(archive_of({"/app/p/bin/a"}).truncated_text() + std::string(512, 'x'));
  const std::vector<FileRecord> records = records_of({"a", "b"});
  PackageEntries entries(reader, records, Path("/app/p/bin"), Path("/base"));
  const CapturedOutput errors(STDERR_FILENO);
  EXPECT_TRUE(entries.is_readable());
  EXPECT_TRUE(entries.next());
  EXPECT_FALSE(entries.is_readable());
  EXPECT_FALSE(entries.is_readable());
  EXPECT_FALSE(entries.next());
  EXPECT_NE(0, reader.error_number());
  EXPECT_EQ(errors.text(), NO_MORE);
}

TEST_F(PackageEntriesTest, AreCompleteWhenEveryItemAndEveryEntryHasItsPartner) {
  struct Row {
    std::string name;
    mode_t mode;
    Texts entries;
    bool has_every_item, is_complete;
  };
  const std::string p = "/app/p/bin/";
  for (const Row& row : {Row{"whole", S_IFREG, {p + "a", p + "b"}, true, true},
                         Row{"an item is missing", S_IFREG, {p + "a"}, false, false},
                         Row{"a missing item never existed", 0, {p + "a"}, true, true},
                         Row{"an entry more", S_IFREG, {p + "a", p + "b", p + "c"}, true, false},
                         Row{"an entry of another package", S_IFREG, {p + "a", p + "b", "/x"}, true, true}}) {
    Reader& reader = open(archive_of(row.entries).text());
    std::vector<FileRecord> records = records_of({"a", "b"});
    records[1].status = harbix::RecordedStatus{.mode = row.mode};
    PackageEntries entries(reader, records, Path("/app/p/bin"), Path("/base"));
    const CapturedOutput errors(STDERR_FILENO);
    while (entries.next()) continue;
    EXPECT_EQ(row.has_every_item, entries.has_every_item()) << row.name;
    EXPECT_EQ(row.is_complete, entries.is_complete()) << row.name;
  }
}

TEST_F(PackageEntriesTest, ThatAreSkippedMayTurnOutToBeDamaged) {
  const std::string archive =
      TarBuilder().add(TarBuilder::FILE, "/app/p/bin/x", "short", 0600, "", 100'000).truncated_text();
  Reader& reader = open(archive);
  const std::vector<FileRecord> records = records_of({"a"});
  PackageEntries entries(reader, records, Path("/app/p/bin"), Path("/base"));
  const CapturedOutput errors(STDERR_FILENO);
  EXPECT_THROW(static_cast<void>(entries.next()), std::runtime_error);
  EXPECT_EQ(stranger("/app/p/bin/x"), errors.text());
}

TEST_F(PackageEntriesTest, AreStillThereAfterALookAhead) {
  Reader& reader = open(archive_of({"/app/p/bin/a", "/app/p/bin/b"}).text());
  const std::vector<FileRecord> records = records_of({"a", "b"});
  PackageEntries entries(reader, records, Path("/app/p/bin"), Path("/base"));
  EXPECT_TRUE(entries.is_readable());
  EXPECT_TRUE(entries.is_readable());
  ASSERT_TRUE(entries.next());
  EXPECT_EQ(reader.data(), "/app/p/bin/a");
}

TEST_F(PackageEntriesTest, KnowWhichPathsLeadToOthers) {
  Reader& reader = open(archive_of({}).text());
  const std::vector<FileRecord> records =
      records_of({"l/x/y", "l", "l.x", "l-", "k", "m", "lx/f", "l\x01/f", "twice", "twice", "n/o", "n0"});
  PackageEntries entries(reader, records, Path("/app/p/bin"), Path("/base"));
  for (const char* path : {"/base/l", "/base/l/x", "/base/lx", "/base/n", "/base", "/base/l\x01"})
    EXPECT_TRUE(entries.leads_to_others(Path(path))) << path;
  for (const char* path : {"/base/l.x", "/base/l-", "/base/k", "/base/m", "/base/l/x/y", "/base/twice",
                           "/base/n0", "/base/l/", "/base/zzz", "/bas"})
    EXPECT_FALSE(entries.leads_to_others(Path(path))) << path;
}

}  // namespace
}  // namespace harbix::test
