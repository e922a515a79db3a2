#include "tests/support/device_process.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

namespace harbix::test {
namespace {

base::FileDescriptor memory_file(std::string_view content) {
  base::FileDescriptor file(::memfd_create("test", MFD_CLOEXEC));
  if (!file) throw std::runtime_error("memfd_create failed");
  while (!content.empty()) {
    const ssize_t written = ::write(file.get(), content.data(), content.size());
    if (written == -1) throw std::runtime_error("cannot write to memory");
    content.remove_prefix(static_cast<std::size_t>(written));
  }
  if (::lseek(file.get(), 0, SEEK_SET) == -1) throw std::runtime_error("cannot seek in memory");
  return file;
}

std::string read_all(int file) {
  std::string text;
  std::array<char, 65536> part = {};
  for (ssize_t size = 0; (size = ::read(file, part.data(), part.size())) > 0;) {
    text.append(part.data(), static_cast<std::size_t>(size));
  }
  return text;
}

/// A shell that runs the tests in its background has them ignore SIGINT and SIGQUIT, and so would the
/// device's COMMAND.
void reset_signals() {
  for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
    if (std::signal(signal, SIG_DFL) == SIG_ERR) ::_exit(98);
  }
}

/// Runs `words` in place of this process.
[[noreturn]] void execute(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  ::execvp(arguments.front(), arguments.data());
  ::_exit(99);
}

Result result_of(pid_t process, const std::string& output, const base::FileDescriptor& errors) {
  int status = 0;
  EXPECT_EQ(process, ::waitpid(process, &status, 0));
  EXPECT_EQ(::lseek(errors.get(), 0, SEEK_SET), 0);
  return {.status = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status),
          .output = output,
          .errors = read_all(errors.get())};
}

}  // namespace

DeviceProcess::DeviceProcess(const std::vector<std::string>& arguments, const std::string& input,
                             void (*setup)())
    : errors_(memory_file("")) {
  std::vector<std::string> words = {HARBIX_DEVICE_PROGRAM};
  words.insert(words.end(), arguments.begin(), arguments.end());
  const base::FileDescriptor source = memory_file(input);
  std::array<int, 2> ends = {};
  if (::pipe2(ends.data(), O_CLOEXEC) == -1) throw std::runtime_error("cannot make a pipe");
  output_ = base::FileDescriptor(ends[0]);
  const base::FileDescriptor sink(ends[1]);
  pid_ = ::fork();
  if (pid_ == -1) throw std::runtime_error("cannot fork");
  if (pid_ == 0) {
    ::dup2(source.get(), STDIN_FILENO);
    ::dup2(sink.get(), STDOUT_FILENO);
    ::dup2(errors_.get(), STDERR_FILENO);
    reset_signals();
    if (setup != nullptr) setup();
    execute(words);
  }
}

DeviceProcess::~DeviceProcess() {
  if (pid_ == -1) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

std::string DeviceProcess::read_line() {
  std::string line;
  char character = 0;
  while (::read(output_.get(), &character, 1) == 1 && character != '\n') line += character;
  return line;
}

pid_t DeviceProcess::first_process() const {
  const std::string number = std::to_string(pid_);
  std::ifstream children("/proc/" + number + "/task/" + number + "/children");
  pid_t child = -1;
  EXPECT_TRUE(children >> child);
  return child;
}

Result DeviceProcess::wait() {
  // Ends only when the last process of the device is gone.
  const std::string output = read_all(output_.get());
  return result_of(std::exchange(pid_, -1), output, errors_);
}

Result run_device(const std::vector<std::string>& arguments, const std::string& input) {
  return DeviceProcess(arguments, input).wait();
}

Result run_on_host(const std::string& script, const std::string& folder) {
  const base::FileDescriptor output = memory_file("");
  const base::FileDescriptor errors = memory_file("");
  const pid_t process = ::fork();
  if (process == 0) {
    ::dup2(output.get(), STDOUT_FILENO);
    ::dup2(errors.get(), STDERR_FILENO);
    reset_signals();
    execute({"env", std::string("device=") + HARBIX_DEVICE_PROGRAM, "folder=" + folder, "sh", "-c", script});
  }
  Result result = result_of(process, "", errors);
  EXPECT_EQ(::lseek(output.get(), 0, SEEK_SET), 0);
  result.output = read_all(output.get());
  return result;
}

bool can_end_within(std::chrono::seconds limit, const std::function<void()>& attempt) {
  constexpr int ATTEMPTS = 5;
  for (int i = 0; i < ATTEMPTS; ++i) {
    const auto start = std::chrono::steady_clock::now();
    attempt();
    if (std::chrono::steady_clock::now() - start < limit) return true;
  }
  return false;
}

}  // namespace harbix::test
