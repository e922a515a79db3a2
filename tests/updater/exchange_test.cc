// The client and a service, each at its end of real objects.

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "fs/file.h"
#include "tests/support/folder.h"
#include "tests/support/mounted_pps.h"
#include "tests/support/pps_client.h"
#include "tests/support/root.h"
#include "tests/support/toy_service.h"
#include "tests/updater/installer_folder.h"
#include "updater/installer_client.h"
#include "updater/registered_applications.h"

namespace harbix::test {
namespace {

using updater::ActionQuery;
using updater::ActionUninstall;
using updater::RegisteredApplication;

constexpr char SERVED[] = "system/installer/upd/current";

/// A root folder of its own, with mounted PPS objects at "/pps".
class InstallerExchange : public MountedPps {
 protected:
  void SetUp() override {
    MountedPps::SetUp();
    run("mkdir -p system/installer/upd/current system/installer/registeredapps");
    ASSERT_TRUE(std::filesystem::create_directory(root_ / "pps"));
    ASSERT_EQ(::mount(mount().c_str(), (root_ / "pps").c_str(), nullptr, MS_BIND, nullptr), 0) << errno;
  }

  void TearDown() override {
    EXPECT_EQ(run("ls -A system/installer/upd/current"), "") << "an object was left behind";
    EXPECT_EQ(::umount((root_ / "pps").c_str()), 0) << errno;
    MountedPps::TearDown();
  }

  [[nodiscard]] ::testing::AssertionResult on_the_device(const std::function<void()>& body) const {
    return passes_in_root(root_.path(), body);
  }

  TemporaryFolder root_;
};

TEST_F(InstallerExchange, ReadsWhatTheServiceAnswers) {
  const ToyService service(path(SERVED));
  EXPECT_TRUE(on_the_device([] {
    for (int i = 0; i < 3; ++i) {
      ActionQuery query("/apps/a");
      query.exchange();
      EXPECT_EQ(query.get_attribute("actual_extras"), "of /apps/a");
      EXPECT_EQ(query.get_attribute("actual_gid"), "1001");
      EXPECT_EQ(query.get_attribute("result"), "0");
      // The request comes through the same object, and is no part of the response.
      EXPECT_THROW(static_cast<void>(query.get_attribute("action")), std::runtime_error);
      EXPECT_EQ(query.object_path().text(), request_name(i));
    }
  }));
}

TEST_F(InstallerExchange, ShowsTheServiceTheWholeRequest) {
  EXPECT_TRUE(on_the_device([] {
    updater::ActionRegister action("/apps/a", "e,f::g", "");
    action.write_request();
    const base::FileDescriptor object = open_object(action.object_path().text(), O_RDONLY);
    EXPECT_EQ(read_text(object), "@" + action.object_path().basename().text() +
                                     "\naction::register\npackage_path::/apps/a\nextras::e,f::g\ngid::\n");
  }));
}

TEST_F(InstallerExchange, WaitsForAnAnswerInSeveralParts) {
  EXPECT_TRUE(on_the_device([] {
    ActionUninstall action("a");
    action.write_request();
    const std::string name = action.object_path().text();
    Process reader([&action] {
      action.read_response();
      const bool is_complete =
          action.get_attribute("state") == "done" && action.get_attribute("result") == "7";
      return is_complete ? 0 : 1;
    });
    const base::FileDescriptor service = open_object(name, O_WRONLY | O_APPEND);
    for (const char* part : {"state::busy\n", "state::done\n", "", "result::7\nlater::1\n"}) {
      reader.wait_until_asleep();
      if (*part != '\0') write_text(service, part);
    }
    EXPECT_EQ(reader.wait(), 0);
  }));
}

TEST_F(InstallerExchange, TriesTheNextNameWhereAnObjectExists) {
  EXPECT_TRUE(on_the_device([] {
    {
      const base::FileDescriptor taken = open_object(request_name(0), O_RDWR | O_CREAT | O_EXCL, 0660);
      const ActionUninstall action("a");
      EXPECT_EQ(action.object_path().text(), request_name(1));
    }
    ASSERT_EQ(::unlink(request_name(0).c_str()), 0);
  }));
}

TEST_F(InstallerExchange, LeavesNoObjectWhenASignalEndsTheClient) {
  EXPECT_TRUE(on_the_device([] {
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
      // No installer answers: the client sleeps in its read.
      Process client([] {
        ActionQuery("/apps/a").exchange();
        return 0;
      });
      const auto is_waiting = [] { return !std::filesystem::is_empty(REQUESTS); };
      while (!is_waiting()) continue;
      client.wait_until_asleep();
      ASSERT_EQ(::kill(client.id(), signal), 0);
      EXPECT_EQ(client.wait(), 128 + signal);
      EXPECT_FALSE(is_waiting()) << signal;
    }
  }));
}

TEST_F(InstallerExchange, EndsWhenTheObjectIsTakenAway) {
  EXPECT_TRUE(on_the_device([] {
    const auto query = std::make_unique<ActionQuery>("/apps/a");
    query->write_request();
    ASSERT_EQ(::unlink(query->object_path().c_str()), 0);
    query->read_response();
    EXPECT_THROW(static_cast<void>(query->get_attribute("result")), std::runtime_error);
  }));
}

TEST_F(InstallerExchange, FindsTheListThatTheInstallerPublishes) {
  EXPECT_TRUE(on_the_device([] {
    const std::string folder = "/pps/system/installer/registeredapps/";
    const base::FileDescriptor object = open_object(folder + "applications", O_RDWR | O_CREAT);
    write_text(object, "b::b.p,1.0,source::shopvale\na::a.p,2.0,x::,\nsys.android::c,1,\n");
    std::vector<RegisteredApplication> applications;
    EXPECT_TRUE(updater::read_registered_applications(applications));
    ASSERT_EQ(applications.size(), 2U);
    EXPECT_EQ(updater::find_application(applications, "a.p", updater::MustExist::YES),
              (RegisteredApplication{"a", "a.p", "2.0", "websl"}));
    EXPECT_EQ(updater::find_application(applications, "b.p", updater::MustExist::YES),
              (RegisteredApplication{"b", "b.p", "1.0", "shopvale"}));
  }));
}

}  // namespace
}  // namespace harbix::test
