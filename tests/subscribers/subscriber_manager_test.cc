#include "subscribers/subscriber_manager.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "fs/exception.h"
#include "fs/glob.h"
#include "support/captured_output.h"
#include "support/child_process.h"
#include "support/recorded_log.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using fs::Path;
using subscribers::SubscriberManager;
using subscribers::Wait;
using test::dir;
using test::file;
using test::link;
using test::TemporaryFolder;
using test::Tree;

/// Appends its name and arguments to the file "seen" beside the scripts' folder, a line a run.
std::string script(const std::string& more = "") {
  return "#!/bin/sh\n" + more + "echo \"$(basename \"$0\")($#):$*\" >> \"$(dirname \"$0\")/../seen\"\n";
}

class Subscribers : public ::testing::Test {
 protected:
  void build(const std::vector<test::TreeItem>& scripts) {
    Tree{dir("scripts", scripts), file("seen")}.build(folder_.path());
  }
  /// By a path without blanks, as on a device: a shell is to start them.
  void run(const std::string& event, Wait wait) {
    const test::InsideFolder inside(folder_.path());
    SubscriberManager::run(event, wait, fs::list_by_glob(Path("scripts")));
  }
  [[nodiscard]] std::string seen() const { return test::read_file(folder_ / "seen"); }

  /// What was seen, once it is `expected`; or as it is when that has not come in ten seconds.
  [[nodiscard]] std::string seen_in_the_end(const std::string& expected) const {
    for (int i = 0; i < 1000 && seen() != expected; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return seen();
  }

  TemporaryFolder folder_;
};

TEST_F(Subscribers, HaveTheirFixedNames) {
  EXPECT_EQ("/base/scripts/backup_and_restore", SubscriberManager::FSSCRIPTROOT.text());
  EXPECT_EQ("/base/scripts/backup_and_restore/settings", SubscriberManager::FSSETTINGSSCRIPTROOT.text());
  EXPECT_EQ("whitelist", SubscriberManager::whitelist_tag);
  EXPECT_EQ("blacklist", SubscriberManager::blacklist_tag);
  EXPECT_EQ("backup_start", SubscriberManager::BACKUP_START);
  EXPECT_EQ("backup_end", SubscriberManager::BACKUP_END);
  EXPECT_EQ("restore_start", SubscriberManager::RESTORE_START);
  EXPECT_EQ("restore_end", SubscriberManager::RESTORE_END);
}

TEST_F(Subscribers, RunInOrderWithTheEventAsTheirOnlyArgument) {
  build({file("20_b", script(), 0755), file("10_a", script(), 0755)});
  run("backup_start", Wait::YES);
  EXPECT_EQ("10_a(1):backup_start\n20_b(1):backup_start\n", seen());
}

TEST_F(Subscribers, AreWaitedForOneByOne) {
  build({file("1", script("sleep 0.2\n"), 0755), file("2", script(), 0755)});
  run("restore_start", Wait::YES);
  EXPECT_EQ("1(1):restore_start\n2(1):restore_start\n", seen());
}

TEST_F(Subscribers, RunInTheBackgroundWhenNobodyWaits) {
  // The script goes on only when it is told to, which happens after run() has come back.
  build({file("1", script("while [ ! -e \"$(dirname \"$0\")/../go\" ]; do sleep 0.01; done\n"), 0755)});
  run("backup_end", Wait::NO);
  EXPECT_EQ("", seen());
  test::write_file(folder_ / "go", "");
  EXPECT_EQ("1(1):backup_end\n", seen_in_the_end("1(1):backup_end\n"));
}

TEST_F(Subscribers, InSubfoldersAreNotRun) {
  build({dir("settings", {file("inner", script(), 0755)}), file("outer", script(), 0755)});
  run("backup_start", Wait::YES);
  EXPECT_EQ("outer(1):backup_start\n", seen());
}

TEST_F(Subscribers, MayBeLinksEvenToFolders) {
  build({dir("d"), link("to_d", "d"), file("real", script(), 0755), link("to_real", "real")});
  run("backup_start", Wait::YES);
  EXPECT_EQ("real(1):backup_start\nto_real(1):backup_start\n", seen());
}

TEST_F(Subscribers, ThatFailChangeNothing) {
  build({file("1", "#!/bin/sh\nexit 3\n", 0755), file("2", "not executable", 0644), link("3", "nowhere"),
         file("4", script(), 0755)});
  run("backup_start", Wait::YES);
  EXPECT_EQ("4(1):backup_start\n", seen());
}

TEST_F(Subscribers, ThatCannotBeStartedAreLogged) {
  build({file("1", script(), 0755), file("2", script(), 0755)});
  ASSERT_EQ(0, ::chmod(folder_.path().c_str(), 0755));
  EXPECT_TRUE(test::passes_in_child([this] {
    const rlimit no_process{.rlim_cur = 0, .rlim_max = 0};
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NPROC, &no_process));
    // The limit is for users other than the superuser.
    ASSERT_EQ(0, ::setresuid(4001, 4001, 4001));
    const test::RecordedLog log;
    run("backup_start", Wait::YES);
    const std::string reason = "' could not be run: Resource temporarily unavailable";
    EXPECT_EQ((std::vector<std::string>{"3 Subscriber script 'scripts/1" + reason,
                                        "3 Subscriber script 'scripts/2" + reason}),
              log.messages());
  }));
  EXPECT_EQ("", seen());
}

TEST_F(Subscribers, ThatAreGoneEndTheRun) {
  build({file("1", script(), 0755), file("3", script(), 0755)});
  const std::vector<Path> scripts{Path("scripts/1"), Path("scripts/2"), Path("scripts/3")};
  const test::InsideFolder inside(folder_.path());
  try {
    SubscriberManager::run("backup_start", Wait::YES, scripts);
    ADD_FAILURE();
  } catch (const fs::Exception& error) {
    EXPECT_STREQ("Path 'scripts/2' stat failed. [errno:2 'No such file or directory']", error.what());
    EXPECT_EQ(ENOENT, error.error());
  }
  EXPECT_EQ("1(1):backup_start\n", seen());
}

TEST_F(Subscribers, AreHeardByNobody) {
  build({file("1", "#!/bin/sh\necho out\necho errors >&2\n", 0755)});
  const test::CapturedOutput output(STDOUT_FILENO);
  const test::CapturedOutput errors(STDERR_FILENO);
  run("backup_start", Wait::YES);
  EXPECT_EQ("", output.text());
  EXPECT_EQ("", errors.text());
}

TEST_F(Subscribers, NoneAtAllIsNoError) {
  EXPECT_NO_THROW(SubscriberManager::run("backup_start", Wait::YES, {}));
  EXPECT_NO_THROW(run("backup_start", Wait::YES));
}

}  // namespace
