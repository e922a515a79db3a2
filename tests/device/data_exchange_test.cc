// The data of an application takes its place where the file system cannot exchange two names in one step.

#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/application_device.h"
#include "tests/support/crafted_package.h"
#include "tests/support/failing.h"

namespace harbix::test {
namespace {

using testing::HasSubstr;

class DataExchange : public testing::Test {
 protected:
  DataExchange() {
    device_.install(application_);
    device_.add_data(application_, "data/state", "old");
    device_.write("/tmp/a.tar", archive_of({CraftedPackage::data("side.app")
                                                .folder("data")
                                                .file("data/state", "new")
                                                .file("data/other", "new")}));
    // Nothing for this application.
    device_.write("/tmp/other.tar", archive_of({CraftedPackage::data("absent.app").file("data/a", "1")}));
  }

  /// Restores where two names cannot be exchanged.
  Outcome restore(const std::string& more = "", int error = EINVAL) {
    return device_.shell(while_failing("renameat2", "1+", error, more) + "harbix -r -f /tmp/a.tar app");
  }

  /// What lies in the folder of all data, by `find`; nothing of a restore may stay there.
  std::string files() { return device_.shell("cd /accounts/1000/appdata; find . -type f | sort").output; }

  ApplicationDevice device_;
  InstalledApplication application_ = loaded_application();
};

TEST_F(DataExchange, ReplacesTheOldDataInTwoSteps) {
  for (const int error : {EINVAL, ENOSYS}) {
    device_.add_data(application_, "data/gone", "old");
    const Outcome outcome = restore("", error);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(device_.read(application_.data() + "/data/state"), "new") << error;
    EXPECT_EQ(files(), "./side.app/data/other\n./side.app/data/state\n") << error;
  }
}

TEST_F(DataExchange, GoesOnAtTheNextStartAfterAnInterruption) {
  const Outcome outcome = restore(with_act("renamed", "/.harbix-old", "kill -9 $PPID"));
  EXPECT_EQ(outcome.status, 128 + 9);
  EXPECT_FALSE(device_.exists(application_.data()));
  EXPECT_THAT(files(), HasSubstr("/side.app/data/other\n"));
  device_.harbix({"-r", "-f", "/tmp/other.tar", "app"});
  EXPECT_THAT(device_.logged(LOG_PRIORITY_WARNING),
              testing::Contains(testing::MatchesRegex(".*'/accounts/1000/appdata/side.app' was taken from "
                                                      "'.harbix-data-[0-9]+-0/side.app'")));
  EXPECT_EQ(files(), "./side.app/data/other\n./side.app/data/state\n");
  EXPECT_EQ(device_.read(application_.data() + "/data/state"), "new");
}

TEST_F(DataExchange, KeepsTheNewDataThatIsInPlaceAtTheNextStart) {
  const Outcome outcome = restore(with_act("renamed", "appdata/side.app", "kill -9 $PPID"));
  EXPECT_EQ(outcome.status, 128 + 9);
  device_.harbix({"-r", "-f", "/tmp/other.tar", "app"});
  EXPECT_EQ(files(), "./side.app/data/other\n./side.app/data/state\n");
}

TEST_F(DataExchange, TakesAwayWhatAProgramPutInThePlace) {
  const std::string data = application_.data() + "/data";
  const Outcome outcome =
      restore(with_act("renamed", "/.harbix-old", "mkdir -p " + data + "; echo 1 > " + data + "/late"));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("Error: Rename '/accounts/1000/appdata/.harbix-data-"));
  EXPECT_EQ(files(), "./side.app/data/other\n./side.app/data/state\n");
}

TEST_F(DataExchange, LeavesBothWhereNeitherGetsThePlace) {
  // The first rename is that of the old data.
  const std::string program = "harbix -r -f /tmp/a.tar app";
  Outcome outcome = device_.shell(
      "cd /accounts/1000/appdata; mkdir -p .harbix-data-7-0/side.app/data; echo new > "
      ".harbix-data-7-0/side.app/data/state; mv side.app .harbix-data-7-0/.harbix-old");
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  outcome = device_.shell(while_failing("renameat", "1+", EIO) + program);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors,
            "Error: The data for '/accounts/1000/appdata/side.app' stays in "
            "'/accounts/1000/appdata/.harbix-data-7-0' [errno:5 'Input/output error']\n");
  EXPECT_EQ(files(), "./.harbix-data-7-0/.harbix-old/data/state\n./.harbix-data-7-0/side.app/data/state\n");
  outcome = device_.shell(while_failing("renameat", "1", EIO) + "harbix -r -f /tmp/other.tar app");
  EXPECT_EQ(files(), "./side.app/data/state\n");
  EXPECT_EQ(device_.read(application_.data() + "/data/state"), "old");
}

}  // namespace
}  // namespace harbix::test
