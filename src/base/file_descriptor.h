#pragma once

#include <utility>

namespace base {

/// Owns one file descriptor, or none (-1), and closes it at the end of its life.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor();

  [[nodiscard]] int get() const noexcept { return descriptor_; }
  [[nodiscard]] bool is_open() const noexcept { return descriptor_ != -1; }
  explicit operator bool() const noexcept { return is_open(); }

  /// Gives up ownership; the caller closes what is returned.
  [[nodiscard]] int release() noexcept { return std::exchange(descriptor_, -1); }

  /// Closes now. Some file systems report a failed write only here.
  /// @return 0, or the error number of close(2). The descriptor is gone either way.
  int close() noexcept;

 private:
  int descriptor_ = -1;
};

}  // namespace base
