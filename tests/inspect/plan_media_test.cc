#include <string>

#include <gmock/gmock.h>

#include "tests/inspect/plan_fixture.h"

namespace harbix::test {
namespace {

using ::testing::ElementsAre;

TEST_F(PlanOfCrafted, AgreesOnHostileMedia) {
  TarBuilder tar;
  tar.file("/media/M/.backup.metadata", "\n");
  add_hostile([&](char type, const std::string& name, const std::string& target) {
    tar.add(type, "/media/M/" + name, "", 0660, target);
    tar.add(type, "/dtm/D/" + name, "", 0660, target);
  });
  tar.folder("/media/Old").file("/media/Old/photo", "new").file("/media/Old/out/evil", "evil");
  tar.file("/media/.hidden/photo", "new")
      .file("/media/Kept/protected", "new")
      .file("/media/Kept/locked/photo", "new");
  tar.file("/media/Kept/locked/other", "new").folder("/media/Kept/locked").file("/media/Kept", "new");
  tar.file("/media/bookmarks/mark", "new")
      .file("/media/bookmarks/deep/mark", "new")
      .file("/media//twice", "1");
  tar.file("/media/./twice", "2").file("/media/..", "evil").file("/dtm../../evil", "evil");
  const Foreseen all = expect_agreement_on(tar.text(), "media");
  EXPECT_EQ(all.removed.at(shared("Old")), 2U);
  EXPECT_FALSE(all.removed.contains(shared(".hidden")));
  EXPECT_TRUE(all.left_out.contains(shared("Kept/protected")));
}

TEST_F(PlanOfCrafted, AgreesOnMediaOfADamagedFile) {
  TarBuilder tar;
  tar.file("/media/Old/.backup.metadata", "\n")
      .file("/media/Old/photo", "new")
      .file("/media/Old/other", "new");
  const Foreseen all = expect_agreement_on(tar.truncated_text(), "media");
  EXPECT_TRUE(all.removed.empty());
  EXPECT_THAT(all.left_out, ElementsAre(shared("Old/photo")));
  EXPECT_THAT(all.troubles, ElementsAre("Could not read next archive header"));
}

}  // namespace
}  // namespace harbix::test
