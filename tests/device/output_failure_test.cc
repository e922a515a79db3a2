#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"

namespace harbix::test {
namespace {

using testing::AnyOf;
using testing::HasSubstr;

class OutputFailure : public testing::Test {
 protected:
  OutputFailure() {
    for (int i = 0; i < 8; ++i) {
      device_.write(std::string(SHARED) + "/Music/f" + std::to_string(i), std::string(300000, 'x'));
    }
  }

  Device device_;
};

TEST_F(OutputFailure, IsReportedWhenTheArchiveCannotBeCreated) {
  for (const char* target : {"/missing/a.tar", "/accounts", "/proc/a.tar"}) {
    const Outcome outcome = device_.harbix({"-f", target, "media"});
    EXPECT_EQ(outcome.status, 2) << target;
    EXPECT_THAT(outcome.errors,
                testing::StartsWith("ERROR: Archive error: Failed to open '" + std::string(target) + "': "));
  }
}

TEST_F(OutputFailure, IsNeverASuccess) {
  struct Row {
    const char* script;
    const char* reason;
  };
  for (const Row& row : {
           Row{"harbix -f /dev/full media", "No space left on device"},
           Row{"mkdir -p /tmp/small; mount -t tmpfs -o size=1m none /tmp/small; harbix -f /tmp/small/a.tar "
               "media",
               "No space left on device"},
           Row{"ulimit -f 1000; harbix -f /tmp/a.tar media", "File too large"},
           Row{"harbix media | true; exit ${PIPESTATUS[0]}", "Broken pipe"},
           Row{"harbix media | head -c 5000 > /dev/null; exit ${PIPESTATUS[0]}", "Broken pipe"},
       }) {
    const Outcome outcome = device_.shell(row.script);
    EXPECT_EQ(outcome.status, 2) << row.script;
    EXPECT_THAT(outcome.errors,
                HasSubstr("ERROR: Archive error: Write error: " + std::string(row.reason) + "\n"))
        << row.script;
  }
}

TEST_F(OutputFailure, AtTheVeryEndIsNoSuccessEither) {
  ASSERT_EQ(device_.harbix({"-f", "/tmp/whole.tar", "media"}).status, 0);
  const auto size = std::filesystem::file_size(device_.outside("/tmp/whole.tar"));
  // A pipe that takes all but the last block; and a file limit just below the whole.
  const Outcome pipe = device_.shell("harbix media | head -c " + std::to_string(size - 70000) +
                                     " > /dev/null; exit ${PIPESTATUS[0]}");
  EXPECT_THAT(pipe.status, AnyOf(0, 2));  // how much fits into the pipe is not known
  const Outcome limited =
      device_.shell("ulimit -f " + std::to_string((size - 1024) / 1024) + "; harbix -f /tmp/cut.tar media");
  EXPECT_EQ(limited.status, 2);
  EXPECT_EQ(limited.errors, "ERROR: Archive error: Write error: File too large\n");
}

TEST_F(OutputFailure, OfAnEmptyShareIsReportedToo) {
  std::filesystem::remove_all(device_.outside(std::string(SHARED) + "/Music"));
  const Outcome outcome = device_.harbix({"-f", "/dev/full", "media"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.errors, "ERROR: Archive error: Write error: No space left on device\n");
}

TEST_F(OutputFailure, LeavesAKilledBackupsArchiveRecognisablyCut) {
  const Outcome outcome = device_.shell(
      "mkfifo /tmp/fifo; harbix -f /tmp/fifo media & exec 3< /tmp/fifo; head -c 1100000 <&3 > /tmp/a.tar; "
      "kill -9 $!; "
      "wait $!; echo $?; cat <&3 >> /tmp/a.tar; harbix -r -f /tmp/a.tar media; echo $?");
  EXPECT_EQ(outcome.output, "137\n1\n");
}

}  // namespace
}  // namespace harbix::test
