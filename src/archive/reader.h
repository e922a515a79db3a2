#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "archive/entry_view.h"
#include "archive/read_handle.h"
#include "archive/survey.h"
#include "archive/written_file_systems.h"

struct archive;

namespace harbix {

/// The part of the stream that one restore operation reads. Prefixes are paths such as "/media": a package
/// belongs to the keyword whose prefix its metadata entry lies below.
struct Section {
  std::vector<fs::Path> earlier;  ///< packages of keywords that come before this one: passed over
  std::vector<fs::Path> later;  ///< packages of keywords that this run restores afterwards: the end, for now
  std::vector<fs::Path> own = {};   ///< packages of this keyword
  std::vector<fs::Path> rest = {};  ///< packages of later keywords: the end, once one of its own has been met
};

/// A piece of an entry's data.
struct DataBlock {
  const char* data;
  std::size_t size;
  std::int64_t offset;  ///< from the beginning of the entry's data
};

/// The archive that a run restores from. Names are handed over byte for byte: the process must be in the "C"
/// locale, where the library cannot compose what was stored decomposed.
class ArchiveReader {
 public:
  /// Opens the archive; an empty name is standard input. Whatever the library can read is read.
  /// @throws ArchiveError when the file cannot be opened or is no archive.
  explicit ArchiveReader(const std::string& file_name);
  ~ArchiveReader() = default;
  ArchiveReader(const ArchiveReader&) = delete;
  ArchiveReader& operator=(const ArchiveReader&) = delete;
  ArchiveReader(ArchiveReader&&) = delete;
  ArchiveReader& operator=(ArchiveReader&&) = delete;

  /// Starts the work of the next operation; what is left of the one before is judged by the new section.
  /// @throws ArchiveError when the archive holds not a single byte, or no entry in more than 64 KiB.
  void begin_section(Section section);

  /// Whether there is not a single entry: the backup of nothing. Known once a section has begun.
  [[nodiscard]] bool is_empty() const noexcept { return is_empty_; }

  /// What the whole archive holds, all sections together; reading goes on where it is. The first call reads
  /// all headers; it costs little where contents can be passed over.
  /// @return nullptr for an archive that can be read only once, like one from a pipe.
  [[nodiscard]] const Survey* survey();

  /// Whether any package has been met so far, of whatever keyword.
  [[nodiscard]] bool has_met_package() const noexcept { return !package_.empty(); }

  /// Reads the first header of the section ahead of its turn, so that damage shows before anything is
  /// removed.
  /// @throws std::runtime_error "Could not read next archive header"
  void require_readable();

  /// The next entry of the section, or nothing at its end and ever after.
  /// @throws std::runtime_error "Could not read next archive header"
  [[nodiscard]] std::optional<EntryView> next_header();

  /// As next_header, with the library's status code instead of exceptions: ARCHIVE_OK with entry() set,
  /// ARCHIVE_EOF, or the code of a damaged archive, explained by error_text().
  [[nodiscard]] int advance();
  [[nodiscard]] EntryView entry() const { return EntryView(handle_.entry()); }

  /// Lets the next call hand over the current entry again: it belongs to the next reader of headers.
  void hold_back() noexcept { held_back_ = true; }

  /// Skips an entry's data, if it has any.
  /// @throws std::runtime_error with the library's text when the archive is damaged.
  void skip(const EntryView& entry);

  /// Up to `size` bytes of the current entry's data.
  /// @return how many were read, 0 at the end, negative for a damaged archive.
  [[nodiscard]] std::int64_t read_data(char* buffer, std::size_t size);

  /// The next piece of the current entry's data, valid until the next call; nothing at the end. A hole
  /// between two pieces has no data.
  /// @throws DataError when the archive is damaged there.
  [[nodiscard]] std::optional<DataBlock> read_block();

  /// How many bytes of the input have been taken, compressed as they are.
  [[nodiscard]] std::size_t input_bytes() const;

  /// Where the current entry begins, as ReadHandle says.
  [[nodiscard]] std::int64_t position() const { return handle_.header_position(); }
  [[nodiscard]] bool has_more_behind_end() { return handle_.has_more_behind_end(); }
  [[nodiscard]] const InputFile& input() const noexcept { return handle_.input(); }

  /// The library's last error number and text; 0 and "" when there is none. The number does not show the
  /// damage of a header that still waits to be handed on.
  [[nodiscard]] int error_number() const;
  [[nodiscard]] std::string error_text() const;
  /// Forgets the last error, once it has been told.
  void clear_error();

  /// Where extraction notes what it writes to.
  [[nodiscard]] WrittenFileSystems& written() noexcept { return written_; }

  /// As InputFile::watch says.
  void watch_input(std::function<void()> watcher) { handle_.input().watch(std::move(watcher)); }

  /// Ends the work with a stream: reads away what waits in a pipe.
  void drain() { handle_.input().drain(); }

  /// Whether an object is the file that this archive is being read from.
  [[nodiscard]] bool is_input(const fs::File& file) const noexcept;

  /// Stops reading. Further headers answer the end of the archive.
  void close();

 private:
  void refuse_zeros();
  void note_package();
  [[nodiscard]] bool in_package_of(const std::vector<fs::Path>& prefixes) const;

  ReadHandle handle_;
  std::optional<Survey> survey_;  ///< once it was asked for
  Section section_;
  fs::Path package_;        ///< directory of the last metadata entry met
  int status_ = 0;          ///< of the last header
  bool held_back_ = false;  ///< the last header still waits to be handed on
  bool is_begun_ = false;
  bool is_empty_ = false;
  bool has_met_own_ = false;  ///< a package of the section's own keyword
  WrittenFileSystems written_;
};

}  // namespace harbix
