#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/installer/requests.h"
#include "tests/installer/running_device.h"

namespace harbix::test {
namespace {

using std::chrono::steady_clock;

constexpr const char* KILLED = "harbix-device: the service 'harbix-installer' was killed by signal 9\n";

class InstallerFault : public RunningDevice {
 protected:
  void SetUp() override {
    RunningDevice::SetUp();
    if (IsSkipped()) return;
    make_application("D", "P");
    ASSERT_EQ(exchange(REGISTER_D), ANSWER_D);
  }
};

TEST_F(InstallerFault, DelayMakesAnswersLate) {
  control("delay_ms:n:400\n");
  const auto start = steady_clock::now();
  EXPECT_EQ(exchange(QUERY_D), ANSWER_D);
  EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(400));
}

TEST_F(InstallerFault, RefuseAnswersAResultAloneAndDoesNothing) {
  control("refuse::uninstall\n");
  EXPECT_EQ(exchange("action::uninstall\npackage_id::P\n"), "result::1\n");
  EXPECT_EQ(exchange(QUERY_D), ANSWER_D);
  control("refuse::all\n");
  EXPECT_EQ(exchange(QUERY_D), "result::1\n");
  EXPECT_EQ(exchange("action::unregister\npackage_path::/apps/D\n"), "result::1\n");
  control("-refuse\n");
  EXPECT_EQ(exchange(QUERY_D), ANSWER_D);
}

TEST_F(InstallerFault, NoiseComesBeforeAnswersWhoseLastValuesCount) {
  control("noise:b:true\n");
  // A reader that the machine holds up sees both texts as one; then it is tried again.
  std::string answer;
  for (int i = 0; i < 100 && answer.find("progress::1\n") == std::string::npos; ++i) {
    answer = exchange(QUERY_D);
    const auto values = values_of(answer);
    EXPECT_EQ(values.at("actual_gid"), "10000");
    EXPECT_EQ(values.at("actual_extras"), "source::shopvale");
    EXPECT_EQ(values.at("progress"), "100");
  }
  EXPECT_EQ(answer,
            "-action\nprogress::1\nactual_gid::not yet: 10000\nactual_dname::not yet: D\n"
            "actual_extras::not yet: source::shopvale\nempty::\ncolons::a::b:c\n"
            "progress::100\n" +
                ANSWER_D);
}

TEST_F(InstallerFault, NoiseIsInOneTextWithTheAnswerForALateReader) {
  control("noise::1\n");
  const std::string answer = inside([] {
    const Exchange late(QUERY_D);
    const auto text = [&] { return read_text(open_object(late.path(), O_RDONLY)); };
    while (text().find("\nresult:") == std::string::npos) ::usleep(5000);
    return late.answer();
  });
  EXPECT_EQ(answer,
            "-action\nprogress::100\nactual_gid::10000\nactual_dname::D\n"
            "actual_extras::source::shopvale\nempty::\ncolons::a::b:c\nresult::0\n");
}

TEST_F(InstallerFault, OmitLeavesAnAttributeOut) {
  control("omit::actual_extras\n");
  EXPECT_EQ(exchange(QUERY_D), "actual_gid::10000\nactual_dname::D\nresult::0\n");
}

TEST_F(InstallerFault, OmittedResultEndsTheStreamWithTheObject) {
  control("omit::result\n");
  EXPECT_EQ(inside([] {
              const Exchange request(QUERY_D);
              const std::string answer = request.answer();
              struct stat status = {};
              return answer + (::lstat(request.path().c_str(), &status) == -1 ? "gone" : "still there");
            }),
            "actual_gid::10000\nactual_dname::D\nactual_extras::source::shopvale\n(end)\ngone");
  // Also when nothing is left to be answered.
  control("refuse::all\n");
  EXPECT_EQ(exchange(QUERY_D), "(end)\n");
}

TEST_F(InstallerFault, DieKillsTheServiceOnceAndTheNextOneAnswers) {
  control("die::query\n");
  EXPECT_EQ(exchange("action::dance\n"), "error::the action 'dance' is not known\nresult::1\n");
  EXPECT_EQ(exchange(QUERY_D), ANSWER_D);
  EXPECT_EQ(exchange(QUERY_D), ANSWER_D);
  EXPECT_EQ(shell("cat /pps/system/installer/control /pps/system/installer/status"),
            "@control\n@status\n[n]starts:n:2\n");
  expect_errors(KILLED);
}

TEST_F(InstallerFault, DieLeavesAnUninstallationToTheNextOne) {
  control("die::all\n");
  EXPECT_EQ(exchange("action::uninstall\npackage_id::P\n"), "result::0\n");
  EXPECT_EQ(shell("ls /apps /accounts/1000/appdata"), "/accounts/1000/appdata:\n\n/apps:\n");
  expect_errors(KILLED);
}

TEST_F(InstallerFault, AServiceThatIsKilledWhileClientsWaitIsReplaced) {
  // Stopped, so that the request stands when it is killed.
  EXPECT_EQ(shell("kill -STOP $(pgrep harbix-inst)"), "");
  const auto client = beside([] {
    if (exchange_here(QUERY_D) != ANSWER_D) throw std::runtime_error("another answer");
  });
  client->wait_until_asleep();
  ::usleep(50000);
  EXPECT_EQ(shell("kill -KILL $(pgrep harbix-inst)"), "");
  EXPECT_EQ(client->wait(), 0);
  expect_errors(KILLED);
}

}  // namespace
}  // namespace harbix::test
