#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <set>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device_process.h"
#include "private_folder.h"

namespace {

using device_test::content_of;
using device_test::DeviceProcess;

/// The namespace of `kind` that the process with the given number is in: "pid:[4026531836]". Empty when it is
/// gone.
std::string namespace_of(const std::string& process, const std::string& kind) {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/" + process + "/ns/" + kind, error).string();
}

/// Runs one device and checks that the host is as before when it is over.
class DeviceLeftovers : public testing::Test {
 protected:
  void SetUp() override {
    REQUIRE_ROOT();
    // Mounts that others make meanwhile are not seen here; those of the device would be, even from its own
    // namespace.
    ASSERT_EQ(::unshare(CLONE_NEWNS), 0);
    ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_SHARED, nullptr), 0);
    mounts_ = content_of("/proc/mounts");
  }

  /// Starts a device that has processes in several places: COMMAND, children, a session of its own.
  DeviceProcess& start(std::vector<std::string> options) {
    for (const char* word : {"sh", "-c", "sleep 61 & setsid sleep 62 & echo up; read line; exec sleep 63"}) {
      options.emplace_back(word);
    }
    device_ = std::make_unique<DeviceProcess>(options, "go\n");
    EXPECT_EQ(device_->read_line(), "up");
    const std::string first = std::to_string(device_->first_process());
    remember_namespaces(namespace_of(first, "pid"), namespace_of(first, "mnt"));
    EXPECT_GE(inhabitants().size(), 4U);
    return *device_;
  }

  void remember_namespaces(const std::string& processes, const std::string& mounts) {
    mount_namespace_ = mounts;
    EXPECT_THAT(processes, testing::StartsWith("pid:["));
    EXPECT_THAT(mount_namespace_, testing::StartsWith("mnt:["));
    EXPECT_NE(processes, namespace_of("self", "pid"));
    EXPECT_NE(mount_namespace_, namespace_of("self", "mnt"));
  }

  /// The host's numbers of all processes on the device. One that has ended and only waits for its parent to
  /// take notice is in no mount namespace any more.
  [[nodiscard]] std::set<std::string> inhabitants() const {
    std::set<std::string> found;
    for (const auto& item : std::filesystem::directory_iterator("/proc")) {
      const std::string name = item.path().filename().string();
      if (name.find_first_not_of("0123456789") != std::string::npos) continue;
      if (namespace_of(name, "mnt") == mount_namespace_) found.insert(name);
    }
    return found;
  }

  void expect_nothing_left() const {
    // What was killed with its parent needs a moment to be gone.
    for (int wait = 0; wait < 200 && !inhabitants().empty(); ++wait) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_THAT(inhabitants(), testing::IsEmpty());
    EXPECT_EQ(content_of("/proc/mounts"), mounts_);
    EXPECT_TRUE(std::filesystem::is_empty(folder_ / "")) << device_test::listing(folder_ / "");
  }

  device_test::PrivateFolder folder_;
  std::unique_ptr<DeviceProcess> device_;

 private:
  std::string mounts_;
  std::string mount_namespace_;
};

TEST_F(DeviceLeftovers, NoneAfterSuccessAndFailure) {
  for (const int status : {0, 1, 127}) {
    const auto result = device_test::run_on_host(
        "cd $folder && $device sh -c 'readlink /proc/self/ns/pid /proc/self/ns/mnt; exit " +
            std::to_string(status) + "'",
        folder_ / "");
    EXPECT_EQ(result.status, status) << result.errors;
    const std::size_t first_line = result.output.find('\n');
    remember_namespaces(result.output.substr(0, first_line),
                        result.output.substr(first_line + 1, result.output.size() - first_line - 2));
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
  const device_test::Result result = device.wait();
  EXPECT_EQ(result.status, 128 + SIGKILL);
  EXPECT_EQ(result.errors, "harbix-device: the device was killed by signal 9\n");
  expect_nothing_left();
}

TEST_F(DeviceLeftovers, NoneAfterTheCommandIsKilled) {
  DeviceProcess& device = start({"--bare"});
  // The first child of the device's first process.
  const std::string first = std::to_string(device.first_process());
  const std::string children = content_of("/proc/" + first + "/task/" + first + "/children");
  ASSERT_EQ(::kill(std::stoi(children), SIGKILL), 0);
  EXPECT_EQ(device.wait().status, 128 + SIGKILL);
  expect_nothing_left();
}

TEST_F(DeviceLeftovers, NoneInAKeptFolderAfterAKill) {
  const device_test::PrivateFolder other;
  DeviceProcess& device = start({"--bare", "--state", other / "state"});
  ASSERT_EQ(::kill(device.pid(), SIGKILL), 0);
  EXPECT_EQ(device.wait().status, -SIGKILL);
  expect_nothing_left();
  EXPECT_TRUE(std::filesystem::is_empty(other / "state/usr"));
}

TEST_F(DeviceLeftovers, NoneHoweverEarlyTheKill) {
  // Kills at different moments of the set-up, and of the filling of a kept folder.
  const device_test::PrivateFolder other;
  for (int step = 0; step < 60; ++step) {
    DeviceProcess device({"--state", other / "state", "sleep", "60"});
    ::usleep(static_cast<useconds_t>(step) * 1500);
    ASSERT_EQ(::kill(device.pid(), SIGKILL), 0);
    const device_test::Result result = device.wait();
    EXPECT_EQ(result.status, -SIGKILL) << result.errors;
  }
  EXPECT_EQ(device_test::run_device({"--state", other / "state", "echo", "works"}).output, "works\n");
}

}  // namespace
