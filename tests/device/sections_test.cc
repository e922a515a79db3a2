// Which part of one archive each keyword restores.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/application_device.h"

namespace harbix::test {
namespace {

class ArchiveOfEverything : public testing::Test {
 protected:
  ArchiveOfEverything() {
    device_.install(loaded_);
    device_.make_data(loaded_);
    device_.add_data(loaded_, "data/state", "saved");
    device_.write(song(), "song");
  }

  static std::string song() { return std::string(SHARED) + "/Music/song"; }

  ApplicationDevice device_;
  InstalledApplication loaded_ = loaded_application();
};

TEST_F(ArchiveOfEverything, RestoresEverySelectionOfKeywordsWithStatusZero) {
  ASSERT_EQ(device_.harbix({"-f", "/tmp/all.tar", "app_media_settings"}).status, 0);
  for (const std::string keywords :
       {"app", "media", "settings", "app_media", "app_settings", "media_settings", "app_media_settings"}) {
    device_.add_data(loaded_, "data/state", "changed");
    device_.write(song(), "changed");
    const Outcome outcome = device_.harbix({"-r", "-f", "/tmp/all.tar", keywords});
    EXPECT_EQ(outcome.status, 0) << keywords << outcome.errors;
    const bool has_app = keywords.find("app") != std::string::npos;
    const bool has_media = keywords.find("media") != std::string::npos;
    EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), has_app ? "saved" : "changed") << keywords;
    EXPECT_EQ(device_.read(song()), has_media ? "song" : "changed") << keywords;
  }
}

}  // namespace
}  // namespace harbix::test
