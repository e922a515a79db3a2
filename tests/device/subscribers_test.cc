#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"

namespace harbix::test {
namespace {

class Subscribers : public testing::Test {
 protected:
  void add_script(const std::string& path, const std::string& text) {
    device_.write(path, "#!/bin/bash\n" + text, 0755);
  }

  void add_witness(const std::string& path) { add_script(path, "echo \"$0 $*\" >> /tmp/events\n"); }

  std::string events() { return device_.exists("/tmp/events") ? device_.read("/tmp/events") : ""; }

  Device device_;
};

TEST_F(Subscribers, AreToldOfTheEventThatTheOptionsMean) {
  struct Row {
    std::vector<std::string> options;
    std::string event;
  };
  add_witness(std::string(SCRIPTS) + "/witness");
  for (const Row& row :
       {Row{{"-i"}, "backup_start"}, Row{{"-t"}, "backup_end"}, Row{{"-i", "-r"}, "restore_start"},
        Row{{"-t", "-r"}, "restore_end"}, Row{{"-r", "-s", "-i"}, "restore_start"}, Row{{"-s", "-i"}, ""},
        Row{{"-s", "-t"}, ""}, Row{{"-i", "-f", "/tmp/none.tar", "media"}, "backup_start"}}) {
    const Outcome outcome = device_.harbix(row.options);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output + outcome.errors, "");
    EXPECT_EQ(events(), row.event.empty() ? "" : std::string(SCRIPTS) + "/witness " + row.event + "\n")
        << testing::PrintToString(row.options);
    std::filesystem::remove(device_.outside("/tmp/events"));
  }
  EXPECT_FALSE(device_.exists("/tmp/none.tar"));
}

TEST_F(Subscribers, InFoldersAreNotRun) {
  add_witness(std::string(SCRIPTS) + "/settings/inner");
  add_witness(std::string(SCRIPTS) + "/outer");
  EXPECT_EQ(device_.harbix({"-i"}).status, 0);
  EXPECT_EQ(events(), std::string(SCRIPTS) + "/outer backup_start\n");
}

TEST_F(Subscribers, RunOneAfterTheOtherAtAStart) {
  add_script(std::string(SCRIPTS) + "/a", "sleep 0.3; echo a >> /tmp/events\n");
  add_script(std::string(SCRIPTS) + "/b", "echo b >> /tmp/events\n");
  const Outcome outcome = device_.shell("harbix -i; cat /tmp/events");
  EXPECT_EQ(outcome.output, "a\nb\n");
}

TEST_F(Subscribers, AreNotWaitedForAtAnEnd) {
  add_script(std::string(SCRIPTS) + "/a",
             "until [ -e /tmp/go ]; do sleep 0.05; done; echo a >> /tmp/events\n");
  const Outcome outcome = device_.shell("harbix -t; [ -e /tmp/events ]; echo $?; touch /tmp/go");
  EXPECT_EQ(outcome.output, "1\n");
  EXPECT_EQ(events(), "a\n");
}

TEST_F(Subscribers, AreNotHeard) {
  add_script(std::string(SCRIPTS) + "/loud", "echo out; echo error >&2; exit 3\n");
  const Outcome outcome = device_.harbix({"-i"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output + outcome.errors, "");
}

TEST_F(Subscribers, MayBeMissingAltogether) {
  std::filesystem::remove_all(device_.outside(SCRIPTS));
  EXPECT_EQ(device_.harbix({"-i"}).status, 0);
  EXPECT_EQ(device_.harbix({"-t", "-r"}).status, 0);
}

TEST_F(Subscribers, LeaveNoLineOfAnExitInTheLog) {
  ASSERT_EQ(device_.harbix({"-d", "2", "-i"}).status, 0);
  EXPECT_THAT(device_.logged(LOG_PRIORITY_NOTICE),
              testing::ElementsAre(testing::StartsWith("Debug level 2"), "Harbix running"));
}

TEST_F(Subscribers, FindTheUsualSignalsWhenTheyWrite) {
  // A script that ignored a closed pipe would fill its log with errors instead of ending.
  add_script(std::string(SCRIPTS) + "/piped",
             "trap > /tmp/traps; yes | head -1; echo ${PIPESTATUS[0]} > /tmp/events\n");
  ASSERT_EQ(device_.harbix({"-i"}).status, 0);
  EXPECT_EQ(events(), "141\n");
}

}  // namespace
}  // namespace harbix::test
