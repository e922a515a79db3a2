#include "subscribers/subscribers.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "fs/exception.h"
#include "fs/glob.h"
#include "tests/support/captured_output.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/recorded_log.h"
#include "tests/support/root.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;
using subscribers::SubscriberManager;
using subscribers::SubscriberNotice;
using subscribers::Wait;

/// Appends its name and arguments to the file "seen" beside the scripts' folder, a line a run.
std::string script(const std::string& more = "") {
  return "#!/bin/sh\n" + more + "echo \"$(basename \"$0\")($#):$*\" >> \"$(dirname \"$0\")/../seen\"\n";
}

class Subscribers : public ::testing::Test {
 protected:
  void build(const std::vector<TreeItem>& scripts) {
    Tree{dir("scripts", scripts), file("seen")}.build(folder_.path());
  }
  /// By a path without blanks, as on a device: a shell is to start them.
  void run(const std::string& event, Wait wait) {
    const InsideFolder inside(folder_.path());
    SubscriberManager::run(event, wait, fs::list_by_glob(Path("scripts")));
  }
  [[nodiscard]] std::string seen() const { return read_file(folder_ / "seen"); }

  /// What was seen, once it is `expected`; or as it is when that has not come in ten seconds.
  [[nodiscard]] std::string seen_in_the_end(const std::string& expected) const {
    for (int i = 0; i < 1000 && seen() != expected; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return seen();
  }

  TemporaryFolder folder_;
};

TEST_F(Subscribers, HaveTheirFixedNames) {
  EXPECT_EQ(SubscriberManager::FSSCRIPTROOT.text(), "/base/scripts/backup_and_restore");
  EXPECT_EQ(SubscriberManager::FSSETTINGSSCRIPTROOT.text(), "/base/scripts/backup_and_restore/settings");
  EXPECT_EQ(SubscriberManager::whitelist_tag, "whitelist");
  EXPECT_EQ(SubscriberManager::blacklist_tag, "blacklist");
  EXPECT_EQ(SubscriberManager::BACKUP_START, "backup_start");
  EXPECT_EQ(SubscriberManager::BACKUP_END, "backup_end");
  EXPECT_EQ(SubscriberManager::RESTORE_START, "restore_start");
  EXPECT_EQ(SubscriberManager::RESTORE_END, "restore_end");
}

TEST_F(Subscribers, RunInOrderWithTheEventAsTheirOnlyArgument) {
  build({file("20_b", script(), 0755), file("10_a", script(), 0755)});
  run("backup_start", Wait::YES);
  EXPECT_EQ(seen(), "10_a(1):backup_start\n20_b(1):backup_start\n");
}

TEST_F(Subscribers, AreWaitedForOneByOne) {
  build({file("1", script("sleep 0.2\n"), 0755), file("2", script(), 0755)});
  run("restore_start", Wait::YES);
  EXPECT_EQ(seen(), "1(1):restore_start\n2(1):restore_start\n");
}

TEST_F(Subscribers, RunInTheBackgroundWhenNobodyWaits) {
  // The script goes on only when the test lets it, after run() has come back.
  build({file("1", script("while [ ! -e \"$(dirname \"$0\")/../go\" ]; do sleep 0.01; done\n"), 0755)});
  run("backup_end", Wait::NO);
  EXPECT_EQ(seen(), "");
  write_file(folder_ / "go", "");
  EXPECT_EQ(seen_in_the_end("1(1):backup_end\n"), "1(1):backup_end\n");
}

TEST_F(Subscribers, InSubfoldersAreNotRun) {
  build({dir("settings", {file("inner", script(), 0755)}), file("outer", script(), 0755)});
  run("backup_start", Wait::YES);
  EXPECT_EQ(seen(), "outer(1):backup_start\n");
}

TEST_F(Subscribers, MayBeLinksEvenToFolders) {
  build({dir("d"), link("to_d", "d"), file("real", script(), 0755), link("to_real", "real")});
  run("backup_start", Wait::YES);
  EXPECT_EQ(seen(), "real(1):backup_start\nto_real(1):backup_start\n");
}

TEST_F(Subscribers, ThatFailChangeNothing) {
  build({file("1", "#!/bin/sh\nexit 3\n", 0755), file("2", "not executable", 0644), link("3", "nowhere"),
         file("4", script(), 0755)});
  run("backup_start", Wait::YES);
  EXPECT_EQ(seen(), "4(1):backup_start\n");
}

TEST_F(Subscribers, ThatCannotBeStartedAreLogged) {
  build({file("1", script(), 0755), file("2", script(), 0755)});
  ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
  EXPECT_TRUE(passes_in_child([this] {
    const rlimit no_process{.rlim_cur = 0, .rlim_max = 0};
    ASSERT_EQ(::setrlimit(RLIMIT_NPROC, &no_process), 0);
    // The limit is for users other than the superuser.
    ASSERT_EQ(::setresuid(4001, 4001, 4001), 0);
    const RecordedLog log;
    run("backup_start", Wait::YES);
    const std::string reason = "' could not be run: Resource temporarily unavailable";
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"3 Subscriber script 'scripts/1" + reason,
                                                        "3 Subscriber script 'scripts/2" + reason}));
  }));
  EXPECT_EQ(seen(), "");
}

TEST_F(Subscribers, ThatAreGoneEndTheRun) {
  build({file("1", script(), 0755), file("3", script(), 0755)});
  const std::vector<Path> scripts{Path("scripts/1"), Path("scripts/2"), Path("scripts/3")};
  const InsideFolder inside(folder_.path());
  try {
    SubscriberManager::run("backup_start", Wait::YES, scripts);
    ADD_FAILURE();
  } catch (const fs::Exception& error) {
    EXPECT_STREQ(error.what(), "Path 'scripts/2' stat failed. [errno:2 'No such file or directory']");
    EXPECT_EQ(error.error(), ENOENT);
  }
  EXPECT_EQ(seen(), "1(1):backup_start\n");
}

TEST_F(Subscribers, AreHeardByNobody) {
  build({file("1", "#!/bin/sh\necho out\necho errors >&2\n", 0755)});
  const CapturedOutput output(STDOUT_FILENO);
  const CapturedOutput errors(STDERR_FILENO);
  run("backup_start", Wait::YES);
  EXPECT_EQ(output.text(), "");
  EXPECT_EQ(errors.text(), "");
}

TEST_F(Subscribers, NoneAtAllIsNoError) {
  EXPECT_NO_THROW(SubscriberManager::run("backup_start", Wait::YES, {}));
  EXPECT_NO_THROW(run("backup_start", Wait::YES));
}

constexpr int OTHER_MODES[] = {-1, 0, 1, 3, 2147483647};  // NOLINT(modernize-avoid-c-arrays): a plain table

/// A child process with a root of its own, where the folder of the settings scripts holds one that appends
/// its argument to "/seen".
class Notice : public RootTest {
 protected:
  static std::string seen() { return read_file("/seen"); }
  static std::string seen_in_the_end(const std::string& expected) {
    for (int i = 0; i < 1000 && seen() != expected; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return seen();
  }

 private:
  void set_up_root() const override {
    put("/seen");
    const std::string script = "/base/scripts/backup_and_restore/settings/1";
    put(script, "#!/bin/sh\necho $1 >> /seen\n");
    ASSERT_EQ(::chmod(script.c_str(), 0755), 0);
  }
};

TEST_F(Notice, TellsOfTheBeginningAndTheEnd) {
  struct Row {
    bool restore;
    const char *start, *both;
  };
  for (const Row& row : {Row{false, "backup_start\n", "backup_start\nbackup_end\n"},
                         Row{true, "restore_start\n", "restore_start\nrestore_end\n"}}) {
    EXPECT_TRUE(on_the_device([&row] {
      write_file("/seen", "");
      {
        SubscriberNotice notice(row.restore, SubscriberManager::NOTIFY_MODE);
        EXPECT_EQ(seen(), "");
        notice.start();
        EXPECT_EQ(seen(), row.start);
      }
      EXPECT_EQ(seen_in_the_end(row.both), row.both);
    }));
  }
}

TEST_F(Notice, TellsOfTheEndAfterAThrow) {
  EXPECT_TRUE(on_the_device([] {
    try {
      SubscriberNotice notice(false, SubscriberManager::NOTIFY_MODE);
      notice.start();
      throw std::runtime_error("on the way");
    } catch (const std::runtime_error&) {
      EXPECT_EQ(seen_in_the_end("backup_start\nbackup_end\n"), "backup_start\nbackup_end\n");
    }
  }));
}

TEST_F(Notice, ThatWasNeverStartedTellsNoEnd) {
  EXPECT_TRUE(on_the_device([] {
    { const SubscriberNotice notice(false, SubscriberManager::NOTIFY_MODE); }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(seen(), "");
  }));
}

TEST_F(Notice, WhoseStartThrewTellsNoEnd) {
  EXPECT_TRUE(on_the_device([] {
    // A folder that may not be read cannot be listed.
    ASSERT_EQ(::chmod("/base/scripts/backup_and_restore/settings", 0700), 0);
    ASSERT_EQ(::setreuid(65534, 65534), 0);
    const RecordedLog log(5);
    {
      SubscriberNotice notice(false, SubscriberManager::NOTIFY_MODE);
      EXPECT_THROW(notice.start(), fs::Exception);
    }
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(seen(), "");
  }));
}

TEST_F(Notice, WhoseEndCannotBeToldIsLogged) {
  EXPECT_TRUE(on_the_device([] {
    const RecordedLog log;
    {
      SubscriberNotice notice(false, SubscriberManager::NOTIFY_MODE);
      notice.start();
      ASSERT_EQ(::chmod("/base/scripts/backup_and_restore/settings", 0700), 0);
      ASSERT_EQ(::setreuid(65534, 65534), 0);
    }
    EXPECT_EQ(log.messages(),
              (std::vector<std::string>{
                  "3 Subscribers were not told of the end: Glob pattern "
                  "'/base/scripts/backup_and_restore/settings/*' failed. [errno:13 'Permission "
                  "denied']"}));
  }));
}

TEST_F(Notice, InAnotherModeTellsNothing) {
  EXPECT_TRUE(on_the_device([] {
    for (const int mode : OTHER_MODES) {
      {
        SubscriberNotice notice(true, mode);
        notice.start();
      }
      SubscriberManager::notify("backup_start", mode, Wait::YES);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(seen(), "");
  }));
}

TEST_F(Notice, TellsNobodyWhereTheFolderIsMissing) {
  EXPECT_TRUE(on_the_device([] {
    std::filesystem::remove_all("/base");
    EXPECT_NO_THROW(SubscriberManager::notify("backup_start", SubscriberManager::NOTIFY_MODE, Wait::YES));
  }));
}

}  // namespace
}  // namespace harbix::test
