#include "updater/actions.h"

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "fs/exception.h"
#include "updater/installer_folder.h"

namespace {

using test::text_file;
using updater::ActionQuery;
using updater::ActionRegister;
using updater::ActionUninstall;
using updater::ActionUnregister;
using updater::UpdaterAction;

/// The text that an action writes into its object.
std::string request_of(UpdaterAction& action) {
  action.write_request();
  return test::read_file(text_file(action.object_path().text()));
}

std::string request_of(UpdaterAction&& action) { return request_of(action); }

/// What writing a request throws where files may not become larger than this; "" when it throws nothing.
std::string failure_within(rlim_t limit, UpdaterAction& action) {
  const auto limit_files = [](rlim_t size) {
    const struct ::rlimit limits { .rlim_cur = size, .rlim_max = RLIM_INFINITY };
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &limits));
  };
  std::string text;
  limit_files(limit);
  try {
    action.write_request();
  } catch (const fs::Exception& error) {
    text = error.what();
  }
  // A report of this test may go to a file.
  limit_files(RLIM_INFINITY);
  return text;
}

class InstallerRequests : public test::InstallerFolder {};

TEST_F(InstallerRequests, AreTheLinesOfTheirAction) {
  EXPECT_TRUE(on_the_device([] {
    EXPECT_EQ("action::register\npackage_path::/apps/a\nextras::e\ngid::10001\n",
              request_of(ActionRegister({fs::Path("/apps/a"), {}}, "e", "10001")));
    EXPECT_EQ("action::unregister\npackage_path::/apps/a\n", request_of(ActionUnregister("/apps/a")));
    EXPECT_EQ("action::query\npackage_path::/apps/a\n", request_of(ActionQuery("/apps/a")));
    EXPECT_EQ("action::uninstall\npackage_id::a.id\n", request_of(ActionUninstall("a.id")));
  }));
}

TEST_F(InstallerRequests, HaveTheirValuesAsTheyAre) {
  EXPECT_TRUE(on_the_device([] {
    EXPECT_EQ("action::register\npackage_path::a/../b//c:d\nextras::x::y,z:\\\" ,\xFF \ngid::\n",
              request_of(ActionRegister({fs::Path("a/../b//c:d"), {}}, "x::y,z:\\\" ,\xFF ", "")));
    EXPECT_EQ("action::unregister\npackage_path::./a b/\n", request_of(ActionUnregister("./a b/")));
    EXPECT_EQ("action::uninstall\npackage_id::\n", request_of(ActionUninstall("")));
  }));
}

TEST_F(InstallerRequests, AskAboutAnAbsolutePathInNormalForm) {
  EXPECT_TRUE(on_the_device([] {
    std::filesystem::create_directories("/apps/there");
    std::filesystem::create_symlink("there", "/apps/link");
    ASSERT_EQ(0, ::chdir("/apps"));
    struct Row {
      const char *path, *asked;
    };
    const Row rows[] = {
        {"/apps/there", "/apps/there"},
        {"/apps/./x/..//there", "/apps/there"},
        {"/apps/link", "/apps/there"},
        {"there", "/apps/there"},
        {"./there/../there", "/apps/there"},
        {"/apps/gone", "/apps/gone"},
        {"/apps/./gone/../lost//x", "/apps/lost/x"},
        {"gone", "/apps/gone"},
        {"./gone", "/apps/gone"},
        {"../gone", "/gone"},
    };
    for (const Row& row : rows) {
      EXPECT_EQ("action::query\npackage_path::" + std::string(row.asked) + "\n",
                request_of(ActionQuery(row.path)))
          << row.path;
    }
  }));
}

TEST_F(InstallerRequests, CreateTheirObjectBeforeAnythingIsWritten) {
  EXPECT_TRUE(on_the_device([] {
    const ActionUninstall action("a");
    EXPECT_EQ(test::request_name(0), action.object_path().text());
    EXPECT_EQ("", test::read_file(text_file(action.object_path().text())));
  }));
}

TEST_F(InstallerRequests, ThatAreNotTakenWholeFail) {
  EXPECT_TRUE(on_the_device([] {
    ASSERT_NE(SIG_ERR, std::signal(SIGXFSZ, SIG_IGN));
    ActionUninstall unwritten("a");
    ActionUninstall half_written("a");
    EXPECT_EQ("Failed to write file '" + test::request_name(0) + "'  [errno:27 'File too large']",
              failure_within(0, unwritten));
    EXPECT_EQ("Failed to write file '" + test::request_name(1) + "'  [errno:5 'Input/output error']",
              failure_within(10, half_written));
  }));
}

TEST_F(InstallerRequests, CannotBeMadeWithoutAnInstaller) {
  EXPECT_TRUE(on_the_device([] {
    std::filesystem::remove(test::REQUESTS);
    EXPECT_THROW(ActionRegister({fs::Path("/apps/a"), {}}, "", ""), fs::Exception);
    EXPECT_THROW(ActionUnregister("/apps/a"), fs::Exception);
    EXPECT_THROW(ActionQuery("/apps/a"), fs::Exception);
    EXPECT_THROW(ActionUninstall("a"), fs::Exception);
  }));
}

}  // namespace
