#pragma once

#include <cstdint>
#include <string>

#include "base/size_result.h"

namespace harbix {

/// "bytesize=N" and "count=N", a line each: the bytes are those of the keywords, of the archive that was
/// written without them, and 1024.
[[nodiscard]] std::string size_report_text(const SizeResult& total, std::int64_t archive_bytes);

/// Writes a report to `file_name`, which is created with mode 0666 less the umask, or truncated; an empty
/// name is standard output. A file that cannot be opened is no error, and nothing is written then.
/// @throws std::runtime_error "Size report could not be written: TEXT"
void write_size_report(const std::string& file_name, const std::string& text);

}  // namespace harbix
