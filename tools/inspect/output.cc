#include "inspect/output.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "base/waiting.h"
#include "inspect/names.h"

namespace harbix::inspect {
namespace {

constexpr std::size_t CAPACITY = std::size_t{64} << 10;

}  // namespace

Output::Output(int descriptor) : descriptor_(descriptor), is_terminal_(::isatty(descriptor) == 1) {}

void Output::write(std::string_view text) {
  if (text.size() >= CAPACITY) {
    flush();
    write_out(text);
    return;
  }
  waiting_ += text;
  if (waiting_.size() >= CAPACITY || (is_terminal_ && waiting_.ends_with('\n'))) flush();
}

void Output::line(std::string_view text) {
  write(text);
  write("\n");
}

void Output::flush() {
  write_out(waiting_);
  waiting_.clear();
}

void Output::write_out(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(descriptor_, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR && !base::wait_until_writable(descriptor_, errno)) {
      const int error = errno;
      waiting_.clear();
      throw OutputError(std::string("Standard output: ") + std::strerror(error));
    }
  }
}

bool has_colours(const std::string& when, const Output& output) {
  const char* const terminal = std::getenv("TERM");
  const bool wants =
      std::getenv("NO_COLOR") == nullptr && terminal != nullptr && std::string(terminal) != "dumb";
  return when == "always" || (when == "auto" && output.is_terminal() && wants);
}

std::string painted(std::string text, std::string_view colour, bool has_colours) {
  if (!has_colours) return text;
  return "\033[" + std::string(colour) + 'm' + text + "\033[0m";
}

void let_writes_fail() {
  // Fails only for signals that do not exist.
  static_cast<void>(::signal(SIGPIPE, SIG_IGN));
  static_cast<void>(::signal(SIGXFSZ, SIG_IGN));
}

void complain(std::string_view text) {
  const std::string line = "harbix-inspect: " + shown(text) + '\n';
  // There is nowhere to report that it could not be written; the status tells.
  static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
}

}  // namespace harbix::inspect
