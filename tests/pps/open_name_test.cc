#include "device/pps/open_name.h"

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

namespace pps {
namespace {

TEST(SplitOpenName, TakesOptionsOffTheName) {
  struct Row {
    const char* component;
    const char* name;
    bool wait, delta, has_options;
  };
  for (const Row& row :
       {Row{"obj", "obj", false, false, false}, Row{"obj?wait", "obj", true, false, true},
        Row{"obj?delta", "obj", false, true, true}, Row{"obj?wait,delta", "obj", true, true, true},
        Row{"obj?delta,wait", "obj", true, true, true}, Row{"obj?", "obj", false, false, true},
        Row{"obj?,", "obj", false, false, true}, Row{"obj?waiting", "obj", false, false, true},
        Row{"obj?other,wait,", "obj", true, false, true}, Row{"obj?a?wait", "obj", false, false, true},
        Row{"?wait", "", true, false, true}, Row{".all?wait", ".all", true, false, true}}) {
    const OpenName split = split_open_name(row.component);
    EXPECT_EQ(split.name, row.name) << row.component;
    EXPECT_EQ(split.options, (OpenOptions{row.wait, row.delta})) << row.component;
    EXPECT_EQ(split.has_options, row.has_options) << row.component;
  }
}

TEST(LiveName, EndsBeforeTheFirstAt) {
  struct Row {
    const char *stored, *live;
  };
  for (const Row& row :
       {Row{"obj", "obj"}, Row{"obj@y", "obj"}, Row{"obj@y@z", "obj"}, Row{"obj@", "obj"}, Row{"@y", ""}}) {
    EXPECT_EQ(live_name(row.stored), row.live) << row.stored;
  }
}

TEST(CheckName, RefusesWhatWouldMeanSomethingElse) {
  struct Row {
    std::string name;
    int error;
  };
  for (const Row& row :
       {Row{"obj", 0}, Row{".all", 0}, Row{"a b:c", 0}, Row{"caf\xc3\xa9", 0}, Row{"\xff", 0},
        Row{std::string(255, 'x'), 0}, Row{std::string(256, 'x'), ENAMETOOLONG}, Row{"", EINVAL},
        Row{".", EINVAL}, Row{"..", EINVAL}, Row{"a@b", EINVAL}, Row{"a?b", EINVAL}, Row{"a\nb", EINVAL},
        Row{"a/b", EINVAL}}) {
    EXPECT_EQ(check_name(row.name), row.error) << row.name;
  }
}

}  // namespace
}  // namespace pps
