// What becomes of the file that an archive or a size report is written to.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"

namespace harbix::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

class OutputReplacement : public testing::Test {
 protected:
  OutputReplacement() { device_.write(std::string(SHARED) + "/Music/song", std::string(300000, 's')); }

  Device device_;
};

TEST_F(OutputReplacement, KeepsYesterdaysArchiveWhenNothingCouldBeBackedUp) {
  device_.write("/tmp/a.tar", "yesterday");
  const Outcome outcome = device_.harbix({"-f", "/tmp/a.tar", "app", "mistyped.id"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(device_.read("/tmp/a.tar"), "yesterday");
}

TEST_F(OutputReplacement, MakesNoFileWhenNothingCouldBeBackedUp) {
  EXPECT_EQ(device_.harbix({"-f", "/tmp/a.tar", "app", "mistyped.id"}).status, 1);
  EXPECT_FALSE(device_.exists("/tmp/a.tar"));
  const Outcome piped = device_.harbix({"app", "mistyped.id"});
  EXPECT_EQ(piped.status, 1);
  EXPECT_EQ(piped.output, "");
}

TEST_F(OutputReplacement, LeavesNothingOfALongerPredecessor) {
  device_.write("/tmp/a.tar", std::string(std::size_t{1} << 20, 'y'));
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "media"}).status, 0);
  ASSERT_EQ(device_.harbix({"-f", "/tmp/b.tar", "media"}).status, 0);
  EXPECT_EQ(device_.read("/tmp/a.tar").size(), device_.read("/tmp/b.tar").size());
  EXPECT_EQ(device_.shell("tar -Ptf /tmp/a.tar").status, 0);
}

TEST_F(OutputReplacement, IsOnTheMediumBeforeSuccessIsReported) {
  // The file first, and then its entry in the folder: a medium may fail to write either.
  for (const char* nth : {"1", "2"}) {
    const Outcome outcome = device_.shell(
        "export ASAN_OPTIONS=verify_asan_link_order=0 HARBIX_FAIL_CALL=fsync HARBIX_FAIL_ERRNO=5 "
        "HARBIX_FAIL_NTH=" +
        std::string(nth) +
        "; LD_PRELOAD=/opt/harbix/bin/tests/libfailing_calls.so exec harbix -f /tmp/a.tar media");
    EXPECT_EQ(outcome.status, 2) << nth;
    EXPECT_THAT(outcome.errors, HasSubstr("Input/output error")) << nth;
  }
}

TEST_F(OutputReplacement, WritesASizeReportBehindWhatACallersLogHolds) {
  const Outcome outcome = device_.shell("echo before > /tmp/log; harbix -s media >> /tmp/log; cat /tmp/log");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, testing::StartsWith("before\nbytesize="));
}

TEST_F(OutputReplacement, WritesASizeReportToASocket) {
  const Outcome outcome = device_.shell(
      "python3 -c \"import socket,subprocess\n"
      "a,b=socket.socketpair()\n"
      "subprocess.run(['harbix','-s','media'],stdout=b); b.close()\n"
      "print(a.recv(100).decode(),end='')\"");
  EXPECT_THAT(outcome.output, testing::StartsWith("bytesize="));
}

}  // namespace
}  // namespace harbix::test
