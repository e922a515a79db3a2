#include "app/home_screen_programs.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <string>
#include <vector>

#include "tests/app/app_device.h"
#include "tests/support/captured_output.h"
#include "tests/support/recorded_log.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using Texts = std::vector<std::string>;

void put_program(const std::string& path, const std::string& commands) {
  put(path, "#!/bin/sh\n" + commands);
  ASSERT_EQ(::chmod(path.c_str(), 0755), 0) << errno;
}

class HomeScreenPrograms : public AppDevice {};

TEST_F(HomeScreenPrograms, RunOneAfterTheOther) {
  EXPECT_TRUE(on_the_device([] {
    put_program("/base/bin/slay", "sleep 0.05; echo \"$0 $*\" >> /events");
    put_program("/base/bin/sh", "echo \"$0 $*\" >> /events");
    const RecordedLog log;
    const CapturedOutput errors(STDERR_FILENO);
    harbix::stop_home_screen();
    EXPECT_EQ(read_file("/events"),
              "/base/bin/slay -f navigator\n/base/bin/sh /base/scripts/startup.sh launcher stop\n");
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(log.messages(), Texts{});
  }));
}

TEST_F(HomeScreenPrograms, PrintToStandardErrorAndLeaveTheOutputAlone) {
  EXPECT_TRUE(on_the_device([] {
    put_program("/base/bin/slay", "echo slain; echo complaint >&2");
    put_program("/base/bin/sh", "echo stopped");
    const CapturedOutput output(STDOUT_FILENO);
    const CapturedOutput errors(STDERR_FILENO);
    std::cout << "before\n";
    harbix::stop_home_screen();
    std::cout << "after\n";
    EXPECT_EQ(errors.text(), "slain\ncomplaint\nstopped\n");
    EXPECT_EQ(output.text(), "before\nafter\n");
  }));
}

TEST_F(HomeScreenPrograms, MayFailTheirOwnWay) {
  EXPECT_TRUE(on_the_device([] {
    put_program("/base/bin/slay", "exit 1");
    put_program("/base/bin/sh", "kill -9 $$");
    const RecordedLog log;
    const CapturedOutput errors(STDERR_FILENO);
    harbix::stop_home_screen();
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(log.messages(), Texts{});
  }));
}

TEST_F(HomeScreenPrograms, ThatCannotBeStartedAreToldOf) {
  EXPECT_TRUE(on_the_device([] {
    put("/base/bin/slay", "no program");
    const RecordedLog log;
    const CapturedOutput errors(STDERR_FILENO);
    harbix::stop_home_screen();
    EXPECT_EQ(errors.text(),
              "Error slaying navigator Permission denied\n"
              "Error executing /base/bin/sh launcher stop ('No such file or directory')\n");
    EXPECT_EQ(log.messages(), (Texts{"3 Could not kill navigator", "3 Could not stop launcher"}));
  }));
}

}  // namespace
}  // namespace harbix::test
