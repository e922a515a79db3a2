#include "media/share.h"

#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/flags.h"
#include "fs/identity.h"
#include "tests/support/captured_output.h"
#include "tests/support/program.h"
#include "tests/support/recorded_log.h"
#include "tests/support/root.h"

namespace harbix::test {
namespace {

using fs::File;
using fs::Path;

File item(mode_t mode, uid_t user, gid_t group) {
  struct ::stat record {};
  record.st_mode = mode;
  record.st_uid = user;
  record.st_gid = group;
  return {Path("Music/a"), record};
}

TEST(MediaGroups, AreLookedUpByName) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    EXPECT_EQ(harbix::media_groups().shared, SHARED_GROUP);
    EXPECT_EQ(harbix::media_groups().protected_media, PROTECTED_GROUP);
  }));
}

TEST(SkipTest, LeavesProtectedItemsAloneInSilence) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    const RecordedLog log(5);
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_TRUE(harbix::is_skipped(item(S_IFREG | 0666, 0, PROTECTED_GROUP)));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(errors.text(), "");
    harbix::verbose = true;
    EXPECT_TRUE(harbix::is_skipped(item(S_IFREG | 0666, 0, PROTECTED_GROUP)));
    EXPECT_EQ(errors.text(), "Skip: Music/a\n");
    EXPECT_TRUE(log.lines().empty());
  }));
}

TEST(SkipTest, LeavesUnreadableItemsAloneWithAMessage) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    const fs::EffectiveUser user(MEDIA_USER);
    const RecordedLog log;
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_TRUE(harbix::is_skipped(item(S_IFREG | 0600, 0, 0)));
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"3 can't access: 'Music/a'; skipping."}));
    EXPECT_EQ(errors.text(), "");
    harbix::verbose = true;
    EXPECT_TRUE(harbix::is_skipped(item(S_IFREG | 0600, 0, 0)));
    EXPECT_EQ(errors.text(), "permission denied: Music/a skipping\n");
  }));
}

TEST(SkipTest, LetsPassWhatTheEffectiveIdsMayRead) {
  EXPECT_TRUE(passes_with_device_accounts([] {
    const fs::EffectiveGroup group(SHARED_GROUP);
    const fs::EffectiveUser user(MEDIA_USER);
    const RecordedLog log(5);
    harbix::verbose = true;
    EXPECT_FALSE(harbix::is_skipped(item(S_IFREG | 0400, MEDIA_USER, 0)));
    EXPECT_FALSE(harbix::is_skipped(item(S_IFREG | 0040, 0, SHARED_GROUP)));
    EXPECT_FALSE(harbix::is_skipped(item(S_IFREG | 0004, 0, 0)));
    EXPECT_TRUE(log.lines().empty());
  }));
}

}  // namespace
}  // namespace harbix::test
