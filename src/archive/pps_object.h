#pragma once

#include <string>
#include <string_view>

#include "archive/package_writer.h"
#include "archive/reader.h"
#include "archive/writer.h"

namespace harbix {

/// The text of a PPS object without what must not travel: every line that begins with "[n]" (not persistent)
/// or '-' (deleted). Ends at the first NUL, as the object's own text does.
[[nodiscard]] std::string persistent_lines(std::string_view text);

/// For PackageStyle: stores what one read of a PPS object gives, at most 32,768 bytes.
/// @throws std::runtime_error "Error opening: PATH"; fs::Exception "Error reading pps object" or "Path '...'
/// stat failed."; ArchiveError when the archive cannot be written any further.
void write_pps_object(ArchiveWriter& writer, fs::Folder& folder, const PackageItem& item,
                      const fs::Path& name);

/// Publishes the text of the current entry in the object at `path`, which must exist.
/// @throws fs::Exception "restore_pps failed" when it cannot be opened, or takes less than it is given;
/// std::runtime_error "Error restore_pps" when the archive is damaged.
void restore_pps_object(ArchiveReader& reader, const EntryView& entry, const fs::Path& path);

}  // namespace harbix
