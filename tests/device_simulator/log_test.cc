#include <unistd.h>

#include <algorithm>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device_process.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using testing::HasSubstr;

class DeviceLog : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_ROOT(); }

  /// Runs `script` on a device and returns what came into the log.
  std::string log_of(const std::string& script) {
    const Outcome result = run_device({"--bare", "--log", log_, "sh", "-c", script});
    EXPECT_EQ(result.status, 0) << result.errors;
    return read_file(log_);
  }

  TemporaryFolder folder_;
  std::string log_ = folder_ / "log";
};

TEST_F(DeviceLog, KeepsThePriorityOfEachMessage) {
  EXPECT_THAT(
      log_of("logger -u /dev/log -t harbix -p user.err one; logger -u /dev/log -t harbix -p user.debug two"),
      testing::MatchesRegex("<11>[^\n]* harbix: one\n<15>[^\n]* harbix: two\n"));
}

TEST_F(DeviceLog, HasWhatWasSentJustBeforeTheEnd) {
  EXPECT_THAT(log_of("exec logger -u /dev/log last words"), HasSubstr("last words\n"));
  EXPECT_THAT(log_of("(sleep 0.2; exec logger -u /dev/log from behind) > /dev/null 2>&1 &"),
              HasSubstr("from behind\n"));
}

TEST_F(DeviceLog, LosesNothingOfMany) {
  const std::string text = log_of("seq 3000 | logger -u /dev/log");
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3000);
  EXPECT_THAT(text, testing::EndsWith(": 3000\n"));
}

TEST_F(DeviceLog, TakesLongMessagesWhole) {
  const std::string word(8192, 'x');
  EXPECT_THAT(log_of("logger -u /dev/log -S 16384 " + word + "y"), HasSubstr(" " + word + "y\n"));
}

TEST_F(DeviceLog, IsOpenToEverybody) {
  EXPECT_THAT(log_of("setpriv --reuid nobody --regid nogroup --clear-groups logger -u /dev/log hello"),
              HasSubstr("hello\n"));
}

TEST_F(DeviceLog, IsEmptiedAtTheStart) {
  write_file(log_, "old\n");
  EXPECT_EQ(log_of("true"), "");
}

TEST_F(DeviceLog, IsRelativeToTheCallersFolder) {
  const Outcome result =
      run_on_host("cd \"$folder\" && \"$device\" --bare --log here.log logger -u /dev/log hi", folder_ / "");
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_THAT(read_file(folder_ / "here.log"), HasSubstr("hi\n"));
}

TEST_F(DeviceLog, GoesToTheDeviceWithoutTheOption) {
  const std::string state = folder_ / "state";
  for (const char* word : {"first", "second"}) {
    EXPECT_EQ(run_device({"--bare", "--state", state, "logger", "-u", "/dev/log", word}).status, 0);
  }
  EXPECT_THAT(read_file(state + "/var/log/messages"), testing::ContainsRegex("first\n.*second\n"));
}

TEST_F(DeviceLog, ReportsThatItCannotBeWritten) {
  const Outcome result = run_device(
      {"--bare", "--log", "/dev/full", "sh", "-c", "logger -u /dev/log one; logger -u /dev/log two; exit 4"});
  EXPECT_EQ(result.status, 4);
  EXPECT_EQ(result.errors, "harbix-device: cannot write the log file: No space left on device\n");
}

}  // namespace
}  // namespace harbix::test
