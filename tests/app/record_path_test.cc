#include "app/record_path.h"

#include <gtest/gtest.h>

namespace {

using fs::Path;
using harbix::is_record_path_below;

TEST(RecordPath, LiesStrictlyBelowTheBase) {
  for (const char* path :
       {"/f/a/x", "/f/a/x/y z", "/f/a/...", "/f/a/..x", "/f/a/x.", "/f/a/\xFF", "/f/a/x\ny"})
    EXPECT_TRUE(is_record_path_below(Path(path), Path("/f/a"))) << path;
}

TEST(RecordPath, IsNeitherTheBaseNorOutsideOfIt) {
  for (const char* path :
       {"", "/", "/f", "/f/", "/f/a", "/f/a/", "/f/ab", "/f/ab/x", "/f/b/x", "/F/a/x", "f/a/x", "x"})
    EXPECT_FALSE(is_record_path_below(Path(path), Path("/f/a"))) << path;
}

TEST(RecordPath, IsInNormalForm) {
  for (const char* path :
       {"/f/a/.", "/f/a/..", "/f/a/./x", "/f/a//x", "//f/a/x", "/f/a/x/", "/f/a/x//", "/f/a/x/.", "/f/a/x/..",
        "/f/a/x/../y", "/f/a/../b", "/f/./a/x", "/x/../f/a/y", "./f/a/x", "/f/a/x/../../.."})
    EXPECT_FALSE(is_record_path_below(Path(path), Path("/f/a"))) << path;
}

}  // namespace
