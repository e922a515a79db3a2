#include "device/log_line.h"

#include <string_view>

#include <gtest/gtest.h>

namespace harbix::test {
namespace {

TEST(LogLine, KeepsPriorityAndEscapesControlCharacters) {
  using namespace std::string_view_literals;
  struct Row {
    std::string_view message;
    std::string_view line;
  };
  for (const Row& row :
       {Row{"<11>harbix[12]:text", "<11>harbix[12]:text\n"}, Row{"", "\n"}, Row{"a\n", "a\n"},
        Row{"a\n\n", "a#012\n"}, Row{"a\nb", "a#012b\n"}, Row{"\t\x7f\0z"sv, "#011#177#000z\n"},
        Row{"caf\xc3\xa9 \xff", "caf\xc3\xa9 \xff\n"}, Row{"#012", "#012\n"}}) {
    EXPECT_EQ(device::log_line(row.message), row.line);
  }
}

}  // namespace
}  // namespace harbix::test
