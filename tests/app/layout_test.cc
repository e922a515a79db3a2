#include "app/layout.h"

#include <gtest/gtest.h>

namespace harbix::test {
namespace {

using fs::Path;

TEST(ApplicationLayout, BuildsNamesOfFoldersAndPackages) {
  EXPECT_EQ(harbix::binary_folder("a.b"), Path("/apps/a.b"));
  EXPECT_EQ(harbix::data_folder("a.b"), Path("/accounts/1000/appdata/a.b"));
  EXPECT_EQ(harbix::package_name("a.b", harbix::places::BINARY_KIND), Path("/app/a.b/bin"));
}

TEST(ApplicationLayout, KnowsTheHomeScreenByTwoNames) {
  EXPECT_TRUE(harbix::is_home_screen("sys.navigator"));
  EXPECT_TRUE(harbix::is_home_screen("sys.systemtray"));
  for (const char* name : {"", "sys", "sys.navigatorx", "SYS.NAVIGATOR", "a.sys.navigator"})
    EXPECT_FALSE(harbix::is_home_screen(name)) << name;
}

TEST(ApplicationLayout, KeepsThreeFoldersOfAnApplicationsData) {
  for (const char* path : {"/accounts/1000/appdata/a/data", "/accounts/1000/appdata/a/data/x/y",
                           "/accounts/1000/appdata/a/logs", "/accounts/1000/appdata/a/tmp/x"})
    EXPECT_TRUE(harbix::is_in_kept_folder(path)) << path;
  for (const char* path :
       {"", "/accounts/1000/appdata", "/accounts/1000/appdata/a", "/accounts/1000/appdata/data",
        "/accounts/1000/appdata/a/datax", "/accounts/1000/appdata/a/x/data", "/accounts/1000/appdatax/a/data",
        "/apps/a/data"})
    EXPECT_FALSE(harbix::is_in_kept_folder(path)) << path;
}

}  // namespace
}  // namespace harbix::test
