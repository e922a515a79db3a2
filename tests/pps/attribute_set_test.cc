#include "device/pps/attribute_set.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace pps {
namespace {

class AttributeSetRules : public testing::Test {
 protected:
  /// Applies one line as the next change.
  bool apply(std::string_view line, OpenId writer = 1) {
    const auto parsed = parse_attribute_line(line);
    return parsed && set_.apply(*parsed, {.stamp = ++stamp_, .writer = writer});
  }

  std::string all() const {
    std::string text;
    set_.append_all(text);
    EXPECT_EQ(text.size(), set_.text_size());
    return text;
  }

  std::string news(Cursor cursor) const {
    std::string text;
    set_.append_news(text, cursor);
    EXPECT_EQ(!text.empty(), set_.has_news(cursor));
    return text;
  }

  AttributeSet set_;
  Stamp stamp_ = 0;
};

TEST_F(AttributeSetRules, MergesLineByLine) {
  struct Row {
    const char* line;
    bool changes;
    const char* all;
  };
  for (const Row& row : {
           Row{"a::1", true, "a::1\n"},
           Row{"a::1", false, "a::1\n"},
           Row{"b:n:2", true, "a::1\nb:n:2\n"},
           Row{"a::3", true, "a::3\nb:n:2\n"},
           Row{"b::2", true, "a::3\nb::2\n"},
           Row{"[n]a::3", true, "[n]a::3\nb::2\n"},
           Row{"[n]a::3", false, "[n]a::3\nb::2\n"},
           Row{"-c", false, "[n]a::3\nb::2\n"},
           Row{"-a", true, "b::2\n"},
           Row{"-a", false, "b::2\n"},
           Row{"a::4", true, "b::2\na::4\n"},
           Row{"@a::9", false, "b::2\na::4\n"},
       }) {
    EXPECT_EQ(apply(row.line), row.changes) << row.line;
    EXPECT_EQ(all(), row.all) << row.line;
  }
}

TEST_F(AttributeSetRules, KeepsOnlyPersistentLinesForTheStore) {
  for (const char* line : {"a::1", "[n]b::2", "c::3", "[n]c::3", "[n]d::4", "d::4"}) apply(line);
  std::string kept;
  set_.append_persistent(kept);
  EXPECT_EQ(kept, "a::1\nd::4\n");
}

TEST_F(AttributeSetRules, TellsWhatOthersChangedSince) {
  apply("a::1");
  apply("b::2");
  const Stamp before = stamp_;
  EXPECT_EQ(news({.seen = before, .self = 2}), "");
  apply("a::5");
  apply("-b");
  apply("c::6", 2);
  EXPECT_EQ(news({.seen = before, .self = 2}), "-b\na::5\n");
  EXPECT_EQ(news({.seen = before, .self = 1}), "c::6\n");
  EXPECT_EQ(news({.seen = before, .self = 3}), "-b\na::5\nc::6\n");
  EXPECT_EQ(news({.seen = stamp_, .self = 3}), "");
}

TEST_F(AttributeSetRules, TellsOnlyTheLastWordAboutAnAttribute) {
  apply("a::1");
  apply("-a");
  apply("a::2");
  EXPECT_EQ(news({.seen = 0, .self = 9}), "a::2\n");
  apply("-a");
  EXPECT_EQ(news({.seen = 0, .self = 9}), "-a\n");
}

TEST_F(AttributeSetRules, ForgetsRemovalsThatWereTold) {
  apply("a::1");
  apply("b::1");
  apply("-a");
  const Stamp told = stamp_;
  apply("-b");
  set_.forget_removals(told);
  EXPECT_TRUE(set_.remembers_removals());
  EXPECT_EQ(news({.seen = 0, .self = 9}), "-b\n");
  set_.forget_removals(stamp_);
  EXPECT_FALSE(set_.remembers_removals());
}

TEST_F(AttributeSetRules, HoldsThousandsInOrder) {
  std::string expected;
  for (int i = 0; i < 5000; ++i) {
    const std::string line = "name" + std::to_string(i) + "::" + std::to_string(i);
    ASSERT_TRUE(apply(line));
    expected += line + "\n";
  }
  EXPECT_EQ(all(), expected);
}

}  // namespace
}  // namespace pps
