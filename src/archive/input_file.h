#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/file_descriptor.h"

namespace harbix {

/// The file that an archive is read from, in large blocks.
class InputFile {
 public:
  /// Opens `name`; an empty name is standard input.
  /// @throws ArchiveError "Archive error: Failed to open 'NAME': TEXT"
  explicit InputFile(const std::string& name);

  /// The next block, valid until the next call; empty at the end of the file; nothing after a failure, with
  /// errno set.
  [[nodiscard]] std::optional<std::span<const std::byte>> read_block();

  /// Passes over up to `count` bytes without reading them.
  /// @return how many were passed over: 0 where the file can only be read on.
  [[nodiscard]] std::int64_t skip(std::int64_t count);

  /// lseek(2) on the file.
  /// @return the new offset, or -1 with errno set.
  [[nodiscard]] std::int64_t seek(std::int64_t offset, int whence);

  /// Whether reading met the end of the file before any byte.
  [[nodiscard]] bool is_empty() const noexcept { return is_empty_; }
  /// Only regular files can be skipped and searched in.
  [[nodiscard]] bool is_regular() const noexcept { return S_ISREG(record_.st_mode); }
  [[nodiscard]] const struct ::stat& record() const noexcept { return record_; }

 private:
  base::FileDescriptor file_;
  struct ::stat record_ {};
  std::vector<std::byte> block_;
  bool has_content_ = false;
  bool is_empty_ = false;
};

}  // namespace harbix
