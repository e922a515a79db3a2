#include <sys/stat.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/file_record.h"

namespace harbix::test {
namespace {

using fs::Path;
using harbix::FileRecord;

/// As a restore sees them: written, then parsed. The n-th record has the size n + 1.
std::vector<FileRecord> after_the_archive(const std::vector<std::string>& paths) {
  meta::Manifest manifest;
  for (const std::string& path : paths) {
    struct ::stat record {};
    record.st_size = static_cast<off_t>(manifest.size() + 1);
    manifest.push_back(harbix::plain_record({Path(path), record}));
  }
  std::istringstream stream(meta::to_text(manifest));
  return harbix::read_file_records(meta::parse(stream));
}

void expect_number_and_order(const std::vector<std::string>& paths, const std::string& which) {
  const std::vector<FileRecord> records = after_the_archive(paths);
  ASSERT_EQ(records.size(), paths.size()) << which;
  for (std::size_t i = 0; i < records.size(); ++i) ASSERT_EQ(records[i].size, i + 1) << which << ' ' << i;
}

/// Names of settings, all awkward in some way; no two are alike.
std::vector<std::string> awkward_paths() {
  const std::string folders[] = {
      "/pps/services/x", "/accounts/1000/settings", "/accounts/1000/s p a c e", "/\xC3\xA4 \xFF", "/a:b",
      "/1 2 3"};
  const std::string names[] = {
      "o:",        "o:b",  "o::",  ":",    "::",          " o",      "o ",       " ",     "\xC3\xA9",
      "e\xCC\x81", "\xFF", "\xFE", "File", "12",          "12 34",   "#",        "-o",    "[n]o",
      "\\",        "\\n",  "a\tb", "\t",   "o@x",         "o?wait",  ".o",       "...",   "%s%n",
      "'",         "\"",   "$(x)", "a\rb", "\r",          "100 644", "Package:", "Files", "1\v2",
      "\x01\x7F",  "a b",  "a  b", "a :b", "a : b",       ": b",     "o: ",      "o:\t",  "(1)",
      "o.tar",     "*",    "~",    "&",    "\xE2\x82\xAC"};
  std::vector<std::string> paths;
  for (const std::string& folder : folders) {
    for (const std::string& name : names) paths.push_back((Path(folder) / name).text());
  }
  return paths;
}

TEST(SettingsRecords, OfHundredsOfAwkwardPathsComeBackInNumberAndOrder) {
  const std::vector<std::string> paths = awkward_paths();
  ASSERT_EQ(paths.size(), 300U);
  expect_number_and_order(paths, "as listed");
  expect_number_and_order({paths.rbegin(), paths.rend()}, "backwards");
  std::vector<std::string> shuffled = paths;
  std::mt19937 random(1);  // the same order each time
  for (int round = 0; round < 50; ++round) {
    std::shuffle(shuffled.begin(), shuffled.end(), random);
    expect_number_and_order(shuffled, "round " + std::to_string(round));
  }
}

TEST(SettingsRecords, KeepTheirPathsToTheLetterUnlessWhiteSpaceFollowsAColon) {
  std::vector<std::string> paths;
  for (const std::string& path : awkward_paths()) {
    if (path.find(": ") == std::string::npos && path.find(":\t") == std::string::npos) paths.push_back(path);
  }
  // The last path of a manifest is lost unless it has a ':'.
  paths.emplace_back("/end:");
  const std::vector<FileRecord> records = after_the_archive(paths);
  ASSERT_EQ(records.size(), paths.size());
  for (std::size_t i = 0; i < paths.size(); ++i) EXPECT_EQ(records[i].path.text(), paths[i]);
}

/// Whether a line of the path, but the first, begins with a ':' behind white space.
bool has_line_beginning_with_colon(const std::string& path) {
  for (std::size_t end = path.find('\n'); end != std::string::npos; end = path.find('\n', end + 1)) {
    const std::size_t start = path.find_first_not_of(" \t\n", end);
    if (start != std::string::npos && path[start] == ':') return true;
  }
  return false;
}

TEST(SettingsRecords, OfRandomPathsComeBackInNumberAndOrder) {
  std::mt19937 random(2);  // the same paths each time
  const std::string letters = "ab:: \n\t/1F-";
  for (int round = 0; round < 300; ++round) {
    std::vector<std::string> paths;
    for (int i = 0; i < 40; ++i) {
      std::string path = "/";
      for (std::size_t left = random() % 9; left > 0; --left) path += letters[random() % letters.size()];
      if (!has_line_beginning_with_colon(path)) paths.push_back(path);
    }
    expect_number_and_order(paths, "round " + std::to_string(round));
  }
}

// Pinned, not wished for: the parser takes nothing for the key without characters that stands there, nor for
// the keys with white space in front that come of it.
TEST(SettingsRecords, BehindAPathWithAColonWhoseLastLineIsAColonAreLost) {
  for (const std::string path : {"/a:b\n:", "/a:b\n\n :", "/::\n:"}) {
    const std::vector<FileRecord> records = after_the_archive({"/first", path, "/c", "/d"});
    ASSERT_EQ(records.size(), 2U) << path;
    EXPECT_EQ(records[0].size, 1U);
    EXPECT_EQ(records[1].size, 2U);
  }
}

}  // namespace
}  // namespace harbix::test
