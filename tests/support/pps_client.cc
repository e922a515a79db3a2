#include "tests/support/pps_client.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include "tests/support/require.h"

namespace harbix::test {
namespace {

constexpr int THREW_STATUS = 99;
constexpr int KILLED_STATUS = 128;

/// The letter that ps(1) shows: 'S' asleep, 'R' running.
char state_of(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  const std::string line{std::istreambuf_iterator<char>(file), {}};
  const std::size_t after_name = line.rfind(") ");
  return after_name == std::string::npos ? '?' : line[after_name + 2];
}

}  // namespace

base::FileDescriptor open_object(const std::string& path, int flags, mode_t mode) {
  base::FileDescriptor object(::open(path.c_str(), flags | O_CLOEXEC, mode));
  if (!object) fail("cannot open " + path);
  return object;
}

void write_text(const base::FileDescriptor& object, std::string_view text) {
  const ssize_t written = ::write(object.get(), text.data(), text.size());
  if (written != static_cast<ssize_t>(text.size())) fail("cannot write");
}

std::string read_text(const base::FileDescriptor& object, std::size_t size) {
  std::string text(size, '\0');
  const ssize_t count = ::read(object.get(), text.data(), size);
  if (count == -1) fail("cannot read");
  text.resize(static_cast<std::size_t>(count));
  return text;
}

Process::Process(const std::function<int()>& work) {
  const pid_t parent = ::getpid();
  id_ = ::fork();
  if (id_ == -1) fail("cannot fork");
  if (id_ != 0) return;
  // A test that is killed must not leave clients behind.
  if (::prctl(PR_SET_PDEATHSIG, SIGKILL) == -1 || ::getppid() != parent) ::_exit(THREW_STATUS);
  int status = THREW_STATUS;
  try {
    status = work();
  } catch (const std::exception&) {
    status = THREW_STATUS;
  }
  ::_exit(status);
}

Process::~Process() {
  if (id_ != -1) kill();
}

void Process::wait_until_asleep() const {
  // A process that never falls asleep is ended by the test's own time limit.
  while (state_of(id_) != 'S') ::usleep(500);
}

void Process::kill() noexcept {
  ::kill(id_, SIGKILL);  // one that has just ended is as good
  static_cast<void>(wait());
}

int Process::wait() noexcept {
  int status = 0;
  int waited = ::waitpid(id_, &status, 0);
  while (waited == -1 && errno == EINTR) waited = ::waitpid(id_, &status, 0);
  id_ = -1;
  if (waited == -1) return THREW_STATUS;
  return WIFEXITED(status) ? WEXITSTATUS(status) : KILLED_STATUS + WTERMSIG(status);
}

WaitingReader::WaitingReader(const std::string& path) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) == -1) fail("cannot make a pipe");
  output_ = base::FileDescriptor(ends[0]);
  const base::FileDescriptor input(ends[1]);
  process_.emplace([&] {
    const base::FileDescriptor object = open_object(path, O_RDONLY);
    write_text(input, ".");
    try {
      write_text(input, read_text(object));
    } catch (const std::system_error& error) {
      write_text(input, "(error " + std::to_string(error.code().value()) + ")");
    }
    return 0;
  });
  if (read_text(output_, 1) != ".") throw std::runtime_error("the reader could not open " + path);
  process_->wait_until_asleep();
}

std::string WaitingReader::text() {
  if (process_->wait() != 0) throw std::runtime_error("the reader failed");
  std::string all;
  for (std::string piece = read_text(output_); !piece.empty(); piece = read_text(output_)) all += piece;
  return all;
}

}  // namespace harbix::test
