#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "settings/backup.h"
#include "settings/restore_run.h"
#include "settings/settings_device.h"
#include "support/tree.h"

namespace {

using test::naming;
using test::put;
using test::put_script;
using test::Tree;

class SettingsRoundTrip : public test::SettingsDevice {};

/// Names that a manifest could stumble over.
std::vector<std::string> awkward_names() {
  std::vector<std::string> names;
  const std::string parts[] = {"",      "a",  ":",        "a:",   "a:b",      "a: b",    " a",
                               "a ",    ": ", "\xC3\xA9", "\xFF", "\n",       "a\nFile", "File",
                               "12 34", "\t", "[n]a",     "-a",   "e\xCC\x81"};
  for (const std::string& front : parts) {
    for (const std::string& back : parts) {
      if (!(front + back).empty()) names.push_back(front + back);
    }
  }
  return names;
}

std::string back_up() {
  const test::Utf8Names names;
  test::Writer writer("/a.tar");
  EXPECT_EQ(0, harbix::settings::back_up(writer));
  writer.close();
  return test::read_file("/a.tar");
}

TEST_F(SettingsRoundTrip, BringsBackHundredsOfFilesWithAwkwardNames) {
  EXPECT_TRUE(on_the_device([] {
    put_script("1", naming({"/w"}));
    for (const std::string& name : awkward_names()) put("/w/" + name, "content of " + name);
    const Tree before = Tree::read("/w");
    EXPECT_GT(before.items().size(), 300U);
    const std::string archive = back_up();
    std::filesystem::remove_all("/w");
    std::filesystem::create_directory("/w");
    const test::Restored restored = test::restore_settings(archive);
    EXPECT_EQ(0, restored.status);
    EXPECT_EQ(std::string::npos, restored.errors.find("Skip: "));
    EXPECT_EQ(std::string::npos, restored.errors.find("WARNING"));
    EXPECT_TRUE(before.matches("/w"));
  }));
}

TEST_F(SettingsRoundTrip, BringsBackHundredsOfObjectsWithAwkwardNames) {
  EXPECT_TRUE(on_the_device([] {
    std::set<std::string> names;
    for (const std::string& name : awkward_names()) names.insert("/pps/s/" + name);
    for (const std::string& name : names) {
      put("/var" + name + "@y");
      put(name, "a::1\n[n]b::1\n");
    }
    const std::string archive = back_up();
    for (const std::string& name : names) test::write_file(name, "");
    const test::Restored restored = test::restore_settings(archive);
    EXPECT_EQ(0, restored.status);
    for (const std::string& name : names) EXPECT_EQ("a::1\n", test::read_file(name)) << name;
  }));
}

}  // namespace
