#include <sched.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): kill is POSIX's, not C's
#include <stdlib.h>  // NOLINT(modernize-deprecated-headers): setenv is POSIX's, not C's
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device/content/random.h"
#include "tests/support/device_process.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

constexpr const char* MARK = "HARBIX_TEST_DEVICE";
// What COMMAND becomes in the device that start() starts.
constexpr const char* COMMAND = "tail";

/// What /proc says about a process; empty when it is gone.
std::string process_file(const std::string& process, const std::string& name) {
  std::ifstream file("/proc/" + process + "/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Runs one device and checks that the host is as before when it is over.
///
/// Other tests run devices at the same time, and the numbers of namespaces are given out again at once: the
/// device's processes are known by a variable in their environment that no other device has.
class DeviceLeftovers : public testing::Test {
 protected:
  void SetUp() override {
    REQUIRE_ROOT();
    // Mounts that others make meanwhile are not seen here; those of the device would be, even from its own
    // namespace.
    ASSERT_EQ(::unshare(CLONE_NEWNS), 0);
    ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_SHARED, nullptr), 0);
    ASSERT_EQ(::setenv(MARK, (folder_ / "").c_str(), 1), 0);
    mounts_ = read_file("/proc/mounts");
  }

  /// Starts a device that has processes in several places: COMMAND, children, a session of its own, a
  /// service.
  DeviceProcess& start(std::vector<std::string> options) {
    for (const char* word : {"sh", "-c", "sleep 61 & setsid sleep 62 & echo up; exec tail -f /dev/null"}) {
      options.emplace_back(word);
    }
    device_ = std::make_unique<DeviceProcess>(options);
    EXPECT_EQ(device_->read_line(), "up");
    EXPECT_NE(inhabitant(COMMAND), -1);
    EXPECT_NE(inhabitant("harbix-pps"), -1);
    EXPECT_GE(inhabitants().size(), 6U);
    return *device_;
  }

  /// The host's numbers and the names of the program itself and of all processes on its device. One that has
  /// ended and only waits for its parent to take notice has no environment any more.
  [[nodiscard]] std::map<pid_t, std::string> inhabitants() const {
    const std::string mark = std::string(MARK) + "=" + (folder_ / "");
    std::map<pid_t, std::string> found;
    for (const auto& item : std::filesystem::directory_iterator("/proc")) {
      const std::string number = item.path().filename().string();
      if (number.find_first_not_of("0123456789") != std::string::npos) continue;
      const std::string environment = '\0' + process_file(number, "environ");
      if (environment.find('\0' + mark + '\0') == std::string::npos) continue;
      const std::string name = process_file(number, "comm");
      found.emplace(std::stoi(number), name.substr(0, name.find('\n')));
    }
    return found;
  }

  /// The process of the device that runs the program `name`, which may be about to start; -1 when there is
  /// none.
  [[nodiscard]] pid_t inhabitant(const std::string& name) const {
    for (int wait = 0; wait < 200; ++wait) {
      for (const auto& [process, program] : inhabitants()) {
        if (program == name) return process;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return -1;
  }

  void expect_nothing_left() const {
    // What was killed with its parent needs a moment to be gone.
    for (int wait = 0; wait < 200 && !inhabitants().empty(); ++wait) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_THAT(inhabitants(), testing::IsEmpty());
    // What the device has mounted goes with its last process, unless it was mounted here.
    EXPECT_EQ(read_file("/proc/mounts"), mounts_);
    EXPECT_TRUE(std::filesystem::is_empty(folder_ / "")) << listing(folder_ / "");
  }

  TemporaryFolder folder_;
  std::unique_ptr<DeviceProcess> device_;

 private:
  std::string mounts_;
};

TEST_F(DeviceLeftovers, NoneAfterSuccessAndFailure) {
  for (const int status : {0, 1, 127}) {
    const auto result = run_on_host(
        "cd \"$folder\" && \"$device\" sh -c 'echo x > /pps/x; xargs -0 -n 1 < /proc/self/environ; exit " +
            std::to_string(status) + "'",
        folder_ / "");
    EXPECT_EQ(result.status, status) << result.errors;
    EXPECT_THAT(result.output, testing::HasSubstr(std::string(MARK) + "=" + (folder_ / "") + "\n"));
    expect_nothing_left();
  }
}

TEST_F(DeviceLeftovers, NoneAfterInterruptAndTermination) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    DeviceProcess& device = start({"--bare"});
    ASSERT_EQ(::kill(device.pid(), signal), 0);
    EXPECT_EQ(device.wait().status, 128 + signal);
    expect_nothing_left();
  }
}

TEST_F(DeviceLeftovers, NoneAfterTheProgramIsKilled) {
  for (const std::vector<std::string>& options :
       {std::vector<std::string>{}, std::vector<std::string>{"--bare"}}) {
    DeviceProcess& device = start(options);
    ASSERT_EQ(::kill(device.pid(), SIGKILL), 0);
    EXPECT_EQ(device.wait().status, -SIGKILL);
    expect_nothing_left();
  }
}

TEST_F(DeviceLeftovers, NoneAfterTheFirstProcessIsKilled) {
  DeviceProcess& device = start({"--bare"});
  ASSERT_EQ(::kill(device.first_process(), SIGKILL), 0);
  const Outcome result = device.wait();
  EXPECT_EQ(result.status, 128 + SIGKILL);
  EXPECT_EQ(result.errors, "harbix-device: the device was killed by signal 9\n");
  expect_nothing_left();
}

TEST_F(DeviceLeftovers, NoneAfterTheCommandIsKilled) {
  DeviceProcess& device = start({"--bare"});
  ASSERT_EQ(::kill(inhabitant(COMMAND), SIGKILL), 0);
  EXPECT_EQ(device.wait().status, 128 + SIGKILL);
  expect_nothing_left();
}

TEST_F(DeviceLeftovers, NoneAfterAServiceIsKilled) {
  DeviceProcess device(
      {"--bare", "sh", "-c", "echo up; while pgrep harbix-pps >/dev/null; do sleep 0.02; done; exit 3"});
  ASSERT_EQ(device.read_line(), "up");
  const pid_t service = inhabitant("harbix-pps");
  ASSERT_NE(service, -1);
  ASSERT_EQ(::kill(service, SIGKILL), 0);
  EXPECT_EQ(device.wait().status, 3);
  expect_nothing_left();
}

TEST_F(DeviceLeftovers, NoneInAKeptFolderAfterAKill) {
  const TemporaryFolder other;
  DeviceProcess& device = start({"--bare", "--state", other / "state"});
  ASSERT_EQ(::kill(device.pid(), SIGKILL), 0);
  EXPECT_EQ(device.wait().status, -SIGKILL);
  expect_nothing_left();
  EXPECT_TRUE(std::filesystem::is_empty(other / "state/usr"));
}

TEST_F(DeviceLeftovers, NoneHoweverEarlyTheKill) {
  // Kills at different moments of the set-up, and of the filling of a kept folder.
  const TemporaryFolder other;
  for (int step = 0; step < 60; ++step) {
    DeviceProcess device({"--state", other / "state", "sleep", "60"});
    ::usleep(static_cast<useconds_t>(step) * 1500);
    ASSERT_EQ(::kill(device.pid(), SIGKILL), 0);
    const Outcome result = device.wait();
    EXPECT_EQ(result.status, -SIGKILL) << result.errors;
  }
  EXPECT_EQ(run_device({"--state", other / "state", "echo", "works"}).output, "works\n");
}

TEST_F(DeviceLeftovers, NoneHoweverEarlyTheSignal) {
  // The same moments on each run, for all that the machine's load lets be the same.
  device::Random random("moments");
  constexpr std::uint64_t LONGEST_MICROSECONDS = 60000;
  for (int round = 0; round < 120; ++round) {
    const int signal = std::array{SIGINT, SIGTERM, SIGHUP, SIGKILL}.at(random.between(0, 3));
    const auto moment = static_cast<useconds_t>(random.between(0, LONGEST_MICROSECONDS));
    DeviceProcess device({"--bare", "sleep", "60"});
    ::usleep(moment);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(::kill(device.pid(), signal), 0);
    const Outcome result = device.wait();
    // Killed itself before it could hold the signal back, it has made nothing yet.
    EXPECT_THAT(result.status, testing::AnyOf(128 + signal, -signal)) << moment << result.errors;
    // A device whose program was killed says so when it was not under way yet.
    EXPECT_THAT(result.errors, testing::AnyOf("", "harbix-device: the parent process is gone\n")) << moment;
    if (signal != SIGKILL) {
      EXPECT_EQ(result.errors, "") << moment;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30))
        << signal << " after " << moment;
  }
  expect_nothing_left();
}

}  // namespace
}  // namespace harbix::test
