#include "device/installer/request.h"

#include <string>

#include <gtest/gtest.h>

#include "device/installer/attributes.h"
#include "device/installer/refusal.h"

namespace installer {
namespace {

std::string refusal_of(const std::string& text) {
  try {
    static_cast<void>(parse_request(parse_attributes(text)));
    return "none";
  } catch (const Refusal& refusal) {
    return refusal.what();
  }
}

TEST(InstallerAttributes, AreTheWellFormedLinesWithTheLastValueOfEachName) {
  const Attributes attributes =
      parse_attributes("@name\naction::query\n[n]path:x:a::b\n-gone\nno colons\none:colon\n\npath::last");
  EXPECT_EQ(attributes, (Attributes{{"action", "query"}, {"path", "last"}}));
  EXPECT_EQ(value_of(attributes, "path"), "last");
  EXPECT_EQ(value_of(attributes, "gone"), "");
}

TEST(InstallerRequest, HasTheAttributesOfItsAction) {
  const Request enroll = parse_request(parse_attributes(
      "action::register\npackage_path::/apps/com.example.x\nextras::a:b:c,d::\ngid::10042\n"));
  EXPECT_EQ(enroll.action, Action::enroll);
  EXPECT_EQ(enroll.id, "com.example.x");
  EXPECT_EQ(enroll.extras, "a:b:c,d::");
  EXPECT_EQ(enroll.gid, "10042");
  const Request unregister = parse_request(parse_attributes("action::unregister\npackage_path::/apps/x y"));
  EXPECT_EQ(unregister.action, Action::unregister);
  EXPECT_EQ(unregister.id, "x y");
  const Request query = parse_request(parse_attributes("action::query\npackage_path::/apps/caf\xe9"));
  EXPECT_EQ(query.action, Action::query);
  EXPECT_EQ(query.id, "caf\xe9");
  const Request uninstall = parse_request(parse_attributes("action::uninstall\npackage_id::com.example.P"));
  EXPECT_EQ(uninstall.action, Action::uninstall);
  EXPECT_EQ(uninstall.package, "com.example.P");
  EXPECT_EQ(uninstall.id, "");
}

TEST(InstallerRequest, IsRefusedWhenItIsMalformed) {
  struct Row {
    const char* text;
    const char* error;
  };
  for (const Row& row : {
           Row{"action::dance\n", "the action 'dance' is not known"},
           Row{"action::\n", "the action '' is not known"},
           Row{"action::query\n", "the request has no 'package_path'"},
           Row{"action::uninstall\npackage_path::/apps/x\n", "the request has no 'package_id'"},
           Row{"action::uninstall\npackage_id::\n", "the request's 'package_id' is empty"},
           Row{"action::register\npackage_path::/apps/x\ngid::\n", "the request has no 'extras'"},
           Row{"action::register\npackage_path::/apps/x\nextras::\n", "the request has no 'gid'"},
           Row{"action::query\npackage_path::\n", "'' is no application's folder"},
           Row{"action::query\npackage_path::/apps\n", "'/apps' is no application's folder"},
           Row{"action::query\npackage_path::/apps/\n", "'/apps/' is no application's folder"},
           Row{"action::query\npackage_path::/apps/.\n", "'/apps/.' is no application's folder"},
           Row{"action::query\npackage_path::/apps/..\n", "'/apps/..' is no application's folder"},
           Row{"action::query\npackage_path::/apps/a/b\n", "'/apps/a/b' is no application's folder"},
           Row{"action::query\npackage_path::apps/a\n", "'apps/a' is no application's folder"},
           Row{"action::query\npackage_path::/etc/a\n", "'/etc/a' is no application's folder"},
       }) {
    EXPECT_EQ(refusal_of(row.text), row.error) << row.text;
  }
}

TEST(InstallerRequest, NamesAnApplicationThatTheListCanShow) {
  for (const char* id :
       {"a", "com.example.x", "com.example.reader.r_eader1a2b3c4d", "...", "a b", "a,b", "caf\xe9"})
    EXPECT_TRUE(is_application_id(id)) << id;
  for (const char* id : {"", ".", "..", "a/b", "a\nb", "a:b", "-a", "@a", "[n]a", "[a"})
    EXPECT_FALSE(is_application_id(id)) << id;
}

TEST(InstallerRequest, IsPendingUntilThereIsAResult) {
  EXPECT_FALSE(is_pending(parse_attributes("")));
  EXPECT_FALSE(is_pending(parse_attributes("package_path::/apps/x\n")));
  EXPECT_TRUE(is_pending(parse_attributes("action::query\n")));
  EXPECT_FALSE(is_pending(parse_attributes("action::query\nresult::0\n")));
}

TEST(InstallerRequest, IsCompleteWithItsLastAttribute) {
  EXPECT_FALSE(is_complete(parse_attributes("action::register\npackage_path::/apps/x\n")));
  EXPECT_FALSE(is_complete(parse_attributes("action::register\npackage_path::/apps/x\nextras::\n")));
  EXPECT_TRUE(is_complete(parse_attributes("action::register\npackage_path::/apps/x\nextras::\ngid::\n")));
  EXPECT_FALSE(is_complete(parse_attributes("action::query\n")));
  EXPECT_TRUE(is_complete(parse_attributes("action::query\npackage_path::\n")));
  EXPECT_TRUE(is_complete(parse_attributes("action::dance\n")));
}

}  // namespace
}  // namespace installer
