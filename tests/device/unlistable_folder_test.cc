#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"
#include "tests/support/tar_builder.h"
#include "tests/support/test_name.h"

namespace harbix::test {
namespace {

using testing::Contains;
using testing::HasSubstr;

constexpr int MOST_LISTINGS = 120;

/// A device with media, a PPS object and a whitelisted folder of settings.
class UnlistableFolder : public testing::Test {
 protected:
  UnlistableFolder() {
    for (const char* path : {"Music/a", "Music/sub/b", "Photos/c"}) device_.write(shared(path), path);
    device_.write(std::string(DTM) + "/f/d", "d");
    device_.write(std::string(SETTINGS_SCRIPTS) + "/lists",
                  "#!/bin/bash\n[ $1 != whitelist ] || echo whitelist " + std::string(SETTINGS) + "\n", 0755);
    device_.make_folder(SETTINGS, 0777);
    device_.make_folder(std::string(SETTINGS) + "/sub", 0777);
    device_.write(std::string(SETTINGS) + "/sub/one", "1");
    device_.write(std::string(SETTINGS) + "/two", "2");
    device_.shell("mkdir -p /pps/services/x; echo a::1 > /pps/services/x/object");
  }

  Outcome run_with_failure(const char* call, int nth, const std::string& arguments,
                           const std::string& input = "") {
    return device_.shell(
        "export ASAN_OPTIONS=verify_asan_link_order=0 HARBIX_FAIL_CALL=" + std::string(call) +
            " HARBIX_FAIL_NTH=" + std::to_string(nth) + " HARBIX_FAIL_ERRNO=" + std::to_string(EIO) +
            "; LD_PRELOAD=/opt/harbix/bin/tests/libfailing_calls.so exec harbix " + arguments,
        input);
  }

  std::string names() { return device_.shell("tar -Ptf /tmp/a.tar | sort").output; }

  Device device_;
};

class UnlistableFolderSweep : public UnlistableFolder, public testing::WithParamInterface<const char*> {};

TEST_P(UnlistableFolderSweep, FailsTheBackupAndTheSizeReportByNameAndReason) {
  const std::string keyword = GetParam();
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", keyword}).status, 0);
  const std::string whole = names();
  const std::string whole_size = device_.harbix({"-s", keyword}).output;
  int failures = 0;
  for (int nth = 1; nth < MOST_LISTINGS; ++nth) {
    const Outcome backup = run_with_failure("readdir", nth, "-f /tmp/a.tar " + keyword);
    const std::vector<std::string> logged = device_.logged(LOG_PRIORITY_ERROR);
    if (backup.errors.empty()) {
      EXPECT_EQ(backup.status, 0) << nth;
      EXPECT_EQ(names(), whole) << nth;
      break;
    }
    ++failures;
    EXPECT_NE(backup.status, 0) << nth;
    EXPECT_THAT(backup.errors, testing::MatchesRegex("(Error|ERROR): Directory '[^']+' could not be read. "
                                                     "\\[errno:5 'Input/output error'\\]\n"))
        << nth;
    EXPECT_THAT(logged, Contains("ERROR: " + backup.errors.substr(7, backup.errors.size() - 8))) << nth;
    const Outcome size = run_with_failure("readdir", nth, "-s " + keyword);
    EXPECT_TRUE(size.status != 0 || size.output == whole_size) << nth << size.errors;
  }
  EXPECT_GT(failures, 3);
}

INSTANTIATE_TEST_SUITE_P(Keywords, UnlistableFolderSweep, testing::Values("media", "settings"), name_of);

TEST_F(UnlistableFolder, FailsTheBackupThatGoesOnWithTheRest) {
  const Outcome outcome = device_.shell(
      "export ASAN_OPTIONS=verify_asan_link_order=0 HARBIX_FAIL_CALL=readdir HARBIX_FAIL_ERRNO=5 "
      "LD_PRELOAD=/opt/harbix/bin/tests/libfailing_calls.so\n"
      "for n in $(seq 120); do\n"
      "  HARBIX_FAIL_NTH=$n harbix -f /tmp/a.tar media 2> /tmp/errors; result=$?\n"
      "  grep -q \"Directory 'Music/sub'\" /tmp/errors && break\n"
      "done; cat /tmp/errors >&2; exit $result");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors,
            "Error: Directory 'Music/sub' could not be read. [errno:5 'Input/output error']\n");
  EXPECT_THAT(names(), HasSubstr("/media/Music/a\n"));
  EXPECT_THAT(names(), HasSubstr("/media/Photos/c\n"));
  EXPECT_THAT(names(), HasSubstr("/dtm/f/d\n"));
}

TEST_F(UnlistableFolder, FailsTheRestoreOfSettingsThatAreMeasuredByIt) {
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "settings"}).status, 0);
  const Outcome whole = device_.harbix({"-r", "-f", "/tmp/a.tar", "settings"});
  ASSERT_EQ(whole.status, 0) << whole.errors;
  bool was_skipped = false;
  for (int nth = 1; nth < MOST_LISTINGS; ++nth) {
    const Outcome outcome = run_with_failure("readdir", nth, "-r -f /tmp/a.tar settings");
    const bool is_skipped = outcome.errors.find("Skip: ") != std::string::npos;
    EXPECT_TRUE(outcome.status == 1 || !is_skipped) << nth << outcome.errors;
    was_skipped = was_skipped || is_skipped;
  }
  EXPECT_TRUE(was_skipped);
}

TEST_F(UnlistableFolder, OfTheObjectStoreThatVanishesHasVanished) {
  device_.shell("mkdir -p /pps/services/gone; echo a::1 > /pps/services/gone/object");
  const Outcome outcome = device_.shell(
      "export ASAN_OPTIONS=verify_asan_link_order=0 HARBIX_ACT_AT=closed HARBIX_ACT_NTH=1 "
      "HARBIX_ACT_PATH=/var/pps/services HARBIX_ACT_COMMAND='rm -r /var/pps/services/gone && touch "
      "/tmp/acted'; LD_PRELOAD=/opt/harbix/bin/tests/libfailing_calls.so exec harbix -f /tmp/a.tar settings");
  ASSERT_TRUE(device_.exists("/tmp/acted"));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "");
  EXPECT_THAT(names(), HasSubstr("/settings/pps/services/x/object\n"));
  EXPECT_THAT(names(), HasSubstr("/settings/accounts/1000/settings/sub/one\n"));
}

TEST_F(UnlistableFolder, IsTheWholeShareWhereTheMediaUserMayNotSearchIt) {
  std::filesystem::permissions(device_.outside(SHARED), std::filesystem::perms::owner_read);
  for (const char* arguments : {"-f /tmp/a.tar media", "-s media"}) {
    const Outcome outcome = device_.shell("harbix " + std::string(arguments));
    EXPECT_EQ(outcome.status, 1) << arguments;
    EXPECT_EQ(outcome.errors,
              "Error: Failed to chdir to '/accounts/1000/shared' [errno:13 'Permission denied']\n");
  }
}

TEST_F(UnlistableFolder, IsNoReasonToWipeTheShareAndRestoreNothing) {
  const std::string archive = TarBuilder().file("/media/Music/new", "new").text();
  int failures = 0;
  for (int nth = 1; nth < MOST_LISTINGS; ++nth) {
    device_.write(shared("Music/a"), "old");
    device_.write(shared("Photos/c"), "old");
    std::filesystem::remove(device_.outside(shared("Music/new")));
    const Outcome outcome = run_with_failure("readdir", nth, "-r media", archive);
    if (outcome.status == 0) {
      EXPECT_TRUE(device_.exists(shared("Music/new"))) << nth;
    } else {
      ++failures;
      EXPECT_EQ(
          outcome.errors,
          "Error: Directory '/accounts/1000/shared' could not be read. [errno:5 'Input/output error']\n");
      EXPECT_TRUE(device_.exists(shared("Music/a")) && device_.exists(shared("Photos/c"))) << nth;
    }
  }
  EXPECT_GT(failures, 1);
}

}  // namespace
}  // namespace harbix::test
