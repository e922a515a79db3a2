#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/file_descriptor.h"

namespace harbix {

/// The file that an archive is written to. Gathers what it is given into large writes, which changes the
/// number of system calls and not one byte.
class OutputFile {
 public:
  /// Creates `name` with mode 0666 less the umask, or truncates it; an empty name is standard output.
  /// @throws ArchiveError "Archive error: Failed to open 'NAME': TEXT"
  explicit OutputFile(const std::string& name);

  /// @return 0, or the error number of the first write that failed. Nothing is written after a failure.
  int write(std::span<const std::byte> data);

  /// Writes out what is gathered and closes.
  /// @return 0 when every byte ever handed over has been taken by the system, else the first error number.
  int close();

  /// How many bytes have been handed over.
  [[nodiscard]] std::int64_t size() const noexcept { return size_; }

  /// Whether `record` describes this very file.
  [[nodiscard]] bool is_described_by(const struct ::stat& record) const noexcept;

 private:
  void flush();
  void send(std::span<const std::byte> data);

  base::FileDescriptor file_;
  struct ::stat record_ {};
  std::vector<std::byte> gathered_;
  std::int64_t size_ = 0;
  int error_ = 0;
};

}  // namespace harbix
