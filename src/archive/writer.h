#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "archive/output_file.h"
#include "archive/source.h"
#include "archive/write_handle.h"

struct archive;
struct archive_entry;

namespace harbix {

/// Takes the next piece of a text.
using TextSink = std::function<void(std::string_view piece)>;
/// Hands over a text, piece by piece.
using TextSource = std::function<void(const TextSink& put)>;

/// The archive that a run writes: tar, not compressed, 512-byte records, no padding beyond the last one.
class ArchiveWriter {
 public:
  /// Creates the archive; an empty name is standard output.
  /// @throws ArchiveError when the file cannot be opened.
  explicit ArchiveWriter(const std::string& file_name);
  ~ArchiveWriter();
  ArchiveWriter(const ArchiveWriter&) = delete;
  ArchiveWriter& operator=(const ArchiveWriter&) = delete;
  ArchiveWriter(ArchiveWriter&&) = delete;
  ArchiveWriter& operator=(ArchiveWriter&&) = delete;

  /// Writes header and contents of one object under the name `name`. A file that changes size on the way is
  /// reported on standard error and keeps the size of its header in the archive.
  /// @throws std::runtime_error with the library's reason for refusing this object alone; ArchiveError when
  /// the archive cannot be written any further.
  void write(const Source& source, const fs::Path& name);

  /// Writes the header of one object alone; zeros stand for its contents. `link_target` is that of a symbolic
  /// link. For archives that are only measured.
  /// @throws as write does.
  void write_header_only(const fs::File& file, const std::string& link_target, const fs::Path& name);

  /// Writes an entry whose content is `text`; the size in `record` must be that of the text.
  /// @throws as write does.
  void write_text(const fs::Path& name, const struct ::stat& record, std::string_view text);
  /// The same for a text that comes in pieces.
  void write_text(const fs::Path& name, const struct ::stat& record, const TextSource& text);

  /// Whether anything has been written.
  [[nodiscard]] bool has_entries() const noexcept { return has_entries_; }

  /// Remembers why the archive cannot be ended as a whole one.
  void fail(const std::string& reason) { failure_ = reason; }

  /// Ends the archive and hands its last bytes to the system.
  /// @throws ArchiveError when any byte of it did not get there; ResourceError with the text of fail(), and
  /// the archive then has no end mark.
  void close();

  /// How many bytes the archive has emitted, padding included; meaningful after close().
  [[nodiscard]] std::int64_t compressed_position() const;

  /// Whether an object is the file that this archive is being written to.
  [[nodiscard]] bool is_output(const fs::File& file) const noexcept;

 private:
  struct EntryDeleter {
    void operator()(::archive_entry* entry) const noexcept;
  };

  void write_header(const struct ::stat& record, const fs::Path& name, const char* link_target);
  void write_data(std::span<const std::byte> data);
  void write_contents(int descriptor, const fs::File& file);
  void finish_entry();

  OutputFile output_;
  WriteHandle handle_;
  WriteHandle plain_;             ///< for entries without extensions
  ::archive* current_ = nullptr;  ///< the one that has the entry at hand
  bool has_entries_ = false;
  std::string failure_;
  std::unique_ptr<::archive_entry, EntryDeleter> entry_;  ///< of the header at hand; used again for the next
};

}  // namespace harbix
