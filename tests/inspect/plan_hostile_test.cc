#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/inspect/plan_fixture.h"
#include "tests/support/hostile_archives.h"

namespace harbix::test {
namespace {

/// The archives that the tests of the restore hold against what may be changed on a device.
class PlanOfHostile : public PlanOfCrafted {
 protected:
  PlanOfHostile() {
    const uid_t apps = device_.user("apps");
    device_.make_owned_link("/apps/a/there", "/tmp/victim", apps, a_.group);
    device_.write_owned("/apps/file", "a file", 0640, apps, 0);
    device_.make_owned_link("/apps/link", "/tmp/victim", apps, a_.group);
    device_.make_owned_link(a_.data() + "/data/there", "/tmp/victim", a_.data_user(), a_.group);
    device_.link(shared("TopLink"), "/tmp/victim");
    device_.link(DTM + std::string("/link"), "/tmp/victim");
  }

  void expect_agreement_on_all(const std::vector<hostile::Archive>& archives, const std::string& keyword) {
    for (const hostile::Archive& each : archives) {
      SCOPED_TRACE(each.what);
      device_.write("/tmp/a.tar", each.bytes);
      const Outcome outcome = device_.shell("harbix-inspect plan /tmp/a.tar " + keyword);
      if (outcome.status < 2) {
        expect_agreement(device_, keyword);
      } else {
        const std::string reason = behind(outcome.errors, "harbix-inspect: ");
        EXPECT_NE(reason, "");
        EXPECT_THAT(restore(device_, keyword), ::testing::EndsWith("ERROR: " + reason));
        EXPECT_EQ(status_, 2);
      }
    }
  }
};

TEST_F(PlanOfHostile, AgreesOnApplications) {
  expect_agreement_on_all(hostile::application_archives(), "app");
}

TEST_F(PlanOfHostile, AgreesOnMedia) { expect_agreement_on_all(hostile::media_archives(), "media"); }

TEST_F(PlanOfHostile, AgreesOnApplicationsWithFlippedBits) {
  takes_pictures_ = false;
  expect_agreement_on_all(hostile::flipped_archives(hostile::good_application_archive(), 40), "app");
}

TEST_F(PlanOfHostile, AgreesOnMediaWithFlippedBits) {
  takes_pictures_ = false;
  expect_agreement_on_all(hostile::flipped_archives(hostile::good_media_archive(), 60), "media");
}

}  // namespace
}  // namespace harbix::test
