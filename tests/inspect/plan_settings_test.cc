#include <string>

#include "tests/inspect/plan_fixture.h"

namespace harbix::test {
namespace {

TEST_F(PlanOfCrafted, AgreesOnHostileSettings) {
  TarBuilder tar;
  tar.file("/settings/.backup.metadata", "\n");
  const std::string base = "/settings/accounts/1000/settings/";
  add_hostile([&](char type, const std::string& name, const std::string& target) {
    tar.add(type, base + name, "", 0660, target);
  });
  tar.file(base + "there", "new")
      .file(base + "link/evil", "evil")
      .file(base + "link", "evil")
      .folder(base + "folder");
  tar.file("/settings/etc/passwd", "evil").file("/settingsx/evil", "evil").file(base + "x/./y", "evil");
  tar.link(base + "beside", "there").link(base + "beside", "there").folder(base + "new").folder(base + "new");
  tar.file("/settings/pps/system/unknown", "a::b\n");
  tar.owner(device_.user("media")).file(base + "mine", "new").file(base + "new/mine", "new");
  expect_agreement_on(tar.text(), "settings");
}

}  // namespace
}  // namespace harbix::test
