#include "app/home_screen_rules.h"

#include <optional>
#include <string>

#include "tests/app/app_device.h"
#include "tests/support/archive.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;
using harbix::EntryView;
using harbix::Refusal;

class HomeScreenRules : public AppDevice {};

TEST_F(HomeScreenRules, AcceptsRecordsBelowTheComponentsFolder) {
  EXPECT_TRUE(on_the_device([] {
    write_file("/a.tar", TarBuilder().file("/e", "").text());
    Reader reader("/a.tar");
    fs::Folder root("/");
    const std::optional<EntryView> entry = reader.next_header();
    ASSERT_TRUE(entry);
    const auto refusal_of = [&](const std::string& path) {
      return refusal_of_component_item(root, *entry, Path(path), Path(COMPONENT_FOLDER));
    };
    for (const char* name : {"x", "data/x", "..x", "data/x y"})
      EXPECT_EQ(refusal_of(in_component(name)), std::nullopt) << name;
    for (const std::string record :
         {in_component(""), in_component("."), in_component(".."), in_component("../x"),
          in_component("x/../y"), in_component("x//y"), in_component("x/"), std::string(COMPONENT_FOLDER),
          COMPONENT_FOLDER + std::string("x/y"), std::string("/accounts/1000/appdata/sys.systemtray/x"),
          std::string("/etc/passwd"), std::string("data/x"), std::string()})
      EXPECT_EQ(refusal_of(record), Refusal::MISPLACED) << record;
  }));
}

TEST_F(HomeScreenRules, AcceptsFilesFoldersAndLinksThatStay) {
  EXPECT_TRUE(on_the_device([] {
    struct Row {
      char type;
      const char* target;
      std::optional<Refusal> refusal;
    };
    const Row rows[] = {
        {TarBuilder::FILE, "", std::nullopt},
        {TarBuilder::FOLDER, "", std::nullopt},
        {TarBuilder::HARD_LINK, "/accounts/1000/appdata/sys.navigator/y", Refusal::KIND},
        {TarBuilder::CHARACTER_DEVICE, "", Refusal::KIND},
        {TarBuilder::BLOCK_DEVICE, "", Refusal::KIND},
        {TarBuilder::FIFO, "", Refusal::KIND},
        {TarBuilder::SYMBOLIC_LINK, "y", std::nullopt},
        {TarBuilder::SYMBOLIC_LINK, "../y", std::nullopt},
        {TarBuilder::SYMBOLIC_LINK, "/accounts/1000/appdata/sys.navigator/data", std::nullopt},
        {TarBuilder::SYMBOLIC_LINK, "../../y", Refusal::LINK_LEADS_OUT},
        {TarBuilder::SYMBOLIC_LINK, "../../sys.systemtray/data", Refusal::LINK_LEADS_OUT},
        {TarBuilder::SYMBOLIC_LINK, "../../sys.navigatorx", Refusal::LINK_LEADS_OUT},
        {TarBuilder::SYMBOLIC_LINK, "/accounts/1000/appdata/sys.navigator/..", Refusal::LINK_LEADS_OUT},
        {TarBuilder::SYMBOLIC_LINK, "/accounts/1000/appdata/sys.navigator/../x", Refusal::LINK_LEADS_OUT},
        {TarBuilder::SYMBOLIC_LINK, "/etc/passwd", Refusal::LINK_LEADS_OUT},
        {TarBuilder::SYMBOLIC_LINK, "/", Refusal::LINK_LEADS_OUT},
    };
    for (const Row& row : rows) {
      write_file("/a.tar", TarBuilder().add(row.type, "/e", "", 0660, row.target).text());
      Reader reader("/a.tar");
      fs::Folder root("/");
      const std::optional<EntryView> entry = reader.next_header();
      ASSERT_TRUE(entry);
      EXPECT_EQ(refusal_of_component_item(root, *entry, Path(in_component("data/x")), Path(COMPONENT_FOLDER)),
                row.refusal)
          << row.type << " " << row.target;
    }
  }));
}

}  // namespace
}  // namespace harbix::test
