#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/installer/requests.h"
#include "tests/installer/running_device.h"

namespace harbix::test {
namespace {

using testing::StartsWith;

class InstallerExchange : public RunningDevice {};

TEST_F(InstallerExchange, RegistersAnswersAndListsAnApplication) {
  EXPECT_EQ(shell(LIST), "@.all\n");
  make_application("D", "P");
  EXPECT_EQ(exchange(QUERY_D), "error::'D' is not registered\nresult::1\n");
  EXPECT_EQ(exchange(REGISTER_D), ANSWER_D);
  EXPECT_EQ(exchange(QUERY_D), ANSWER_D);
  EXPECT_EQ(shell(LIST), "@.all\nD::P,1.0.0.1,source::shopvale\n");
  EXPECT_EQ(shell("cd /accounts/1000/appdata; stat -c '%u %g %a %n' D D/*"),
            "10089 10000 770 D\n100001000 10000 770 D/data\n100001000 10000 770 D/logs\n"
            "100001000 10000 770 D/tmp\n");
}

TEST_F(InstallerExchange, UninstallsAPackageWhole) {
  make_application("D", "P");
  make_application("E", "Q");
  EXPECT_EQ(exchange(REGISTER_D), ANSWER_D);
  EXPECT_THAT(exchange("action::register\npackage_path::/apps/E\nextras::\ngid::\n"),
              StartsWith("actual_gid::10004\n"));
  std::filesystem::create_directories(outside("/accounts/1000/appdata/D/data/deep/er"));
  EXPECT_EQ(exchange("action::uninstall\npackage_id::P\n"), "result::0\n");
  EXPECT_EQ(shell("ls /apps /accounts/1000/appdata"), "/accounts/1000/appdata:\nE\n\n/apps:\nE\n");
  EXPECT_EQ(shell(LIST), "@.all\nE::Q,1.0.0.1,\n");
  EXPECT_EQ(exchange("action::uninstall\npackage_id::P\n"),
            "error::no package 'P' is registered\nresult::1\n");
}

TEST_F(InstallerExchange, UnregistersAndLeavesTheFolders) {
  make_application("D", "P");
  EXPECT_EQ(exchange(REGISTER_D), ANSWER_D);
  EXPECT_EQ(exchange("action::unregister\npackage_path::/apps/D\n"), "result::0\n");
  EXPECT_EQ(shell(LIST), "@.all\n");
  EXPECT_EQ(shell("ls /apps/D /accounts/1000/appdata/D"),
            "/accounts/1000/appdata/D:\ndata\nlogs\ntmp\n\n/apps/D:\nMETA-INF\n");
}

TEST_F(InstallerExchange, GivesNoGroupThatTheDeviceUses) {
  // 10001 to 10003 are groups of the shared folders and the system.
  for (const std::string gid : {"10001", "10002", "10089", "12", "x", ""}) {
    make_application("D" + gid, "P" + gid);
    const std::string answer = exchange(enrollment("D" + gid, "", gid));
    EXPECT_EQ(shell("getent group " + values_of(answer)["actual_gid"]), "") << answer;
    EXPECT_EQ(values_of(answer)["result"], "0") << answer;
  }
}

TEST_F(InstallerExchange, AnswersWhatItCannotDoWithAFailure) {
  struct Row {
    const char* request;
    const char* answer;
  };
  for (const Row& row :
       {Row{"action::dance\n", "error::the action 'dance' is not known\nresult::1\n"},
        Row{"action::query\n", "error::the request has no 'package_path'\nresult::1\n"},
        Row{"action::query\npackage_path::/etc/passwd\n",
            "error::'/etc/passwd' is no application's folder\nresult::1\n"},
        Row{"action::register\npackage_path::/apps/..\nextras::\ngid::\n",
            "error::'/apps/..' is no application's folder\nresult::1\n"},
        Row{"action::register\npackage_path::/apps/none\nextras::\ngid::\n",
            "error::there is no folder '/apps/none'\nresult::1\n"},
        Row{"action::unregister\npackage_path::/apps/none\n", "error::'none' is not registered\nresult::1\n"},
        Row{"action::uninstall\npackage_id::none\n",
            "error::no package 'none' is registered\nresult::1\n"}}) {
    EXPECT_EQ(exchange(row.request), row.answer) << row.request;
  }
}

TEST_F(InstallerExchange, WaitsForTheRestOfARequestThatComesInPieces) {
  make_application("D", "P");
  EXPECT_EQ(inside([] {
              const Exchange pieces("action::register\npackage_path::/apps/D\nextras::sour");
              ::usleep(20000);
              pieces.write("ce::shopvale\ngid::");
              ::usleep(20000);
              pieces.write("\n");
              return pieces.answer();
            }),
            ANSWER_D);
}

TEST_F(InstallerExchange, TakesLongExtras) {
  make_application("D", "P");
  const std::string extras = "note::" + std::string(100000, 'x') + ",source::shopvale";
  const std::string answer =
      exchange("action::register\npackage_path::/apps/D\nextras::" + extras + "\ngid::\n");
  // Not compared as a whole: the difference would be too long to read.
  EXPECT_EQ(values_of(answer)["actual_gid"], "10000");
  EXPECT_EQ(values_of(answer)["result"], "0");
  EXPECT_TRUE(values_of(answer)["actual_extras"] == extras) << answer.size();
  EXPECT_TRUE(shell(LIST) == "@.all\nD::P,1.0.0.1," + extras + "\n");
}

TEST_F(InstallerExchange, NeedsNoClientThatWaits) {
  make_application("D", "P");
  // Gone at once; killed while it waits; never read.
  EXPECT_EQ(inside([] {
              const Exchange gone(REGISTER_D);
              return std::string(::unlink(gone.path().c_str()) == 0 ? "gone" : "still there");
            }),
            "gone");
  control("delay_ms:n:300\n");
  const auto waiting = beside([] { static_cast<void>(exchange_here(QUERY_D)); });
  waiting->wait_until_asleep();
  waiting->kill();
  control("delay_ms:n:0\n");
  EXPECT_EQ(exchange(REGISTER_D), ANSWER_D);
}

TEST_F(InstallerExchange, AnswersFiveHundredInARowAndLeavesNothing) {
  make_application("D", "P");
  EXPECT_EQ(inside([] {
              for (int i = 0; i < 500; ++i) {
                const std::string request = i % 2 == 0 ? REGISTER_D : QUERY_D;
                if (std::string answer = exchange_here(request); answer != ANSWER_D) return answer;
              }
              return std::string("all answered");
            }),
            "all answered");
  EXPECT_EQ(shell(std::string("ls -A ") + REQUESTS), "");
  EXPECT_TRUE(std::filesystem::is_empty(outside("/var/pps/system")));
}

TEST_F(InstallerExchange, AnswersManyClientsAtOnceEachItsOwn) {
  constexpr int CLIENTS = 8;
  std::vector<std::unique_ptr<Process>> clients;
  for (int i = 0; i < CLIENTS; ++i) make_application("D" + std::to_string(i), "P" + std::to_string(i));
  for (int i = 0; i < CLIENTS; ++i) {
    const std::string id = "D" + std::to_string(i);
    clients.push_back(beside([&] {
      for (int round = 0; round < 20; ++round) {
        const auto values = values_of(exchange_here(enrollment(id, "of " + id)));
        if (values.at("actual_dname") != id || values.at("actual_extras") != "of " + id) {
          throw std::runtime_error("the answer of another");
        }
      }
    }));
  }
  for (const auto& client : clients) EXPECT_EQ(client->wait(), 0);
  EXPECT_EQ(shell(std::string(LIST) + " | wc -l"), "9\n");
}

TEST_F(InstallerExchange, GoesOnWhenItsDirectoryIsTakenAway) {
  make_application("D", "P");
  EXPECT_EQ(exchange(REGISTER_D), ANSWER_D);
  EXPECT_EQ(shell(std::string("rmdir ") + REQUESTS + " && until [ -d " + REQUESTS +
                  " ]; do sleep 0.02; done; echo back"),
            "back\n");
  EXPECT_EQ(exchange(QUERY_D), ANSWER_D);
}

TEST_F(InstallerExchange, LeavesLinesOfOthersInTheList) {
  make_application("D", "P");
  EXPECT_EQ(shell("echo 'other::by hand' >> /pps/system/installer/registeredapps/.all"), "");
  EXPECT_EQ(exchange(REGISTER_D), ANSWER_D);
  EXPECT_EQ(shell(LIST), "@.all\nother::by hand\nD::P,1.0.0.1,source::shopvale\n");
}

}  // namespace
}  // namespace harbix::test
