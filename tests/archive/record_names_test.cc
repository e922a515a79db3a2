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

TEST(RecordNames, HoldThePathsOfAManifestHoweverItIsCutIntoPieces) {
  const std::string text = text_of(PATHS);
  for (std::size_t piece_size = 1; piece_size <= text.size(); ++piece_size) {
    const RecordNames names = names_of(text, piece_size);
    for (const std::string& path : PATHS)
      EXPECT_TRUE(names.holds(fs::Path(path))) << path << " in pieces of " << piece_size;
  }
}

TEST(RecordNames, HoldNoOtherPath) {
  const RecordNames names = names_of(text_of(PATHS), 64);
  for (const char* path :
       {"", "music", "Music/a", "Music/a: b\n", "Music/two", "lines", "Music/ends with", "0"})
    EXPECT_FALSE(names.holds(fs::Path(path))) << path;
}

TEST(RecordNames, AreEmptyForAManifestWithoutRecords) {
  EXPECT_TRUE(names_of("", 1).empty());
  EXPECT_TRUE(names_of("\n", 1).empty());
  EXPECT_TRUE(names_of("Package-Name: x\n\n", 3).empty());
  EXPECT_FALSE(names_of(text_of(PATHS), 512).empty());
}

}  // namespace
}  // namespace harbix::test
