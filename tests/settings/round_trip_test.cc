#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "settings/backup.h"
#include "tests/settings/restore_run.h"
#include "tests/settings/settings_device.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

class SettingsRoundTrip : public SettingsDevice {};

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
  const Utf8Names names;
  Writer writer("/a.tar");
  EXPECT_EQ(harbix::settings::back_up(writer), 0);
  writer.close();
  return read_file("/a.tar");
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
    const Restored restored = restore_settings(archive);
    EXPECT_EQ(restored.status, 0);
    EXPECT_EQ(restored.errors.find("Skip: "), std::string::npos);
    EXPECT_EQ(restored.errors.find("WARNING"), std::string::npos);
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
    for (const std::string& name : names) write_file(name, "");
    const Restored restored = restore_settings(archive);
    EXPECT_EQ(restored.status, 0);
    for (const std::string& name : names) EXPECT_EQ(read_file(name), "a::1\n") << name;
  }));
}

}  // namespace
}  // namespace harbix::test
