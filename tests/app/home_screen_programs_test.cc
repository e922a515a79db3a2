#include "app/home_screen_programs.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <string>
#include <vector>

#include "app/app_device.h"
#include "support/captured_output.h"
#include "support/recorded_log.h"
#include "support/tree.h"

namespace {

using Texts = std::vector<std::string>;

void put_program(const std::string& path, const std::string& commands) {
  test::put(path, "#!/bin/sh\n" + commands);
  ASSERT_EQ(0, ::chmod(path.c_str(), 0755)) << errno;
}

class HomeScreenPrograms : public test::AppDevice {};

TEST_F(HomeScreenPrograms, RunOneAfterTheOther) {
  EXPECT_TRUE(on_the_device([] {
    put_program("/base/bin/slay", "sleep 0.05; echo \"$0 $*\" >> /events");
    put_program("/base/bin/sh", "echo \"$0 $*\" >> /events");
    const test::RecordedLog log;
    const test::CapturedOutput errors(STDERR_FILENO);
    harbix::stop_home_screen();
    EXPECT_EQ("/base/bin/slay -f navigator\n/base/bin/sh /base/scripts/startup.sh launcher stop\n",
              test::read_file("/events"));
    EXPECT_EQ("", errors.text());
    EXPECT_EQ(Texts{}, log.messages());
  }));
}

TEST_F(HomeScreenPrograms, PrintToStandardErrorAndLeaveTheOutputAlone) {
  EXPECT_TRUE(on_the_device([] {
    put_program("/base/bin/slay", "echo slain; echo complaint >&2");
    put_program("/base/bin/sh", "echo stopped");
    const test::CapturedOutput output(STDOUT_FILENO);
    const test::CapturedOutput errors(STDERR_FILENO);
    std::cout << "before\n";
    harbix::stop_home_screen();
    std::cout << "after\n";
    EXPECT_EQ("slain\ncomplaint\nstopped\n", errors.text());
    EXPECT_EQ("before\nafter\n", output.text());
  }));
}

TEST_F(HomeScreenPrograms, MayFailTheirOwnWay) {
  EXPECT_TRUE(on_the_device([] {
    put_program("/base/bin/slay", "exit 1");
    put_program("/base/bin/sh", "kill -9 $$");
    const test::RecordedLog log;
    const test::CapturedOutput errors(STDERR_FILENO);
    harbix::stop_home_screen();
    EXPECT_EQ("", errors.text());
    EXPECT_EQ(Texts{}, log.messages());
  }));
}

TEST_F(HomeScreenPrograms, ThatCannotBeStartedAreToldOf) {
  EXPECT_TRUE(on_the_device([] {
    test::put("/base/bin/slay", "no program");
    const test::RecordedLog log;
    const test::CapturedOutput errors(STDERR_FILENO);
    harbix::stop_home_screen();
    EXPECT_EQ(
        "Error slaying navigator Permission denied\n"
        "Error executing /base/bin/sh launcher stop ('No such file or directory')\n",
        errors.text());
    EXPECT_EQ((Texts{"3 Could not kill navigator", "3 Could not stop launcher"}), log.messages());
  }));
}

}  // namespace
