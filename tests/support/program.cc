#include "tests/support/program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <system_error>
#include <utility>

#include "tests/support/require.h"

namespace harbix::test {
namespace {

using base::FileDescriptor;

constexpr int CANNOT_PREPARE = 98;
constexpr int CANNOT_RUN = 127;

struct Pipe {
  FileDescriptor read_end;
  FileDescriptor write_end;
};

Pipe make_pipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) == -1) fail("pipe2");
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

/// A shell that runs the tests in its background has them ignore SIGINT and SIGQUIT, and so would the
/// program.
void reset_signals() {
  for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
    if (std::signal(signal, SIG_DFL) == SIG_ERR) ::_exit(CANNOT_PREPARE);
  }
}

/// Runs a command in place of this process, a child between fork and exec.
[[noreturn]] void execute(const std::vector<char*>& arguments, const Pipe& input, const Pipe& output,
                          const Pipe& errors, void (*setup)()) {
  if (::dup2(input.read_end.get(), STDIN_FILENO) == -1 ||
      ::dup2(output.write_end.get(), STDOUT_FILENO) == -1 ||
      ::dup2(errors.write_end.get(), STDERR_FILENO) == -1) {
    ::_exit(CANNOT_PREPARE);
  }
  reset_signals();
  if (setup != nullptr) setup();
  ::execvp(arguments.front(), arguments.data());
  ::_exit(CANNOT_RUN);
}

/// A program that does not read its input must not end the test.
class IgnoredPipeSignal {
 public:
  IgnoredPipeSignal() : saved_(std::signal(SIGPIPE, SIG_IGN)) {}
  ~IgnoredPipeSignal() { static_cast<void>(std::signal(SIGPIPE, saved_)); }
  IgnoredPipeSignal(const IgnoredPipeSignal&) = delete;
  IgnoredPipeSignal& operator=(const IgnoredPipeSignal&) = delete;

 private:
  void (*saved_)(int);
};

/// Reads what is there; false at the end.
bool drain(const FileDescriptor& from, std::string& into) {
  std::array<char, 65536> buffer{};
  const ssize_t count = ::read(from.get(), buffer.data(), buffer.size());
  if (count > 0) into.append(buffer.data(), static_cast<std::size_t>(count));
  return count > 0 || (count == -1 && errno == EINTR);
}

/// Writes what finds room, and closes the input when nothing is left or the program reads no more.
void feed(FileDescriptor& input, std::string& rest) {
  const IgnoredPipeSignal guard;
  const ssize_t count = ::write(input.get(), rest.data(), rest.size());
  if (count >= 0) {
    rest.erase(0, static_cast<std::size_t>(count));
  } else if (errno != EAGAIN && errno != EINTR) {
    rest.clear();
  }
  if (rest.empty()) input.close();
}

int run_body(const std::function<void()>& body) {
  try {
    body();
  } catch (const std::exception& error) {
    ADD_FAILURE() << "left by an exception: " << error.what();
  }
  return ::testing::Test::HasFailure() ? 1 : 0;
}

}  // namespace

Program::Program(const std::vector<std::string>& command, std::string input, void (*setup)())
    : unread_(std::move(input)) {
  Pipe to_child = make_pipe();
  Pipe output = make_pipe();
  Pipe errors = make_pipe();
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  // exec does not write through these.
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  pid_ = ::fork();
  if (pid_ == -1) fail("fork");
  if (pid_ == 0) execute(arguments, to_child, output, errors, setup);
  input_ = std::move(to_child.write_end);
  output_ = std::move(output.read_end);
  errors_ = std::move(errors.read_end);
  to_child.read_end.close();
  if (::fcntl(input_.get(), F_SETFL, O_NONBLOCK) == -1) fail("fcntl");
  feed(input_, unread_);
}

Program::~Program() {
  if (pid_ == -1) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

std::string Program::read_line() {
  std::string line;
  char character = 0;
  while (::read(output_.get(), &character, 1) == 1 && character != '\n') line += character;
  return line;
}

Outcome Program::wait() {
  Outcome outcome;
  while (output_ || errors_) {
    std::array<::pollfd, 3> wanted{
        {{output_.get(), POLLIN, 0}, {errors_.get(), POLLIN, 0}, {input_.get(), POLLOUT, 0}}};
    if (::poll(wanted.data(), wanted.size(), -1) == -1 && errno != EINTR) fail("poll");
    if (wanted[0].revents != 0 && !drain(output_, outcome.output)) output_.close();
    if (wanted[1].revents != 0 && !drain(errors_, outcome.errors)) errors_.close();
    if (wanted[2].revents != 0) feed(input_, unread_);
  }
  int status = 0;
  while (::waitpid(pid_, &status, 0) == -1) {
    if (errno != EINTR) fail("waitpid");
  }
  pid_ = -1;
  outcome.status = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
  return outcome;
}

Outcome run_program(const std::vector<std::string>& command, const std::string& input) {
  return Program(command, input).wait();
}

::testing::AssertionResult passes_in_child(const std::function<void()>& body) {
  std::cout << std::flush;
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == -1) return ::testing::AssertionFailure() << "fork failed, errno " << errno;
  if (child == 0) {
    const int status = run_body(body);
    std::cout << std::flush;
    std::fflush(nullptr);
    // Without the parent's clean-up: its folders are not this process's to remove.
    ::_exit(status);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) == -1) {
    if (errno != EINTR) return ::testing::AssertionFailure() << "waitpid failed, errno " << errno;
  }
  if (status == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "the child ended with wait status " << status;
}

}  // namespace harbix::test
