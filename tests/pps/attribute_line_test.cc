#include "device/pps/attribute_line.h"

#include <string>

#include <gtest/gtest.h>

namespace pps {
namespace {

using Kind = AttributeLine::Kind;

TEST(ParseAttributeLine, TakesWellFormedLinesApart) {
  struct Row {
    std::string line;
    Kind kind;
    std::string name, encoding, value;
    bool persistent;
  };
  for (const Row& row :
       {Row{"a::1", Kind::set, "a", "", "1", true}, Row{"a:b:1", Kind::set, "a", "b", "1", true},
        Row{"a::", Kind::set, "a", "", "", true}, Row{"a::1:2::", Kind::set, "a", "", "1:2::", true},
        Row{"[n]a:n:1", Kind::set, "a", "n", "1", false}, Row{"a[n]::1", Kind::set, "a[n]", "", "1", true},
        Row{"a::-1\r", Kind::set, "a", "", "-1\r", true}, Row{" a::1", Kind::set, " a", "", "1", true},
        Row{std::string("a::x\0y", 6), Kind::set, "a", "", std::string("x\0y", 3), true},
        Row{"-a", Kind::remove, "a", "", "", true}, Row{"-a b", Kind::remove, "a b", "", "", true},
        Row{"", Kind::nothing, "", "", "", true}, Row{"@", Kind::nothing, "", "", "", true},
        Row{"@name", Kind::nothing, "", "", "", true}, Row{"@a::1", Kind::nothing, "", "", "", true}}) {
    const auto parsed = parse_attribute_line(row.line);
    ASSERT_TRUE(parsed) << row.line;
    EXPECT_EQ(parsed->kind, row.kind) << row.line;
    EXPECT_EQ(parsed->name, row.name) << row.line;
    EXPECT_EQ(parsed->encoding, row.encoding) << row.line;
    EXPECT_EQ(parsed->value, row.value) << row.line;
    EXPECT_EQ(parsed->persistent, row.persistent) << row.line;
  }
}

TEST(ParseAttributeLine, RefusesMalformedLines) {
  for (const char* line : {"a",      "a:",       "a:1",      ":",          "::",      "::1", ":b:1", "-",
                           "-a:",    "-a::1",    "--a",      "-[n]a",      "-@a",     "[n]", "[n]a", "[n]a:1",
                           "[n]::1", "[n]-a::1", "[n]@a::1", "[n][n]a::1", "[i]a::1", "[",   " "}) {
    EXPECT_FALSE(parse_attribute_line(line)) << line;
  }
}

TEST(AppendAttribute, WritesWhatParseReads) {
  for (const std::string line : {"a::1", "[n]a:b:1:2", "a::"}) {
    const auto parsed = parse_attribute_line(line);
    ASSERT_TRUE(parsed) << line;
    std::string text = "before\n";
    append_attribute(text, *parsed);
    EXPECT_EQ(text, "before\n" + line + "\n");
  }
}

}  // namespace
}  // namespace pps
