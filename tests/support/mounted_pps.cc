#include "tests/support/mounted_pps.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>

#include "tests/support/require.h"

namespace harbix::test {
namespace {

constexpr int CANNOT_MOUNT = 127;
constexpr int SIGNAL_STATUS = 128;

int exit_status(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : SIGNAL_STATUS + WTERMSIG(status);
}

}  // namespace

void MountedPps::SetUpTestSuite() {
  static bool entered = false;
  if (entered) return;
  if (::unshare(CLONE_NEWNS) == -1) fail("no mount namespace");
  if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == -1) fail("no private mounts");
  entered = true;
}

MountedPps::MountedPps() {
  if (::mkdir(mount().c_str(), 0755) == -1) fail("no mount point");
}

MountedPps::~MountedPps() {
  if (server_ != -1) {
    // One that has ended by itself is as good.
    static_cast<void>(::kill(server_, SIGKILL));
    static_cast<void>(::waitpid(server_, nullptr, 0));
  }
  // A server that was killed leaves its mount, and the next one mounts on top of it.
  while (unmount()) {
  }
}

void MountedPps::TearDown() {
  if (server_ != -1) {
    EXPECT_EQ(stop(SIGTERM), 0);
  }
}

pid_t MountedPps::launch(const std::vector<std::string>& arguments) {
  std::string program = HARBIX_PPS;
  std::vector<std::string> texts = arguments;
  std::vector<char*> pointers{program.data()};
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  const pid_t id = ::fork();
  if (id == -1) fail("cannot fork");
  if (id == 0) {
    // A test that is killed must not leave its server behind.
    if (::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0) ::execv(program.c_str(), pointers.data());
    ::_exit(CANNOT_MOUNT);
  }
  return id;
}

void MountedPps::start() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) == -1) fail("cannot make a pipe");
  const base::FileDescriptor output(ends[0]);
  base::FileDescriptor input(ends[1]);
  if (::fcntl(input.get(), F_SETFD, 0) == -1) fail("cannot hand the pipe on");
  server_ = launch({"--store", store(), "--ready-fd", std::to_string(input.get()), mount()});
  input.close();
  ASSERT_EQ(read_text(output), "\n") << "harbix-pps could not mount; these tests need root and /dev/fuse";
}

int MountedPps::stop(int signal) {
  if (::kill(server_, signal) == -1) fail("cannot stop the server");
  return wait_for_end();
}

int MountedPps::wait_for_end() {
  int status = 0;
  while (::waitpid(server_, &status, 0) == -1) {
    if (errno != EINTR) fail("cannot wait for the server");
  }
  server_ = -1;
  return exit_status(status);
}

bool MountedPps::unmount() const { return ::umount2(mount().c_str(), MNT_DETACH) == 0; }

Outcome MountedPps::shell(const std::string& command) const {
  return run_program({"sh", "-c", "cd '" + mount() + "' && { " + command + "\n} 2>&1"});
}

std::string MountedPps::run(const std::string& command) const {
  const Outcome outcome = shell(command);
  EXPECT_EQ(outcome.status, 0) << command << "\n" << outcome.output;
  return outcome.output;
}

std::string MountedPps::cat(const std::string& name) const {
  const auto object = open_object(path(name), O_RDONLY);
  std::string all;
  for (std::string piece = read_text(object); !piece.empty(); piece = read_text(object)) all += piece;
  return all;
}

int MountedPps::write_error(const std::string& name, int flags, const std::string& text) const {
  try {
    auto object = open_object(path(name), flags);
    if (!text.empty()) write_text(object, text);
    return object.close();
  } catch (const std::system_error& error) {
    return error.code().value();
  }
}

}  // namespace harbix::test
