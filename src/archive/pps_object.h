#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "archive/package_writer.h"
#include "archive/reader.h"
#include "archive/writer.h"

namespace harbix {

// A restore refuses a larger one, in bytes.
inline constexpr std::int64_t LARGEST_ARCHIVED_OBJECT = std::int64_t{1} << 20;

/// Takes out of the text of a PPS object what must not travel, piece by piece: a line may begin in one piece
/// and end in another. A NUL ends its piece.
class PersistentLines {
 public:
  /// What stays of a piece, and of the pieces before it that could not be judged without this one.
  [[nodiscard]] std::string take(std::string_view piece);
  /// What stays of the last line, when no piece follows.
  [[nodiscard]] const std::string& rest() const noexcept { return pending_; }

 private:
  std::string pending_;  ///< the beginning of a line, as long as it may turn out to be a mark
  bool is_at_beginning_ = true;
  bool is_dropped_ = false;
};

/// The text of a PPS object without what must not travel: every line that begins with "[n]" (not persistent)
/// or '-' (deleted). Ends at the first NUL, as the object's own text does.
[[nodiscard]] std::string persistent_lines(std::string_view text);

/// For PackageStyle: stores what one read of a PPS object gives, at most 32,768 bytes.
/// @throws std::runtime_error "Error opening: PATH: REASON"; fs::Exception "Error reading pps object" or
/// "Path '...' stat failed."; ArchiveError when the archive cannot be written any further.
void write_pps_object(ArchiveWriter& writer, fs::Folder& folder, const fs::File& item, const fs::Path& name);

/// Publishes the text of the current entry in the object at `path`, which must exist.
/// @throws fs::Exception "restore_pps failed" when it cannot be opened, or takes less than it is given;
/// std::runtime_error "Error restore_pps" when the archive is damaged, and "PPS object of more than 1 MiB".
void restore_pps_object(ArchiveReader& reader, const EntryView& entry, const fs::Path& path);

}  // namespace harbix
