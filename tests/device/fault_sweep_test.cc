#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/device.h"

namespace {

using test::Device;
using test::Outcome;

/// Lets every single call of one function fail in turn, until a run meets none that fails.
class FaultSweep : public testing::TestWithParam<const char*> {
 protected:
  FaultSweep() {
    device_.write(std::string(test::SHARED) + "/Music/a.mp3", std::string(40000, 'a'));
    device_.write(std::string(test::SHARED) + "/Music/sub/b.mp3", "b");
    device_.link(std::string(test::SHARED) + "/Music/link", "a.mp3");
    device_.write(std::string(test::DTM) + "/folder/file", "dtm");
    for (const char* item : {"/folder", "/folder/file"})
      device_.own(test::DTM + std::string(item), "root", "1000_sys");
  }

  Outcome run(const std::string& arguments, int nth, int error) {
    // The sanitizers want to come first, and do as well in second place.
    return device_.shell(
        "export ASAN_OPTIONS=verify_asan_link_order=0 HARBIX_FAIL_CALL=" + std::string(GetParam()) +
        " HARBIX_FAIL_NTH=" + std::to_string(nth) + " HARBIX_FAIL_ERRNO=" + std::to_string(error) +
        "; LD_PRELOAD=/opt/harbix/bin/tests/libfailing_calls.so exec harbix " + arguments);
  }

  static constexpr int MOST_CALLS = 500;
  Device device_;
};

TEST_P(FaultSweep, OfABackupLeavesNoBrokenArchiveUntold) {
  ASSERT_EQ(device_.harbix({"-f", "/tmp/whole.tar", "media"}).status, 0);
  const std::string list = "tar -Ptf /tmp/a.tar | sort";
  const std::string whole = device_.shell("tar -Ptf /tmp/whole.tar | sort").output;
  bool met_failure = false;
  int nth = 1;
  for (; nth < MOST_CALLS; ++nth) {
    std::filesystem::remove(device_.outside("/tmp/a.tar"));
    const Outcome outcome = run("-f /tmp/a.tar media", nth, EIO);
    ASSERT_LT(outcome.status, 128) << nth << ": " << outcome.errors;
    if (outcome.status == 0 && outcome.errors.empty()) {
      EXPECT_EQ(device_.shell(list).output, whole) << nth;
      if (met_failure) break;
    } else {
      met_failure = true;
      EXPECT_NE(outcome.errors, "") << nth;
      if (outcome.status == 0) {
        EXPECT_EQ(device_.shell("tar -Ptf /tmp/a.tar > /dev/null").status, 0) << nth;
      }
    }
  }
  EXPECT_TRUE(met_failure);
  EXPECT_LT(nth, MOST_CALLS);
}

TEST_P(FaultSweep, OfARestoreTellsOfWhatIsMissing) {
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "media"}).status, 0);
  const test::Snapshot before = device_.snapshot("/accounts");
  int clean_runs = 0;
  for (int nth = 1; nth < MOST_CALLS && clean_runs < 30; ++nth) {
    const Outcome outcome = run("-r -f /tmp/a.tar media", nth, ENOSPC);
    ASSERT_LT(outcome.status, 128) << nth << ": " << outcome.errors;
    if (outcome.status == 0 && outcome.errors.empty()) {
      EXPECT_EQ(difference(before, device_.snapshot("/accounts")), "") << nth;
      ++clean_runs;
    }
    ASSERT_EQ(device_.harbix({"-r", "-f", "/tmp/a.tar", "media"}).status, 0) << "after call " << nth;
    EXPECT_EQ(difference(before, device_.snapshot("/accounts")), "") << "after call " << nth;
  }
  EXPECT_GE(clean_runs, 30);
}

INSTANTIATE_TEST_SUITE_P(Calls, FaultSweep, testing::Values("open", "read", "write", "close"),
                         [](const testing::TestParamInfo<const char*>& call) {
                           return std::string(call.param);
                         });

}  // namespace
