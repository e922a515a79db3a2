#include <cerrno>

#include <gtest/gtest.h>

#include "tests/support/device.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

constexpr std::size_t TOO_LARGE = std::size_t{256} << 10;

/// Restores onto storage that does not take everything. What is mounted goes with the run, so that it is
/// looked at within the run.
class UnwritableStorage : public testing::Test {
 protected:
  UnwritableStorage() {
    device_.write(std::string(SETTINGS_SCRIPTS) + "/lists",
                  "#!/bin/bash\n[ $1 != whitelist ] || echo whitelist " + std::string(SETTINGS) + "\n", 0755);
    device_.make_folder(SETTINGS, 0777);
  }

  /// Restores `keyword` after `preparation`; the output is what `question` prints afterwards. From a pipe,
  /// where the program cannot see before that there is no room.
  Outcome restore(const std::string& preparation, const std::string& keyword, const TarBuilder& archive,
                  const std::string& question = "true") {
    device_.write("/tmp/a.tar", archive.text());
    return device_.shell(preparation + "\ncat /tmp/a.tar | harbix -r " + keyword + "; result=$?; " +
                         question + "; exit $result");
  }

  static std::string mount(const std::string& folder, const std::string& options) {
    return "mount -t tmpfs -o " + options + " none " + folder +
           " && chown --reference=/accounts/1000/media " + folder + " && chmod 0770 " + folder;
  }

  Device device_;
};

TEST_F(UnwritableStorage, FailsARestoreOfMediaThatDoesNotFit) {
  device_.make_folder("/accounts/1000/media");
  const Outcome outcome =
      restore(mount(SHARED, "size=64k"), "media",
              TarBuilder().file("/media/M/large", std::string(TOO_LARGE, 'x')).file("/media/M/small", "fits"),
              "cd /accounts/1000/shared; find . -type f -printf '%P %s\\n'");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "Warning: /accounts/1000/shared/M/large: No space left on device\n");
  EXPECT_EQ(outcome.output, "M/small 4\n");
}

TEST_F(UnwritableStorage, FailsARestoreOfTheDtmShareThatDoesNotFitAndKeepsWhatWasThere) {
  device_.make_folder("/accounts/1000/media");
  const Outcome outcome =
      restore(mount(DTM, "size=64k") + "; echo -n old > /accounts/1000/sys/dtm/large", "media",
              TarBuilder().file("/dtm/large", std::string(TOO_LARGE, 'x')).file("/dtm/small", "fits"),
              "cat /accounts/1000/sys/dtm/*");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "Warning: /accounts/1000/sys/dtm/large: No space left on device\n");
  EXPECT_EQ(outcome.output, "oldfits");
}

TEST_F(UnwritableStorage, FailsARestoreOfMediaWhereNoMoreFilesCanBeMade) {
  device_.make_folder("/accounts/1000/media");
  const Outcome outcome = restore(mount(SHARED, "nr_inodes=3"), "media",
                                  TarBuilder().file("/media/M/a", "a").file("/media/M/b", "b"));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "Warning: /accounts/1000/shared/M/b: No space left on device\n");
}

TEST_F(UnwritableStorage, FailsARestoreOfMediaOntoAReadOnlyDisk) {
  device_.make_folder("/accounts/1000/media");
  const Outcome outcome = restore(mount(SHARED, "size=64k") + "; mount -o remount,ro /accounts/1000/shared",
                                  "media", TarBuilder().file("/media/M/a", "a"));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "Warning: /accounts/1000/shared/M/a: Read-only file system\n");
}

TEST_F(UnwritableStorage, FailsARestoreOfMediaIntoAFolderThatTheirUserMayNotWrite) {
  device_.make_folder(std::string(SHARED) + "/M", 0755);
  device_.own(std::string(SHARED) + "/M", "root", "root");
  const Outcome outcome =
      restore("true", "media", TarBuilder().file("/media/M/a", "a").file("/media/N/b", "b"));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "Warning: /accounts/1000/shared/M/a: Permission denied\n");
  EXPECT_EQ(device_.read(std::string(SHARED) + "/N/b"), "b");
}

TEST_F(UnwritableStorage, FailsARestoreOfASettingThatDoesNotFitAndKeepsTheOldOne) {
  device_.make_folder("/accounts/1000/media");
  const std::string target = "/settings" + std::string(SETTINGS);
  const Outcome outcome =
      restore(mount(SETTINGS, "size=64k") + "; echo -n old > " + SETTINGS + "/large", "settings",
              TarBuilder()
                  .file("/settings/.backup.metadata", "File: 1\n/a\nFile: 1\n/b\n\n", 0700)
                  .file(target + "/large", std::string(TOO_LARGE, 'x'))
                  .file(target + "/small", "fits"),
              "cat " + std::string(SETTINGS) + "/*");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "Restore: " + target + "/large\nWarning: " + SETTINGS +
                                "/large: No space left on device\nRestore: " + target + "/small\n");
  EXPECT_EQ(outcome.output, "oldfits");
}

TEST_F(UnwritableStorage, KeepsExistingMediaWhoseStatusCannotBeTaken) {
  const std::string photo = std::string(SHARED) + "/M/photo";
  constexpr int MOST_STATUS_CALLS = 40;
  bool was_unknown = false;
  for (const TarBuilder& archive :
       {TarBuilder().file("/media/M/photo", "new"), TarBuilder().folder("/media/M/photo")}) {
    for (int nth = 1; nth < MOST_STATUS_CALLS; ++nth) {
      // The media user cannot read it, so that it is there after the wipe.
      device_.write(photo, "old", 0000);
      const Outcome outcome =
          restore("export ASAN_OPTIONS=verify_asan_link_order=0 HARBIX_FAIL_CALL=fstatat HARBIX_FAIL_NTH=" +
                      std::to_string(nth) + " HARBIX_FAIL_ERRNO=" + std::to_string(EIO) +
                      " LD_PRELOAD=/opt/harbix/bin/tests/libfailing_calls.so",
                  "media", archive);
      EXPECT_EQ(device_.read(photo), "old") << "after call " << nth;
      if (outcome.errors != "Warning: " + photo + ": Input/output error\n") continue;
      EXPECT_EQ(outcome.status, 1) << "after call " << nth;
      was_unknown = true;
    }
  }
  EXPECT_TRUE(was_unknown);
}

}  // namespace
}  // namespace harbix::test
