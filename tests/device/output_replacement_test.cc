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
  const Outcome outcome =
      device_.shell("strace -f -e trace=fsync,close,exit_group -o /tmp/calls harbix -f /tmp/a.tar media");
  if (outcome.status == 127) GTEST_SKIP() << "no strace";
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_THAT(device_.read("/tmp/calls"), HasSubstr("fsync("));
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
