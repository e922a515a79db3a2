// Backups that ask disks for files ahead of their turn: the same archives, messages and statuses as without.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"

namespace harbix::test {
namespace {

constexpr int FILES = 40;

class ReadAheadBackup : public testing::Test {
 protected:
  ReadAheadBackup() { fill(); }

  void fill() {
    for (int i = 0; i < FILES; ++i)
      device_.write(shared("Music/f" + std::to_string(i)), "contents " + std::to_string(i));
  }

  /// What a shell needs in front of a backup that waits for disks all the time.
  static std::string cold() { return "export HARBIX_COLD=1; " + preloaded(); }
  static std::string preloaded() {
    return "export ASAN_OPTIONS=verify_asan_link_order=0 "
           "LD_PRELOAD=/opt/harbix/bin/tests/libfailing_calls.so; ";
  }
  /// The same while another program runs `command` when the file "f7" has been announced.
  static std::string cold_while(const std::string& command) {
    return "export HARBIX_ACT_AT=announced HARBIX_ACT_PATH=/Music/f7 HARBIX_ACT_NTH=1 "
           "HARBIX_ACT_COMMAND='cd " +
           shared("Music") + " && " + command + " && touch /tmp/acted'; " + cold();
  }

  Device device_;
};

TEST_F(ReadAheadBackup, JudgesAFileThatChangesAfterwardsWhenItsTurnComes) {
  struct Row {
    const char* command;
    const char* errors;
    const char* contents;  ///< in the archive; "" also for none
  };
  const std::string failed = "Error: Error opening: Music/f7: ";
  for (const Row& row :
       {Row{"rm f7", "No such file or directory\n", ""},
        Row{"mv f7 ../f7 && ln -s ../f7 f7", "another object took its place\n", ""},
        Row{"mv f7 ../f7 && mkfifo f7", "not a file, folder or link\n", ""},
        Row{"mv f7 ../f7 && mkdir f7", "another object took its place\n", ""},
        Row{"mv f7 ../f7 && echo other > f7", "another object took its place\n", ""},
        Row{"echo \" and more\" >> f7", "", "contents 7 and more\n"}, Row{": > f7", "", ""}}) {
    device_.shell("rm -rf /tmp/acted " + shared("Music") + " " + shared("f7"));
    fill();
    const Outcome outcome = device_.shell(cold_while(row.command) + "exec harbix -f /tmp/a.tar media");
    EXPECT_TRUE(device_.exists("/tmp/acted")) << row.command;
    EXPECT_EQ(outcome.status, 0) << row.command;
    EXPECT_EQ(outcome.errors, std::string(row.errors).empty() ? "" : failed + row.errors) << row.command;
    EXPECT_EQ(device_.shell("tar -Ptf /tmp/a.tar | grep -c 'Music/f[0-9]'").output,
              (std::string(row.errors).empty() ? "40\n" : "39\n"))
        << row.command;
    EXPECT_EQ(device_.shell("tar -PxOf /tmp/a.tar /media/Music/f7 2>/dev/null").output, row.contents)
        << row.command;
    EXPECT_EQ(device_.shell("tar -PxOf /tmp/a.tar /media/Music/f8").output, "contents 8") << row.command;
  }
}

TEST_F(ReadAheadBackup, ReportsADiskThatFailsWhenTheFilesTurnComes) {
  // Input/output error, too many open files, connection timed out.
  for (const char* const error : {"5", "24", "110"}) {
    const std::string failing =
        "export HARBIX_FAIL_CALL=openat HARBIX_FAIL_PATH=/Music/f7 HARBIX_FAIL_ERRNO=" + std::string(error) +
        "; ";
    const std::string backup = "exec harbix -f /tmp/a.tar media";
    const Outcome announced = device_.shell(failing + "export HARBIX_FAIL_NTH=1; " + cold() + backup);
    EXPECT_EQ(announced.status, 0) << error;
    EXPECT_EQ(announced.errors, "") << error;
    EXPECT_EQ(device_.shell("tar -Ptf /tmp/a.tar | grep -c 'Music/f[0-9]'").output, "40\n") << error;
    const Outcome taken = device_.shell(failing + "export HARBIX_FAIL_NTH=2; " + cold() + backup);
    const Outcome plain = device_.shell(failing + "export HARBIX_FAIL_NTH=1; " + preloaded() + backup);
    EXPECT_NE(plain.errors, "") << error;
    EXPECT_EQ(taken.errors, plain.errors) << error;
    EXPECT_EQ(taken.status, plain.status) << error;
  }
}

TEST_F(ReadAheadBackup, NeedsNoMoreDescriptorsThanWithout) {
  for (const std::string& before : {std::string(), cold()}) {
    int count = 4;
    while (count < 40 &&
           device_.shell(before + "ulimit -n " + std::to_string(count) + "; exec harbix -f /tmp/a.tar media")
                   .status != 0) {
      ++count;
    }
    EXPECT_LE(count, 16) << before;
    EXPECT_EQ(device_.shell("tar -Ptf /tmp/a.tar | grep -c 'Music/f[0-9]'").output, "40\n") << before;
  }
}

}  // namespace
}  // namespace harbix::test
