#pragma once

#include <string>
#include <string_view>

#include "inspect/options.h"
#include "inspect/output.h"
#include "inspect/sha256.h"

namespace harbix::inspect {

/// Prints a line for each file of an archive, manifests included, in the format of sha256sum.
/// @return the exit status: 2 for a damaged archive.
[[nodiscard]] int print_checksums(const Request& request, Output& output);

/// What a file is called in a list of checksums: its name in the archive without the '/' at its front. So a
/// list fits what a tar program has unpacked.
[[nodiscard]] std::string_view listed_name(const fs::Path& name);

/// "DIGEST  NAME". For a name with '\', newline or carriage return a '\' stands before the line, and the name
/// has
/// "\\", "\n" and "\r".
[[nodiscard]] std::string checksum_line(const Digest& digest, std::string_view name);

}  // namespace harbix::inspect
