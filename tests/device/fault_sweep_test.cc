#include <sys/stat.h>

#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/application_device.h"
#include "tests/support/test_name.h"

namespace harbix::test {
namespace {

constexpr int MOST_CALLS = 500;
/// So many runs without a failure in a row that no call can be left.
constexpr int ENOUGH_CLEAN_RUNS = 30;
constexpr int ENOUGH_CLEAN_RUNS_OF_APPLICATIONS = 10;

/// Runs harbix with one call of a function failing.
Outcome run_with_failure(Device& device, const char* call, int nth, int error, const std::string& arguments) {
  // The sanitizers want to come first, and do as well in second place.
  return device.run({"bash", "-c",
                     "export ASAN_OPTIONS=verify_asan_link_order=0 HARBIX_FAIL_CALL=" + std::string(call) +
                         " HARBIX_FAIL_NTH=" + std::to_string(nth) +
                         " HARBIX_FAIL_ERRNO=" + std::to_string(error) +
                         "; LD_PRELOAD=/opt/harbix/bin/tests/libfailing_calls.so exec harbix " + arguments});
}

/// Whether standard error or the log names this path.
bool is_told(const Device& device, const Outcome& outcome, const std::string& path) {
  std::string told = outcome.errors;
  for (const LogLine& line : device.log()) told += line.text + "\n";
  return told.find(path) != std::string::npos;
}

/// Holds what a restore with a failing call left against what it should have left: a run with status 0 has
/// reported every item that is not as it should be, and no object is there that was not complete.
void expect_told(const Device& device, const Outcome& outcome, const Snapshot& wanted, const Snapshot& found,
                 int nth) {
  for (const auto& [path, item] : found) {
    EXPECT_EQ(path.find(".harbix-"), std::string::npos) << path << " after call " << nth;
  }
  if (outcome.status != 0) return;
  for (const auto& [path, item] : wanted) {
    const auto same = found.find(path);
    if (same != found.end() && same->second == item) continue;
    EXPECT_TRUE(is_told(device, outcome, path)) << path << " after call " << nth << ": " << outcome.errors;
  }
}

/// Lets every single call of one function fail in turn, until a run meets none that fails.
class MediaFaultSweep : public testing::TestWithParam<const char*> {
 protected:
  MediaFaultSweep() {
    device_.write(std::string(SHARED) + "/Music/a.mp3", std::string(40000, 'a'));
    device_.write(std::string(SHARED) + "/Music/sub/b.mp3", "b");
    device_.link(std::string(SHARED) + "/Music/link", "a.mp3");
    device_.write(std::string(DTM) + "/folder/file", "dtm");
    for (const char* item : {"/folder", "/folder/file"})
      device_.own(DTM + std::string(item), "root", "1000_sys");
    // Its mode is settled at the end of a restore.
    device_.make_folder(std::string(SHARED) + "/Music/closed", 0550);
  }

  Outcome run(const std::string& arguments, int nth, int error) {
    return run_with_failure(device_, GetParam(), nth, error, arguments);
  }

  Snapshot restored() { return device_.snapshot("/accounts/1000"); }

  Device device_;
};

class MediaBackupFaultSweep : public MediaFaultSweep {};

TEST_P(MediaBackupFaultSweep, LeavesNoBrokenArchiveUntold) {
  ASSERT_EQ(device_.harbix({"-f", "/tmp/whole.tar", "media"}).status, 0);
  const std::string list = "tar -Ptf /tmp/a.tar | sort";
  const std::string whole = device_.shell("tar -Ptf /tmp/whole.tar | sort").output;
  bool met_failure = false;
  int nth = 1;
  for (; nth < MOST_CALLS; ++nth) {
    std::filesystem::remove(device_.outside("/tmp/a.tar"));
    const Outcome outcome = run("-f /tmp/a.tar media", nth, EIO);
    ASSERT_LT(outcome.status, 128) << nth << ": " << outcome.errors;
    const bool is_silent = outcome.errors.empty() && device_.logged(LOG_PRIORITY_WARNING).empty();
    if (outcome.status == 0 && is_silent) {
      EXPECT_EQ(device_.shell(list).output, whole) << nth;
      if (met_failure) break;
    } else {
      met_failure = true;
      EXPECT_FALSE(is_silent) << nth;
      if (outcome.status == 0) {
        EXPECT_EQ(device_.shell("tar -Ptf /tmp/a.tar > /dev/null").status, 0) << nth;
      }
    }
  }
  EXPECT_TRUE(met_failure);
  EXPECT_LT(nth, MOST_CALLS);
}

class MediaRestoreFaultSweep : public MediaFaultSweep {};

TEST_P(MediaRestoreFaultSweep, TellsOfWhatIsMissing) {
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "media"}).status, 0);
  const Snapshot before = restored();
  int clean_runs = 0;
  for (int nth = 1; nth < MOST_CALLS && clean_runs < ENOUGH_CLEAN_RUNS; ++nth) {
    const Outcome outcome = run("-r -f /tmp/a.tar media", nth, ENOSPC);
    ASSERT_LT(outcome.status, 128) << nth << ": " << outcome.errors;
    const Snapshot after = restored();
    expect_told(device_, outcome, before, after, nth);
    if (outcome.status == 0) {
      EXPECT_EQ(difference(before, after), "") << "after call " << nth << ": " << outcome.errors;
    }
    if (outcome.status == 0 && outcome.errors.empty() && after == before) ++clean_runs;
    if (after == before) continue;
    ASSERT_EQ(device_.harbix({"-r", "-f", "/tmp/a.tar", "media"}).status, 0) << "after call " << nth;
    EXPECT_EQ(difference(before, restored()), "") << "after call " << nth;
  }
  EXPECT_GE(clean_runs, ENOUGH_CLEAN_RUNS);
}

class MediaOnAnOldKernel : public MediaFaultSweep {};

TEST_P(MediaOnAnOldKernel, AreBackedUpAndRestoredAsOnANewOne) {
  const Snapshot before = restored();
  ASSERT_EQ(device_.harbix({"-f", "/tmp/new.tar", "media"}).status, 0);
  EXPECT_EQ(run("-f /tmp/old.tar media", 1, ENOSYS).errors, "");
  const std::string list = "tar -Ptf /tmp/";
  EXPECT_EQ(device_.shell(list + "old.tar").output, device_.shell(list + "new.tar").output);
  EXPECT_EQ(run("-r -f /tmp/old.tar media", 1, ENOSYS).errors, "");
  EXPECT_EQ(difference(before, restored()), "");
}

/// The same for a restore of applications, whose owners and modes are set at the end.
class ApplicationFaultSweep : public testing::TestWithParam<const char*> {
 protected:
  ApplicationFaultSweep() {
    device_.install(bought_);
    device_.add_file(bought_, "native/main", "program", 0750);
    device_.install(loaded_);
    for (const InstalledApplication& each : {bought_, loaded_}) {
      device_.add_data(each, "data/folder/state", "state");
      device_.make_owned_link(each.data() + "/data/link", "folder", each.data_user(), each.group);
    }
  }

  Snapshot restored() {
    Snapshot all;
    for (const char* folder : {"/apps", APPLICATION_DATA}) {
      for (auto& [path, item] : device_.snapshot(folder)) all.emplace(folder + ("/" + path), std::move(item));
    }
    return all;
  }

  ApplicationDevice device_;
  InstalledApplication bought_ = bought_application();
  InstalledApplication loaded_ = loaded_application();
};

TEST_P(ApplicationFaultSweep, TellsOfWhatIsMissingOrBelongsToTheWrongUser) {
  const std::string restore = "-r -f /tmp/a.tar app";
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "app"}).status, 0);
  const std::string usual = device_.shell("harbix " + restore).errors;
  const Snapshot before = restored();
  int clean_runs = 0;
  for (int nth = 1; nth < MOST_CALLS && clean_runs < ENOUGH_CLEAN_RUNS_OF_APPLICATIONS; ++nth) {
    const Outcome outcome = run_with_failure(device_, GetParam(), nth, ENOSPC, restore);
    ASSERT_LT(outcome.status, 128) << nth << ": " << outcome.errors;
    const Snapshot after = restored();
    expect_told(device_, outcome, before, after, nth);
    if (outcome.status == 0 && outcome.errors == usual && after == before) ++clean_runs;
  }
  EXPECT_GE(clean_runs, ENOUGH_CLEAN_RUNS_OF_APPLICATIONS);
  ASSERT_EQ(device_.shell("harbix " + restore).status, 0);
  EXPECT_EQ(difference(before, restored()), "");
}

INSTANTIATE_TEST_SUITE_P(Calls, MediaBackupFaultSweep,
                         testing::Values("open", "openat", "openat2", "read", "write", "close"), name_of);
INSTANTIATE_TEST_SUITE_P(Calls, MediaRestoreFaultSweep,
                         testing::Values("open", "openat", "openat2", "read", "write", "pwrite", "close",
                                         "unlinkat", "renameat", "mkdirat", "symlinkat", "fchmod"),
                         name_of);
INSTANTIATE_TEST_SUITE_P(Calls, MediaOnAnOldKernel, testing::Values("openat2"), name_of);
INSTANTIATE_TEST_SUITE_P(Calls, ApplicationFaultSweep,
                         testing::Values("openat", "openat2", "pwrite", "unlinkat", "mkdirat", "symlinkat",
                                         "fchownat", "fchmod"),
                         name_of);

}  // namespace
}  // namespace harbix::test
