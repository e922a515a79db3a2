#include "tests/support/captured_output.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <system_error>

namespace harbix::test {
namespace {

void flush_everything() {
  std::cout << std::flush;
  std::cerr << std::flush;
  std::fflush(nullptr);
}

}  // namespace

CapturedOutput::CapturedOutput(int descriptor)
    : descriptor_(descriptor),
      saved_((flush_everything(), ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0))),
      kept_(::memfd_create("captured", MFD_CLOEXEC)) {
  if (saved_ == -1 || kept_ == -1 || ::dup2(kept_, descriptor_) == -1) {
    throw std::system_error(errno, std::generic_category(), "capture");
  }
}

CapturedOutput::~CapturedOutput() {
  flush_everything();
  // A process whose output does not come back cannot report it.
  static_cast<void>(::dup2(saved_, descriptor_));
  ::close(saved_);
  ::close(kept_);
}

std::string CapturedOutput::text() const {
  flush_everything();
  std::string text;
  std::array<char, 4096> chunk{};
  for (;;) {
    const ssize_t count = ::pread(kept_, chunk.data(), chunk.size(), static_cast<off_t>(text.size()));
    if (count <= 0) return text;
    text.append(chunk.data(), static_cast<std::size_t>(count));
  }
}

}  // namespace harbix::test
