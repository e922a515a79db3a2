#include "archive/record_names.h"

#include <gtest/gtest.h>

#include "archive/file_record.h"

namespace harbix::test {
namespace {

const std::vector<std::string> PATHS{"Music",
                                     "Music/a: b",
                                     "Music/two\nlines",
                                     "Music/ends with:",
                                     "Music/l\xc3\xa4nge",
                                     "Music/ends with a newline\n"};

const std::string LONG_NAME = "Music/" + std::string(120, 'n');

std::string text_of(const std::vector<std::string>& paths) {
  meta::Manifest manifest;
  for (const std::string& path : paths) manifest.push_back(plain_record(fs::File(fs::Path(path), {})));
  return meta::to_text(manifest);
}

RecordNames names_of(const std::string& text, std::size_t piece_size) {
  RecordNames names;
  for (std::size_t at = 0; at < text.size(); at += piece_size)
    names.add(std::string_view(text).substr(at, piece_size));
  names.finish();
  return names;
}

bool has_changed_names(RecordNames names, const std::vector<std::string>& entries) {
  for (const std::string& path : entries) names.meet(fs::Path(path));
  return names.has_changed_names();
}

TEST(RecordNames, AreThoseOfTheManifestHoweverItIsCutIntoPieces) {
  const std::string text = text_of(PATHS);
  for (std::size_t piece_size = 1; piece_size <= text.size(); ++piece_size) {
    const RecordNames names = names_of(text, piece_size);
    EXPECT_FALSE(has_changed_names(names, PATHS)) << "in pieces of " << piece_size;
    // One of a name is missing, so that any other one shows.
    for (const char* path :
         {"", "music", "Music/a", "Music/a: b\n", "Music/two", "lines", "Music/ends with", "0"})
      EXPECT_TRUE(has_changed_names(names, {path})) << path << " in pieces of " << piece_size;
  }
}

TEST(RecordNames, KnowAPathThatSpellsTheBeginningOfARecord) {
  const std::vector<std::string> paths{"Music/\xc3\xb6\nFile: 12\nMusic/a"};
  const std::string text = text_of(paths);
  EXPECT_FALSE(has_changed_names(names_of(text, text.size()), paths));
}

TEST(RecordNames, ShowALongNameAndOneBeyondAsciiThatHaveChanged) {
  const std::string text = text_of({"Music", LONG_NAME, "Music/l\xc3\xa4nge"});
  const RecordNames names = names_of(text, text.size());
  EXPECT_FALSE(has_changed_names(names, {"Music", LONG_NAME, "Music/l\xc3\xa4nge"}));
  EXPECT_TRUE(has_changed_names(names, {"Music", LONG_NAME, "Music/l\xc3\xb4nge"}));
  EXPECT_TRUE(has_changed_names(names, {"Music", LONG_NAME.substr(0, 100), "Music/l\xc3\xa4nge"}));
}

TEST(RecordNames, AreContentWithItemsThatVanishedOrWereAdded) {
  const std::string text = text_of(PATHS);
  const RecordNames names = names_of(text, text.size());
  EXPECT_FALSE(has_changed_names(names, {"Music"}));
  std::vector<std::string> more = PATHS;
  more.emplace_back("Music/added");
  EXPECT_FALSE(has_changed_names(names, more));
  EXPECT_FALSE(has_changed_names(names_of("", 1), PATHS));
  EXPECT_FALSE(has_changed_names(names_of("Package-Name: x\n\n", 3), PATHS));
}

TEST(RecordNames, TellOfAnEntryWhetherARecordHasIt) {
  RecordNames names = names_of(text_of({"Music", "Music/a"}), 7);
  EXPECT_TRUE(names.meet("Music/a"));
  EXPECT_FALSE(names.meet("Music/b"));
}

TEST(RecordNames, ShowAnEntryThatHasTakenTheNameOfAnother) {
  const std::vector<std::string> paths{"Music/l\xc3\xa4nge 01", "Music/a", "Music/l\xc3\xa4nge 03"};
  const RecordNames names = names_of(text_of(paths), 5);
  EXPECT_FALSE(has_changed_names(names, paths));
  EXPECT_FALSE(has_changed_names(names, {paths[2], paths[1], paths[0]}));
  // Whether the other one comes later or came before, and wherever in the order of the records.
  EXPECT_TRUE(has_changed_names(names, {paths[2], paths[1], paths[2]}));
  EXPECT_TRUE(has_changed_names(names, {paths[0], paths[1], paths[0]}));
  EXPECT_TRUE(has_changed_names(names, {paths[2], paths[2], paths[1]}));
}

TEST(PlainRecords, AreHandedOnWholeWhereverThePiecesEnd) {
  const std::string text = "File: 5\nMusic\nFile: 0\nMusic/a: b\nc\nFile: 17\nMusic/File: 3\n\n";
  const std::vector<std::string> expected{"File: 5\nMusic", "File: 0\nMusic/a: b\nc",
                                          "File: 17\nMusic/File: 3"};
  for (std::size_t size = 1; size <= text.size(); ++size) {
    harbix::PlainRecords records;
    std::vector<std::string> found;
    const auto take = [&found](std::string_view record) { found.emplace_back(record); };
    for (std::size_t at = 0; at < text.size(); at += size) records.add(text.substr(at, size), take);
    records.finish(take);
    EXPECT_EQ(found, expected) << size;
  }
}

TEST(PlainRecords, HaveAPathBehindTheFirstLine) {
  EXPECT_EQ(harbix::PlainRecords::path_of("File: 5\na\nb"), "a\nb");
  EXPECT_EQ(harbix::PlainRecords::path_of("File: 5"), std::nullopt);
  EXPECT_EQ(harbix::PlainRecords::path_of("Dir: 5\na"), std::nullopt);
}

TEST(RecordNames, TakeNoMemoryForARecordWithoutAnEnd) {
  RecordNames names;
  for (int i = 0; i < 64; ++i) names.add(std::string(std::size_t{1} << 20, 'x'));
  names.add("\nFile: 1\nMusic/l\xc3\xa4nge\n\n");
  names.finish();
  EXPECT_TRUE(has_changed_names(names, {"Music/lange"}));
}

}  // namespace
}  // namespace harbix::test
