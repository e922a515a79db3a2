#include "media/share.h"

#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/flags.h"
#include "fs/identity.h"
#include "support/captured_output.h"
#include "support/child_process.h"
#include "support/device_accounts.h"
#include "support/recorded_log.h"

namespace {

using fs::File;
using fs::Path;
using test::CapturedOutput;
using test::passes_with_device_accounts;
using test::RecordedLog;

File item(mode_t mode, uid_t user, gid_t group) {
  struct ::stat record {};
  record.st_mode = mode;
  record.st_uid = user;
  record.st_gid = group;
  return {Path("Music/a"), record};
}

TEST(MediaGroups, AreLookedUpByName) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    EXPECT_EQ(test::SHARED_GROUP, harbix::media_groups().shared);
    EXPECT_EQ(test::PROTECTED_GROUP, harbix::media_groups().protected_media);
  }));
}

TEST(SkipTest, LeavesProtectedItemsAloneInSilence) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    const RecordedLog log(5);
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_TRUE(harbix::is_skipped(item(S_IFREG | 0666, 0, test::PROTECTED_GROUP)));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ("", errors.text());
    harbix::verbose = true;
    EXPECT_TRUE(harbix::is_skipped(item(S_IFREG | 0666, 0, test::PROTECTED_GROUP)));
    EXPECT_EQ("Skip: Music/a\n", errors.text());
    EXPECT_TRUE(log.lines().empty());
  }));
}

TEST(SkipTest, LeavesUnreadableItemsAloneWithAMessage) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    const fs::EffectiveUser user(test::MEDIA_USER);
    const RecordedLog log;
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_TRUE(harbix::is_skipped(item(S_IFREG | 0600, 0, 0)));
    EXPECT_EQ((std::vector<std::string>{"3 can't access: 'Music/a'; skipping."}), log.messages());
    EXPECT_EQ("", errors.text());
    harbix::verbose = true;
    EXPECT_TRUE(harbix::is_skipped(item(S_IFREG | 0600, 0, 0)));
    EXPECT_EQ("permission denied: Music/a skipping\n", errors.text());
  }));
}

TEST(SkipTest, LetsPassWhatTheEffectiveIdsMayRead) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    const fs::EffectiveGroup group(test::SHARED_GROUP);
    const fs::EffectiveUser user(test::MEDIA_USER);
    const RecordedLog log(5);
    harbix::verbose = true;
    EXPECT_FALSE(harbix::is_skipped(item(S_IFREG | 0400, test::MEDIA_USER, 0)));
    EXPECT_FALSE(harbix::is_skipped(item(S_IFREG | 0040, 0, test::SHARED_GROUP)));
    EXPECT_FALSE(harbix::is_skipped(item(S_IFREG | 0004, 0, 0)));
    EXPECT_TRUE(log.lines().empty());
  }));
}

}  // namespace
