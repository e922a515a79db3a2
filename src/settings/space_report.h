#pragma once

#include <span>
#include <string>

#include "archive/file_record.h"

namespace harbix {

/// Two lines of progress: the space that the records ask for (bytes; bytes in whole blocks of 4096; blocks),
/// and the name of the metadata entry. The sums wrap at 32 bits, as readers of the report expect; nothing
/// else depends on them.
[[nodiscard]] std::string space_report(std::span<const FileRecord> records, const std::string& metadata_name);

}  // namespace harbix
