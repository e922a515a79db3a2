#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "archive/input_file.h"

struct archive;
struct archive_entry;

namespace harbix {

/// A handle of the library that reads an archive of any kind that a restore takes.
class ReadHandle {
 public:
  struct Closer {
    void operator()(::archive* handle) const noexcept;
  };
  using Owner = std::unique_ptr<::archive, Closer>;

  /// @throws ArchiveError with the library's reason when the input is no archive. An input of zero bytes is
  /// taken for an archive without entries.
  explicit ReadHandle(InputFile input);
  ~ReadHandle() = default;
  ReadHandle(const ReadHandle&) = delete;
  ReadHandle& operator=(const ReadHandle&) = delete;
  ReadHandle(ReadHandle&&) = delete;
  ReadHandle& operator=(ReadHandle&&) = delete;

  [[nodiscard]] ::archive* get() const noexcept { return handle_.get(); }
  [[nodiscard]] InputFile& input() noexcept { return input_; }
  [[nodiscard]] const InputFile& input() const noexcept { return input_; }

  /// Reads the next header.
  /// @return ARCHIVE_OK with entry() set; ARCHIVE_EOF at the end and ever after; any other code for a damaged
  /// archive and ever after, with the reason in error_text().
  [[nodiscard]] int next_header();
  [[nodiscard]] ::archive_entry* entry() const noexcept { return entry_; }

  /// Where the header that was asked for last begins, in bytes from the beginning of the archive,
  /// uncompressed.
  [[nodiscard]] std::int64_t header_position() const;

  /// At the end of a tar archive that is not compressed: whether anything but zeros follows its end mark,
  /// which a restore does not see. Reads on to the end of the input.
  [[nodiscard]] bool has_more_behind_end();

  /// Stops reading. Further headers answer the end of the archive.
  void close();

 private:
  // What the library calls back.
  static std::ptrdiff_t read(::archive* handle, void* self, const void** data);
  static std::int64_t skip(::archive* handle, void* self, std::int64_t count);
  static std::int64_t seek(::archive* handle, void* self, std::int64_t offset, int whence);

  int open();
  [[nodiscard]] int judge_end() const;
  [[nodiscard]] bool is_tar() const;
  int judge_warning();
  int judge_names();

  InputFile input_;
  std::span<const std::byte> block_{};  ///< of the input, the last that the library took
  std::int64_t block_end_ = 0;          ///< where the input has come to by it
  Owner handle_;
  ::archive_entry* entry_ = nullptr;
  bool is_in_header_ = false;
  int status_ = 0;  ///< of the last header
};

}  // namespace harbix
