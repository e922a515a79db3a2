#include "inspect/record_table.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace harbix::inspect {
namespace {

RecordTable table_of(const std::vector<std::string>& paths) {
  RecordTable table;
  for (const std::string& path : paths) table.add(path, path.size(), true, 0);
  return table;
}

std::vector<std::string> unmet(RecordTable& table) {
  std::vector<std::string> paths;
  table.for_unmet([&paths](const RecordTable::Record& record, std::string_view path) {
    paths.push_back(std::to_string(record.number) + std::string(path));
  });
  return paths;
}

TEST(RecordTable, FindsPathsInAnyOrder) {
  const std::vector<std::string> paths{"a", "a/b", "a/c", "d", "e", "f", "g", "h", "i", "j", "k", "l", "m",
                                       "n", "o",   "p",   "q", "r", "s", "t", "u", "v", "w", "x", "y", "z"};
  for (std::size_t step : {1U, 3U, 5U, 25U}) {
    RecordTable table = table_of(paths);
    for (std::size_t i = 0; i < paths.size(); ++i) {
      const std::string& path = paths[i * step % paths.size()];
      RecordTable::Record* const record = table.find(path);
      ASSERT_NE(record, nullptr) << path;
      EXPECT_EQ(paths[record->number], path);
      EXPECT_EQ(record->is_met, 0U) << path;
      table.meet(*record, true);
    }
    EXPECT_EQ(unmet(table), std::vector<std::string>());
    EXPECT_EQ(table.find("A"), nullptr);
  }
}

TEST(RecordTable, NamesWhatWasNotMetInTheOrderOfTheManifest) {
  RecordTable table = table_of({"z", "y", "x", "w"});
  table.meet(*table.find("x"), false);
  EXPECT_EQ(table.find("nothing"), nullptr);
  EXPECT_EQ(unmet(table), (std::vector<std::string>{"0z", "1y", "3w"}));
}

TEST(RecordTable, GivesAPathThatIsListedTwiceTwice) {
  RecordTable table = table_of({"a", "a"});
  for (const unsigned is_met : {0U, 0U, 1U}) {
    RecordTable::Record* const record = table.find("a");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->is_met, is_met);
    table.meet(*record, false);
  }
}

TEST(RecordTable, ComparesSizes) {
  RecordTable table;
  table.add("a", 5'000'000'000, true, 0);
  EXPECT_TRUE(RecordTable::has_size(*table.find("a"), 5'000'000'000));
  EXPECT_FALSE(RecordTable::has_size(*table.find("a"), 5'000'000'000 - (1LL << 32)));
  EXPECT_FALSE(RecordTable::has_size(*table.find("a"), 5'000'000'001));
}

TEST(RecordTable, KnowsWhatLiesBehindAFileOrALink) {
  RecordTable table;
  table.add("/a", 0, true, S_IFDIR | 0755);
  table.add("/a/f", 0, true, S_IFREG | 0644);
  table.add("/a/f/x", 0, true, S_IFREG | 0644);
  table.add("/a/l", 0, true, S_IFLNK | 0777);
  table.add("/a/l/x", 0, true, S_IFREG | 0644);
  table.add("/a/g/x", 0, true, S_IFREG | 0644);
  table.meet(*table.find("/a"), true);
  EXPECT_FALSE(table.is_behind_leaf("/a/f/x")) << "not met yet";
  table.meet(*table.find("/a/f"), false);
  EXPECT_FALSE(table.is_behind_leaf("/a/g/x"));
  EXPECT_TRUE(table.is_behind_leaf("/a/f/x"));
  EXPECT_TRUE(table.is_behind_leaf("/a/f/x/y/z"));
  EXPECT_TRUE(table.is_behind_leaf("/a/l/x")) << "by its record";
  EXPECT_FALSE(table.is_behind_leaf("/a/fx"));
}

TEST(RecordTable, ForgetsNamesAndNoRecordWhereThereAreTooMany) {
  RecordTable table;
  const std::string folder(1000, 'x');
  for (int i = 0; i < 6000; ++i) table.add(folder + std::to_string(i), 0, true, 0);
  std::size_t named = 0;
  std::size_t all = 0;
  table.for_unmet([&](const RecordTable::Record& record, std::string_view path) {
    EXPECT_EQ(record.number, all);
    ++all;
    if (path.empty()) return;
    EXPECT_EQ(path, folder + std::to_string(record.number));
    ++named;
  });
  EXPECT_EQ(all, 6000U);
  EXPECT_GT(named, 4000U);
  EXPECT_LT(named, 4300U);
}

}  // namespace
}  // namespace harbix::inspect
