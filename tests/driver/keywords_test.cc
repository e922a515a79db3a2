#include "driver/keywords.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace harbix::test {
namespace {

using harbix::Keyword;
using harbix::section_of;

using Texts = std::vector<std::string>;

Texts texts(const std::vector<fs::Path>& paths) {
  Texts result;
  for (const fs::Path& path : paths) result.push_back(path.text());
  return result;
}

const Keyword& keyword(std::string_view name) {
  for (const Keyword& each : harbix::all_keywords()) {
    if (each.name == name) return each;
  }
  throw std::runtime_error("no such keyword");
}

TEST(Keywords, StandInTheOrderOfARunWithLabelsAndPrefixes) {
  struct Row {
    const char *name, *label;
    Texts prefixes;
  };
  const std::vector<Row> rows{{"app", "app", {"/app"}},
                              {"media", "Media", {"/media", "/dtm"}},
                              {"settings", "Settings", {"/settings"}}};
  ASSERT_EQ(harbix::all_keywords().size(), rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const Keyword& each = harbix::all_keywords()[i];
    EXPECT_EQ(each.name, rows[i].name);
    EXPECT_EQ(each.label, rows[i].label);
    EXPECT_EQ(texts(each.prefixes), rows[i].prefixes);
  }
}

TEST(Keywords, AreKnownToTheLetter) {
  for (const char* name : {"app", "media", "settings"}) EXPECT_TRUE(harbix::is_keyword(name)) << name;
  for (const char* name : {"", "App", "apps", "medi", "app_media"})
    EXPECT_FALSE(harbix::is_keyword(name)) << name;
}

TEST(SectionOfAKeyword, PassesOverTheKeywordsBeforeWhetherSelectedOrNot) {
  EXPECT_EQ(texts(section_of(keyword("app"), {}).earlier), Texts{});
  EXPECT_EQ(texts(section_of(keyword("media"), {}).earlier), Texts{"/app"});
  EXPECT_EQ(texts(section_of(keyword("settings"), {}).earlier), (Texts{"/app", "/media", "/dtm"}));
}

TEST(SectionOfAKeyword, EndsAtKeywordsThatThisRunRestoresLater) {
  for (const char* name : {"app", "media", "settings"}) {
    for (const Texts& selected :
         {Texts{}, Texts{"media"}, Texts{"settings"}, Texts{"app", "media", "settings"}}) {
      Texts expected;
      bool is_later = false;
      for (const Keyword& other : harbix::all_keywords()) {
        const bool is_selected = std::find(selected.begin(), selected.end(), other.name) != selected.end();
        if (is_later && is_selected && other.restore != nullptr) {
          for (const fs::Path& prefix : other.prefixes) expected.push_back(prefix.text());
        }
        is_later = is_later || other.name == name;
      }
      EXPECT_EQ(texts(section_of(keyword(name), selected).later), expected) << name;
    }
  }
  EXPECT_EQ(texts(section_of(keyword("app"), Texts{"app", "media"}).later), (Texts{"/media", "/dtm"}));
  EXPECT_EQ(texts(section_of(keyword("media"), Texts{"app", "media"}).later), Texts{});
}

}  // namespace
}  // namespace harbix::test
