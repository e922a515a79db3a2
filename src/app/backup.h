#pragma once

#include <span>
#include <string>

#include "archive/writer.h"
#include "base/size_result.h"

namespace harbix {

/// Archives applications and the home screen's data, or only adds up what they would take. `package_ids`
/// narrows them, as select_applications() does.
/// @return 0, or 1 when the installer's list cannot be read or a package is not in it; both are told of, and
/// nothing is written.
/// @throws ArchiveError when the archive cannot be written any further; std::runtime_error when the installer
/// cannot be asked about a package, or a storefront application has lost its folder.
[[nodiscard]] int harbix_app(ArchiveWriter& writer, bool size_only, std::span<const std::string> package_ids,
                             SizeResult& result);

}  // namespace harbix
