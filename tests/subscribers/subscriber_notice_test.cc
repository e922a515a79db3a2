#include "subscribers/subscriber_notice.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "fs/exception.h"
#include "subscribers/subscriber_manager.h"
#include "support/private_root.h"
#include "support/recorded_log.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using subscribers::SubscriberManager;
using subscribers::SubscriberNotice;
using subscribers::Wait;
using test::dir;
using test::file;
using test::TemporaryFolder;
using test::Tree;

constexpr int OTHER_MODES[] = {-1, 0, 1, 3, 2147483647};  // NOLINT(modernize-avoid-c-arrays): a plain table

/// A child process with a root of its own, where the folder of the settings scripts holds one that appends
/// its argument to "/seen".
class Notice : public ::testing::Test {
 protected:
  void SetUp() override {
    Tree{file("seen"),
         dir("base",
             {dir("scripts", {dir("backup_and_restore",
                                  {dir("settings", {file("1", "#!/bin/sh\necho $1 >> /seen\n", 0755)})})})})}
        .build(root_.path());
  }

  /// Runs `body` there.
  ::testing::AssertionResult on_the_device(const std::function<void()>& body) {
    return test::passes_in_root(root_.path(), body);
  }

  static std::string seen() { return test::read_file("/seen"); }
  static std::string seen_in_the_end(const std::string& expected) {
    for (int i = 0; i < 1000 && seen() != expected; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return seen();
  }

  TemporaryFolder root_;
};

TEST_F(Notice, TellsOfTheBeginningAndTheEnd) {
  struct Row {
    bool restore;
    const char *start, *both;
  };
  for (const Row& row : {Row{false, "backup_start\n", "backup_start\nbackup_end\n"},
                         Row{true, "restore_start\n", "restore_start\nrestore_end\n"}}) {
    EXPECT_TRUE(on_the_device([&row] {
      test::write_file("/seen", "");
      {
        SubscriberNotice notice(row.restore, SubscriberManager::NOTIFY_MODE);
        EXPECT_EQ("", seen());
        notice.start();
        EXPECT_EQ(row.start, seen());
      }
      EXPECT_EQ(row.both, seen_in_the_end(row.both));
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
      EXPECT_EQ("backup_start\nbackup_end\n", seen_in_the_end("backup_start\nbackup_end\n"));
    }
  }));
}

TEST_F(Notice, ThatWasNeverStartedTellsNoEnd) {
  EXPECT_TRUE(on_the_device([] {
    { const SubscriberNotice notice(false, SubscriberManager::NOTIFY_MODE); }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ("", seen());
  }));
}

TEST_F(Notice, WhoseStartThrewTellsNoEnd) {
  EXPECT_TRUE(on_the_device([] {
    // A folder that may not be read cannot be listed.
    ASSERT_EQ(0, ::chmod("/base/scripts/backup_and_restore/settings", 0700));
    ASSERT_EQ(0, ::setreuid(65534, 65534));
    const test::RecordedLog log(5);
    {
      SubscriberNotice notice(false, SubscriberManager::NOTIFY_MODE);
      EXPECT_THROW(notice.start(), fs::Exception);
    }
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ("", seen());
  }));
}

TEST_F(Notice, WhoseEndCannotBeToldIsLogged) {
  EXPECT_TRUE(on_the_device([] {
    const test::RecordedLog log;
    {
      SubscriberNotice notice(false, SubscriberManager::NOTIFY_MODE);
      notice.start();
      ASSERT_EQ(0, ::chmod("/base/scripts/backup_and_restore/settings", 0700));
      ASSERT_EQ(0, ::setreuid(65534, 65534));
    }
    EXPECT_EQ((std::vector<std::string>{
                  "3 Subscribers were not told of the end: Glob pattern "
                  "'/base/scripts/backup_and_restore/settings/*' failed. [errno:13 'Permission "
                  "denied']"}),
              log.messages());
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
    EXPECT_EQ("", seen());
  }));
}

TEST_F(Notice, TellsNobodyWhereTheFolderIsMissing) {
  EXPECT_TRUE(on_the_device([] {
    std::filesystem::remove_all("/base");
    EXPECT_NO_THROW(SubscriberManager::notify("backup_start", SubscriberManager::NOTIFY_MODE, Wait::YES));
  }));
}

}  // namespace
