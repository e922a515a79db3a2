#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "archive/input_file.h"

namespace harbix {

/// What a plain header says.
struct PlainHeader {
  std::string name;
  bool is_file;       ///< or a folder or symbolic link
  std::int64_t size;  ///< of the data that follows, in bytes
};

/// Steps through the headers of a tar archive in a regular file from its beginning, for as long as they are
/// of the kinds that backups hold: a file, folder or symbolic link, with an extended header of POSIX in front
/// where a name or a number does not fit the header's own fields. A tenth of the time that the library takes
/// for the same, which knows a lot more. Where this stops, the library has to go on: at an archive of another
/// kind, at other extensions, at damage, and at the last entry at any rate.
class PlainHeaders {
 public:
  explicit PlainHeaders(const InputFile& input);

  /// The next entry, which lies in the file with all of its data and has another plain header behind it.
  [[nodiscard]] std::optional<PlainHeader> next();

  /// Where the entry begins that next() did not answer.
  [[nodiscard]] std::int64_t end() const noexcept { return offset_; }

 private:
  static constexpr std::size_t RECORD_SIZE = 512;

  struct Met {
    PlainHeader header;
    std::int64_t data;  ///< where its data begins
  };

  [[nodiscard]] std::optional<Met> read(std::int64_t offset);
  [[nodiscard]] std::string_view text_at(std::int64_t offset, std::size_t size);

  const InputFile& input_;
  std::int64_t offset_ = 0;  ///< where the entry of `met_` begins
  std::optional<Met> met_;   ///< the one that is answered next, if there is another behind it
  std::array<char, 4 * RECORD_SIZE> ahead_{};  ///< the file's text from `ahead_begin_` on
  std::int64_t ahead_begin_ = 0;
  std::int64_t ahead_end_ = 0;
};

}  // namespace harbix
