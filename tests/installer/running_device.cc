#include "tests/installer/running_device.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <system_error>

namespace harbix::test {

void RunningDevice::SetUp() {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can start a device";
  start();
}

void RunningDevice::TearDown() {
  if (device_) stop();
}

void RunningDevice::start() {
  device_ = std::make_unique<DeviceProcess>(
      std::vector<std::string>{"--bare", "--state", state_, "sh", "-c", "echo up; exec sleep 300"});
  ASSERT_EQ(device_->read_line(), "up") << device_->wait().errors;
}

void RunningDevice::stop() {
  ASSERT_EQ(::kill(device_->pid(), SIGTERM), 0);
  const Outcome result = device_->wait();
  EXPECT_EQ(result.status, 128 + SIGTERM);
  EXPECT_EQ(result.errors, expected_errors_);
  device_.reset();
  expected_errors_.clear();
}

void RunningDevice::enter() const {
  const std::string process = "/proc/" + std::to_string(device_->first_process());
  const auto root = open_object(process + "/root", O_PATH | O_DIRECTORY);
  // The process namespace comes into force with the next child: a shell can then signal what it sees.
  for (const auto& [name, type] : {std::pair("pid", CLONE_NEWPID), std::pair("mnt", CLONE_NEWNS)}) {
    const auto target = open_object(process + "/ns/" + name, O_RDONLY);
    if (::setns(target.get(), type) == -1) throw std::system_error(errno, std::generic_category(), name);
  }
  // Which the namespace itself does not have where these tests run below another root folder than the
  // machine's.
  if (::fchdir(root.get()) == -1 || ::chroot(".") == -1)
    throw std::system_error(errno, std::generic_category(), "root");
}

std::string RunningDevice::inside(const std::function<std::string()>& work) const {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) == -1) throw std::system_error(errno, std::generic_category(), "pipe");
  const base::FileDescriptor output(ends[0]);
  base::FileDescriptor input(ends[1]);
  const Process process([&] {
    try {
      enter();
      write_text(input, work());
    } catch (const std::exception& error) {
      write_text(input, std::string("threw: ") + error.what());
    }
    return 0;
  });
  input.close();
  std::string all;
  for (std::string piece = read_text(output); !piece.empty(); piece = read_text(output)) all += piece;
  return all;
}

std::string RunningDevice::shell(const std::string& script) const {
  return inside([&] { return run_program({"sh", "-c", "{ " + script + "\n} 2>&1"}).output; });
}

std::unique_ptr<Process> RunningDevice::beside(const std::function<void()>& work) const {
  return std::make_unique<Process>([&] {
    enter();
    work();
    return 0;
  });
}

std::string RunningDevice::exchange(const std::string& request) const {
  return inside([&] { return exchange_here(request); });
}

void RunningDevice::make_application(const std::string& id, const std::string& package) const {
  const std::string folder = outside("/apps/" + id);
  std::filesystem::create_directories(folder + "/META-INF");
  write_file(folder + "/META-INF/MANIFEST.MF", "Package-Name: " + package + "\nPackage-Version: 1.0.0.1\n");
}

void RunningDevice::control(const std::string& lines) const {
  ASSERT_EQ(inside([&] {
              write_text(open_object("/pps/system/installer/control", O_WRONLY | O_CREAT), lines);
              return std::string("done");
            }),
            "done");
}

std::string enrollment(const std::string& id, const std::string& extras, const std::string& gid) {
  std::string request = "action::register\npackage_path::/apps/";
  request.append(id).append("\nextras::").append(extras).append("\ngid::").append(gid).append("\n");
  return request;
}

Exchange::Exchange(const std::string& request) {
  static unsigned int counter = 0;
  path_ = std::string(REQUESTS) + "/test" + std::to_string(::getpid()) + "_" + std::to_string(counter++);
  object_ = open_object(path_ + "?wait,delta", O_RDWR | O_CREAT | O_EXCL, 0660);
  write(request);
}

Exchange::~Exchange() { ::unlink(path_.c_str()); }  // The service may have taken it away.

std::string Exchange::answer() const {
  std::string lines;
  std::string rest;
  for (;;) {
    const std::string piece = read_text(object_);
    if (piece.empty()) return lines + "(end)\n";
    rest += piece;
    for (std::size_t end = 0; (end = rest.find('\n')) != std::string::npos;) {
      const std::string line = rest.substr(0, end + 1);
      rest.erase(0, end + 1);
      if (line.starts_with('@')) continue;
      lines += line;
      if (line.starts_with("result:")) return lines;
    }
  }
}

std::string exchange_here(const std::string& request) { return Exchange(request).answer(); }

std::map<std::string, std::string> values_of(const std::string& answer) {
  std::map<std::string, std::string> values;
  std::istringstream lines(answer);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t first = line.find(':');
    if (first == std::string::npos) continue;
    values[line.substr(0, first)] = line.substr(line.find(':', first + 1) + 1);
  }
  return values;
}

}  // namespace harbix::test
