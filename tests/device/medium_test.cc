// A medium that fails only when what was written is to be on it, or when the second half of a file is read.

#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/application_device.h"
#include "tests/support/failing.h"

namespace harbix::test {
namespace {

using testing::HasSubstr;

class Medium : public testing::Test {
 protected:
  Medium() {
    device_.write(std::string(SHARED) + "/Music/song", std::string(SIZE, 's'));
    device_.install(loaded_application());
    device_.add_data(loaded_application(), "data/state", "state");
    device_.write("/base/scripts/backup_and_restore/settings/lists",
                  "#!/bin/sh\n[ $1 != whitelist ] || echo whitelist /accounts/1000/settings\n", 0755);
    device_.make_folder("/accounts/1000/settings", 0777);
    device_.write("/accounts/1000/settings/one", "1");
  }

  static constexpr std::size_t SIZE = std::size_t{1} << 20;

  ApplicationDevice device_;
};

TEST_F(Medium, ThatFailsAtTheEndOfARestoreGivesStatusTwo) {
  for (const std::string keyword : {"media", "settings", "app"}) {
    ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", keyword}).status, 0) << keyword;
    const std::string restore = "harbix -r -f /tmp/a.tar " + keyword;
    const Outcome whole = device_.shell(restore);
    ASSERT_EQ(whole.status, 0) << keyword << whole.errors;
    const Outcome outcome = device_.shell(while_failing("syncfs", "1", EIO) + restore);
    EXPECT_EQ(outcome.status, 2) << keyword;
    EXPECT_THAT(outcome.errors, testing::EndsWith("ERROR: What was restored may not be on the medium: "
                                                  "Input/output error\n"));
    EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR),
                testing::Contains("ERROR: What was restored may not be on the medium: Input/output error"));
  }
}

TEST_F(Medium, ThatFailsWithinAFileIsReportedAndTheRestIsZeros) {
  const std::string error = "Error: File 'Music/song' could not be read to its end: Input/output error\n";
  bool was_met = false;
  for (int nth = 1; nth < 60; ++nth) {
    const Outcome outcome =
        device_.shell(while_failing("read", std::to_string(nth), EIO) + "harbix -f /tmp/a.tar media");
    if (outcome.errors != error) continue;
    EXPECT_EQ(outcome.status, 0) << nth;
    EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), testing::ElementsAre(error.substr(7, error.size() - 8)));
    const std::string content = device_.content("/tmp/a.tar", "/media/Music/song");
    ASSERT_EQ(content.size(), SIZE) << nth;
    const std::size_t read = content.find('\0');
    if (read == 0 || read == std::string::npos) continue;
    was_met = true;
    EXPECT_EQ(content, std::string(read, 's') + std::string(SIZE - read, '\0')) << nth;
  }
  EXPECT_TRUE(was_met);
}

}  // namespace
}  // namespace harbix::test
