#include "archive/link_check.h"

#include <gtest/gtest.h>

namespace {

using harbix::leads_inside;

struct Row {
  const char *path, *target, *folder;
};

TEST(LinkCheck, AcceptsWhatStaysInTheFolder) {
  const Row rows[] = {
      {"/f/l", "/f/a", "/f"},
      {"/f/l", "/f", "/f"},
      {"/f/l", "a", "/f"},
      {"/f/l", "./a/b", "/f"},
      {"/f/l", "", "/f"},
      {"/f/l", ".", "/f"},
      {"/f/l", "...", "/f"},
      {"/f/l", "..a", "/f"},
      {"/f/l", "/f//a/./b/", "/f"},
      {"/f/l", "/f/a/../b", "/f"},
      {"/f/l", "/x/../f/a", "/f"},
      {"/f/l", "../f/a", "/f"},
      {"/f/d/l", "..", "/f"},
      {"/f/d/l", "../a", "/f"},
      {"/f/d/e/l", "../../a", "/f"},
      {"/f/d/l", "a", "/f"},
      // A link may lie elsewhere itself.
      {"/x/l", "/f/a", "/f"},
      {"/x/l", "../f/a", "/f"},
      // A folder that is not in normal form is the folder that it leads to.
      {"/f/l", "a", "/x/../f/"},
      {"/l", "/etc/passwd", "/"},
      {"/l", "../../a", "/"},
  };
  for (const Row& row : rows)
    EXPECT_TRUE(leads_inside(fs::Path(row.path), row.target, fs::Path(row.folder)))
        << row.path << " -> " << row.target << " in " << row.folder;
}

TEST(LinkCheck, RefusesWhatLeavesTheFolder) {
  const Row rows[] = {
      {"/f/l", "/", "/f"},           {"/f/l", "/etc/passwd", "/f"},
      {"/f/l", "..", "/f"},          {"/f/l", "../a", "/f"},
      {"/f/l", "../ff", "/f"},       {"/f/l", "/ff", "/f"},
      {"/f/l", "/ff/a", "/f"},       {"/f/l", "/f/..", "/f"},
      {"/f/l", "/f/../a", "/f"},     {"/f/l", "/f/a/../../b", "/f"},
      {"/f/l", "a/../../b", "/f"},   {"/f/l", "./../f2/a", "/f"},
      {"/f/d/l", "../../a", "/f"},   {"/f/d/l", "../..", "/f"},
      {"/f/l", "../../../f2", "/f"}, {"/f/g/l", "../a", "/f/g"},
      {"/f/g/l", "/f/g2", "/f/g"},   {"/x/l", "a", "/f"},
  };
  for (const Row& row : rows)
    EXPECT_FALSE(leads_inside(fs::Path(row.path), row.target, fs::Path(row.folder)))
        << row.path << " -> " << row.target << " in " << row.folder;
}

}  // namespace
