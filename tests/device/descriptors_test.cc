// Descriptors, signals and limits as callers hand them down.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

using testing::Contains;
using testing::HasSubstr;

class CallersDescriptors : public testing::Test {
 protected:
  void add_script(const std::string& name, const std::string& body) {
    const std::string path = "/base/scripts/backup_and_restore/settings/" + name;
    device_.write(path, "#!/bin/sh\n" + body, 0755);
    device_.own(path, "root", "root");
  }

  Device device_;
};

TEST_F(CallersDescriptors, MayRunDryWithoutBlocking) {
  device_.write("/tmp/a.tar", TarBuilder().file("/media/M/a", std::string(100000, 'a')).text());
  const Outcome outcome = device_.shell(
      "python3 -c \"import os,subprocess,time\n"
      "r,w=os.pipe()\n"
      "os.set_blocking(r,False)\n"
      "p=subprocess.Popen(['harbix','-r','media'],stdin=r)\n"
      "d=open('/tmp/a.tar','rb').read()\n"
      "os.write(w,d[:50000]); time.sleep(0.5); os.write(w,d[50000:]); os.close(w)\n"
      "exit(p.wait())\"");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(device_.read(shared("M/a")), std::string(100000, 'a'));
}

TEST_F(CallersDescriptors, MayBeFullWithoutBlocking) {
  device_.write(shared("Music/song"), std::string(500000, 's'));
  const Outcome outcome = device_.shell(
      "python3 -c \"import os,subprocess,time\n"
      "r,w=os.pipe()\n"
      "os.set_blocking(w,False)\n"
      "p=subprocess.Popen(['harbix','media'],stdout=w)\n"
      "os.close(w); time.sleep(0.5)\n"
      "n=0\n"
      "while True:\n"
      "  d=os.read(r,65536)\n"
      "  if not d: break\n"
      "  n+=len(d)\n"
      "exit(p.wait() or n<500000)\"");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
}

TEST_F(CallersDescriptors, AreNotReadByScripts) {
  add_script("greedy", "cat >> /tmp/eaten\n");
  device_.write("/tmp/a.tar", TarBuilder().file("/settings/.backup.metadata", "Settings: 0\n\n").text());
  const Outcome backup = device_.shell(
      "printf '1\\n2\\n3\\n' | while read n; do echo $n; harbix -f /tmp/b.tar "
      "settings 2>/dev/null; done");
  EXPECT_EQ(backup.output, "1\n2\n3\n");
  const Outcome restore = device_.shell("harbix -r -f /dev/stdin settings < /tmp/a.tar");
  EXPECT_EQ(restore.status, 0) << restore.errors;
  EXPECT_EQ(device_.read("/tmp/eaten"), "");
}

TEST_F(CallersDescriptors, MayBeClosedPipesOfAUsageError) {
  const Outcome outcome = device_.shell("(sleep 0.3; exec harbix nothing) | true; exit ${PIPESTATUS[0]}");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), Contains("Keyword missing"));
}

TEST_F(CallersDescriptors, MayComeWithEndsOfProgramsIgnored) {
  add_script("script", "exit 0\n");
  device_.write("/tmp/a.tar", TarBuilder().file("/settings/.backup.metadata", "Settings: 0\n\n").text());
  const Outcome outcome = device_.shell(
      "exec python3 -c \"import os,signal\n"
      "signal.signal(signal.SIGCHLD,signal.SIG_IGN)\n"
      "os.execvp('harbix',['harbix','-d','5','-r','-f','/tmp/a.tar','settings'])\"");
  EXPECT_EQ(outcome.status, 0);
  for (const LogLine& line : device_.log())
    EXPECT_EQ(line.text.find("No child processes"), std::string::npos);
}

TEST_F(CallersDescriptors, AndSignalsAreAnsweredWithOneLine) {
  device_.write("/tmp/a.tar",
                TarBuilder().file("/media/M/.backup.metadata", "").file("/media/M/a", "1").text());
  const Outcome outcome = device_.shell(
      "mkfifo /tmp/fifo; harbix -r -f /tmp/fifo media & exec 3> /tmp/fifo; head -c 1500 /tmp/a.tar >&3; "
      "sleep 1; kill -USR1 $!; sleep 0.3; tail -c +1501 /tmp/a.tar >&3; exec 3>&-; wait $!");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.errors,
              testing::MatchesRegex("Progress: media: (/media/M: )?[0-9]+ items, [0-9]+ bytes\n"));
  EXPECT_EQ(device_.read(shared("M/a")), "1");
}

TEST_F(CallersDescriptors, AndSignalsThatEndSettingsWorkAreToldToSubscribers) {
  add_script("follower", "case $1 in *_start|*_end) echo $1 >> /tmp/seen;; esac\n");
  device_.write("/tmp/a.tar",
                TarBuilder().file("/settings/.backup.metadata", "Settings: 1\n\n").truncated_text());
  for (const char* const signal : {"TERM", "INT", "HUP"}) {
    const Outcome outcome = device_.shell(
        "rm -f /tmp/fifo /tmp/seen; mkfifo /tmp/fifo; set -m; harbix -r -f /tmp/fifo settings & exec 3> "
        "/tmp/fifo; "
        "cat /tmp/a.tar >&3; sleep 1; kill -" +
        std::string(signal) + " $!; wait $!; echo $?; sleep 0.5; cat /tmp/seen");
    const int number = signal == std::string("TERM") ? 15 : signal == std::string("INT") ? 2 : 1;
    EXPECT_EQ(outcome.output, std::to_string(128 + number) + "\nrestore_start\nrestore_end\n") << signal;
  }
}

// The sanitizers take terabytes of addresses.
#ifndef HARBIX_SANITIZED
TEST_F(CallersDescriptors, AndLackOfMemoryEndsARunWithStatusTwo) {
  for (int i = 0; i < 200; ++i)
    device_.write(shared("Music/" + std::string(200, 'n') + std::to_string(i)), "x");
  bool has_ended = false;
  int status = 1;
  for (int kib = 8000; kib < 100000 && status != 0; kib += 100) {
    const Outcome outcome =
        device_.shell("ulimit -v " + std::to_string(kib) + "; exec harbix -f /tmp/a.tar media");
    status = outcome.status;
    has_ended = has_ended || (status == 2 && outcome.errors == "ERROR: Out of memory\n");
    // Before the program has begun, the language's own start may end in an abort.
    if (status == 134 && outcome.errors == "terminate called without an active exception\n") continue;
    EXPECT_THAT(status, testing::AnyOf(0, 1, 2, 127)) << kib << outcome.errors;
  }
  EXPECT_TRUE(has_ended);
}
#endif

}  // namespace
}  // namespace harbix::test
