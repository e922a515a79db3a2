#include "driver/size_report.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "base/file_descriptor.h"
#include "base/log.h"
#include "base/waiting.h"
#include "platform/streams.h"

namespace harbix {
namespace {

constexpr std::int64_t END_MARK_BYTES = 1024;
constexpr mode_t CREATION_MODE = 0666;

/// Standard output as it is: opened anew, what a caller appends to would be cut.
int open_target(const std::string& file_name) {
  if (file_name.empty()) return ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  return ::open(file_name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, CREATION_MODE);
}

[[noreturn]] void throw_unwritten(int error) {
  throw std::runtime_error(std::string("Size report could not be written: ") + std::strerror(error));
}

}  // namespace

std::string size_report_text(const SizeResult& total, std::int64_t archive_bytes) {
  const std::int64_t bytes = saturated_sum(saturated_sum(total.bytes, END_MARK_BYTES), archive_bytes);
  return "bytesize=" + std::to_string(bytes) + "\ncount=" + std::to_string(total.files) + "\n";
}

void write_size_report(const std::string& file_name, const std::string& text) {
  diagnostics::line(4, "Response: '%s'", text.c_str());
  base::FileDescriptor file(open_target(file_name));
  if (!file) return;
  for (std::string_view rest = text; !rest.empty();) {
    const ssize_t written = ::write(file.get(), rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR && !base::wait_until_writable(file.get(), errno)) {
      throw_unwritten(errno);
    }
  }
  if (const int error = file.close(); error != 0) throw_unwritten(error);
  if (platform::flushall() != 0) throw_unwritten(errno);
}

}  // namespace harbix
