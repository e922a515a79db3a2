#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "base/file_descriptor.h"

namespace harbix {

/// The file that an archive is read from, in large blocks. Offsets count from where the archive begins: the
/// beginning of a named file, and where the caller's reading of standard input stood.
class InputFile {
 public:
  /// Opens `name`; an empty name is standard input.
  /// @throws ArchiveError "Archive error: Failed to open 'NAME': TEXT"
  explicit InputFile(const std::string& name);

  /// The same archive from its beginning, to be read independently of this object. Nothing where it can be
  /// read only once: where it is no regular file.
  /// @throws ArchiveError as the constructor does.
  [[nodiscard]] std::optional<InputFile> again() const;

  /// Has `watcher` called before each block that is read from now on.
  void watch(std::function<void()> watcher) { watcher_ = std::move(watcher); }

  /// The next block, valid until the next call; empty at the end of the file; nothing after a failure, with
  /// errno set.
  [[nodiscard]] std::optional<std::span<const std::byte>> read_block();

  /// Reads at an offset of a regular file, whatever is read next.
  /// @return how many bytes were read: fewer than asked for at the end of the file and after a failure.
  [[nodiscard]] std::int64_t read_at(std::int64_t offset, std::span<char> buffer) const;

  /// Makes the archive begin at this offset of a regular file.
  void begin_at(std::int64_t offset) noexcept;

  /// Passes over up to `count` bytes without reading them. In a pipe, waits for them.
  /// @return how many were passed over: fewer at the end of the file, 0 where it can only be read on.
  [[nodiscard]] std::int64_t skip(std::int64_t count);

  /// What is read next, in bytes from where the archive begins.
  [[nodiscard]] std::int64_t position() const noexcept { return position_; }

  /// Whether a regular file has become another one since it was opened, by its size and its time of change.
  [[nodiscard]] bool has_changed() const noexcept;

  /// As lseek(2), for a regular file.
  /// @return the new offset, or -1 with errno set.
  [[nodiscard]] std::int64_t seek(std::int64_t offset, int whence);

  /// Whether there are more than `count` bytes up to the end of the file. What has to be read to know that is
  /// lost.
  [[nodiscard]] bool is_longer_than(std::int64_t count);

  /// Reads away what waits in a pipe, so that its writer does not fail at the end of its work. Waits for
  /// milliseconds at most.
  void drain();

  /// Whether reading met the end of the file before any byte.
  [[nodiscard]] bool is_empty() const noexcept { return is_empty_; }
  /// Only regular files can be skipped and searched in, and read twice.
  [[nodiscard]] bool is_regular() const noexcept { return S_ISREG(record_.st_mode); }
  [[nodiscard]] const struct ::stat& record() const noexcept { return record_; }

 private:
  InputFile(base::FileDescriptor file, std::int64_t begin);

  [[nodiscard]] std::int64_t skip_in_pipe(std::int64_t count);

  base::FileDescriptor file_;
  base::FileDescriptor sink_{};  ///< takes what is passed over in a pipe
  struct ::stat record_ {};
  std::unique_ptr<std::byte[]> block_;
  std::size_t next_size_;      ///< of what is read next of a regular file
  std::int64_t begin_ = 0;     ///< of the archive in a regular file
  std::int64_t position_ = 0;  ///< of what is read next, from there on
  bool is_empty_ = false;
  std::function<void()> watcher_;
};

}  // namespace harbix
