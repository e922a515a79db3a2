#include "base/file_descriptor.h"

#include <unistd.h>

#include <cerrno>

namespace base {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  if (this != &other) {
    close();
    descriptor_ = other.release();
  }
  return *this;
}

FileDescriptor::~FileDescriptor() {
  // A caller that needs to know whether the last bytes arrived has called close() before.
  close();
}

int FileDescriptor::close() noexcept {
  if (!is_open()) return 0;
  return ::close(release()) == -1 ? errno : 0;
}

}  // namespace base
