#include <sys/stat.h>

#include <system_error>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/device/size_text.h"
#include "tests/support/application_device.h"

namespace harbix::test {
namespace {

using testing::ElementsAre;

/// A storefront application with data, and one from elsewhere.
class AppSize : public testing::Test {
 protected:
  AppSize() {
    device_.install(bought_);
    device_.add_file(bought_, "native/main", std::string(70000, 'x'));
    device_.add_data(bought_, "data/deep/er/state", std::string(1234, 'd'));
    device_.add_data(bought_, "tmp/cache", std::string(5000, 't'));
    device_.install(loaded_);
    device_.add_file(loaded_, "native/main", std::string(90000, 'y'));
    device_.add_data(loaded_, "data/state", std::string(321, 'd'));
  }

  [[nodiscard]] long size_of(const std::string& path) const {
    struct ::stat record {};
    if (::lstat(device_.outside(path).c_str(), &record) == -1) {
      throw std::system_error(errno, std::generic_category(), path);
    }
    return record.st_size;
  }

  /// Of everything below a folder.
  [[nodiscard]] long size_below(const std::string& folder) const {
    long sum = 0;
    const std::filesystem::path root(folder);
    for (const auto& [path, item] : device_.snapshot(folder)) sum += size_of(root / path);
    return sum;
  }

  /// Of what a data package holds: three folders, and what is in the first.
  [[nodiscard]] long data_size(const InstalledApplication& application) const {
    long sum = size_below(application.data() + "/data");
    for (const char* name : {"/data", "/logs", "/tmp"}) sum += size_of(application.data() + name);
    return sum;
  }

  ApplicationDevice device_;
  InstalledApplication bought_ = bought_application();
  InstalledApplication loaded_ = loaded_application();
};

TEST_F(AppSize, AddsUpWhatPackagesWouldHoldAndCountsApplications) {
  const long bought = size_below(bought_.folder()) + data_size(bought_);
  const Outcome outcome = device_.harbix({"-s", "app"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, size_text(EMPTY_REPORT + bought + data_size(loaded_), 2));
  EXPECT_EQ(outcome.errors, "");
  EXPECT_EQ(device_.harbix({"-s", "app", "shop.app.pkg"}).output, size_text(EMPTY_REPORT + bought, 1));
  EXPECT_EQ(device_.harbix({"-s", "app", "sys.navigator"}).output, size_text(EMPTY_REPORT, 0));
}

TEST_F(AppSize, GoesToTheNamedFileAndAsksTheInstallerNothing) {
  device_.ask_faults({"refuse::all"});
  const Outcome outcome = device_.harbix({"-s", "-f", "/tmp/size", "app", "side.app.pkg"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(device_.read("/tmp/size"), size_text(EMPTY_REPORT + data_size(loaded_), 1));
}

TEST_F(AppSize, CountsDataThatIsNotThereAsNothing) {
  std::filesystem::remove_all(device_.outside(loaded_.data()));
  const Outcome outcome = device_.harbix({"-s", "app", "side.app.pkg"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, size_text(EMPTY_REPORT, 1));
}

TEST_F(AppSize, PassesOverALoadedApplicationThatHasLostItsFolder) {
  std::filesystem::remove_all(device_.outside(loaded_.folder()));
  const Outcome outcome = device_.harbix({"-s", "app"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, size_text(EMPTY_REPORT + size_below(bought_.folder()) + data_size(bought_), 1));
}

TEST_F(AppSize, FailsForAStorefrontApplicationThatHasLostItsFolder) {
  device_.enter({.id = "lost", .package = "lost.P9", .group = 10209});
  const Outcome outcome = device_.harbix({"-s", "app"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, "ERROR: Invalid registered app:lost.P9\n");
  EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), ElementsAre("ERROR: Invalid registered app:lost.P9"));
}

TEST_F(AppSize, IsSummedUpWithThoseOfOtherKeywords) {
  const auto bytes_of = [&](const std::string& keywords) {
    const Outcome outcome = device_.harbix({"-s", keywords});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    long bytes = 0;
    int count = 0;
    EXPECT_EQ(std::sscanf(outcome.output.c_str(), "bytesize=%ld\ncount=%d\n", &bytes, &count), 2);
    return std::pair(bytes, count);
  };
  device_.write(std::string(SHARED) + "/Music/a.mp3", "music");
  const auto applications = bytes_of("app");
  const auto media = bytes_of("media");
  EXPECT_GT(media.second, 0);
  const auto both = bytes_of("media_app");
  EXPECT_EQ(both.first, applications.first + media.first - EMPTY_REPORT);
  EXPECT_EQ(both.second, applications.second + media.second);
}

}  // namespace
}  // namespace harbix::test
