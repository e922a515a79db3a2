#include "tests/support/program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <system_error>

#include "base/file_descriptor.h"

namespace harbix::test {
namespace {

using base::FileDescriptor;

struct Pipe {
  FileDescriptor read_end;
  FileDescriptor write_end;
};

[[noreturn]] void fail(const char* call) { throw std::system_error(errno, std::generic_category(), call); }

Pipe make_pipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) == -1) fail("pipe2");
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

class FileActions {
 public:
  FileActions() {
    if (::posix_spawn_file_actions_init(&actions_) != 0) fail("posix_spawn_file_actions_init");
  }
  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  FileActions(FileActions&&) = delete;
  FileActions& operator=(FileActions&&) = delete;

  void redirect(const FileDescriptor& from, int to) {
    if (::posix_spawn_file_actions_adddup2(&actions_, from.get(), to) != 0)
      fail("posix_spawn_file_actions_adddup2");
  }
  [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

pid_t spawn(const std::vector<std::string>& command, const Pipe& input, const Pipe& output,
            const Pipe& errors) {
  FileActions actions;
  actions.redirect(input.read_end, STDIN_FILENO);
  actions.redirect(output.write_end, STDOUT_FILENO);
  actions.redirect(errors.write_end, STDERR_FILENO);
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  // posix_spawn does not write through these.
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  pid_t child = -1;
  errno = ::posix_spawnp(&child, arguments[0], actions.get(), nullptr, arguments.data(), environ);
  if (errno != 0) fail(command.front().c_str());
  return child;
}

/// Reads what is there; false at the end.
bool drain(const FileDescriptor& from, std::string& into) {
  std::array<char, 65536> buffer{};
  const ssize_t count = ::read(from.get(), buffer.data(), buffer.size());
  if (count > 0) into.append(buffer.data(), static_cast<std::size_t>(count));
  return count > 0 || (count == -1 && errno == EINTR);
}

/// Feeds and reads the child until it has closed both of its streams.
void exchange(Pipe& input, Pipe& output, Pipe& errors, std::string rest, Outcome& outcome) {
  if (::fcntl(input.write_end.get(), F_SETFL, O_NONBLOCK) == -1) fail("fcntl");
  while (output.read_end || errors.read_end) {
    if (rest.empty()) input.write_end.close();
    std::array<::pollfd, 3> wanted{{{output.read_end.get(), POLLIN, 0},
                                    {errors.read_end.get(), POLLIN, 0},
                                    {input.write_end.get(), POLLOUT, 0}}};
    if (::poll(wanted.data(), wanted.size(), -1) == -1 && errno != EINTR) fail("poll");
    if (wanted[0].revents != 0 && !drain(output.read_end, outcome.output)) output.read_end.close();
    if (wanted[1].revents != 0 && !drain(errors.read_end, outcome.errors)) errors.read_end.close();
    if (wanted[2].revents == 0) continue;
    const ssize_t count = ::write(input.write_end.get(), rest.data(), rest.size());
    if (count >= 0) {
      rest.erase(0, static_cast<std::size_t>(count));
    } else if (errno != EAGAIN && errno != EINTR) {
      rest.clear();  // the child reads no more
    }
  }
}

int wait_for(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) == -1) {
    if (errno != EINTR) fail("waitpid");
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
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

Outcome run_program(const std::vector<std::string>& command, const std::string& input) {
  // A child that does not read its input must not end the test.
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  Pipe to_child = make_pipe();
  Pipe output = make_pipe();
  Pipe errors = make_pipe();
  const pid_t child = spawn(command, to_child, output, errors);
  to_child.read_end.close();
  output.write_end.close();
  errors.write_end.close();
  Outcome outcome;
  exchange(to_child, output, errors, input, outcome);
  outcome.status = wait_for(child);
  return outcome;
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
