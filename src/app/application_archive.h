#pragma once

#include "archive/writer.h"
#include "base/size_result.h"
#include "updater/registered_applications.h"

namespace harbix {

/// Writes the packages of one application: its binaries, where they came from the storefront, and its data.
/// A path that cannot be archived costs its message.
/// @throws ArchiveError when the archive cannot be written any further; fs::Exception or std::runtime_error
/// when the installer cannot be asked.
void archive_application(ArchiveWriter& writer, const updater::RegisteredApplication& application);

/// Adds what those packages would hold, and one to the count. An application whose folder is missing does not
/// count.
/// @throws updater::Exception "Invalid registered app:PACKAGE" for such an application of the storefront.
void measure_application(ArchiveWriter& writer, const updater::RegisteredApplication& application,
                         SizeResult& result);

}  // namespace harbix
