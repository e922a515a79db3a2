#pragma once

#include "archive/completeness.h"
#include "archive/writer.h"
#include "base/size_result.h"
#include "updater/registered_applications.h"

namespace harbix {

/// Whether a restore would take the names of an application: its folder's and its package's.
[[nodiscard]] bool has_restorable_names(const updater::RegisteredApplication& application);

/// Writes the packages of one application: its binaries, where they came from the storefront, and its data.
/// A path that cannot be archived is reported, and the rest is archived.
/// So is a folder that cannot be listed to its end, which `completeness` notes: what it holds is not known.
/// @throws ArchiveError when the archive cannot be written any further; fs::Exception or std::runtime_error
/// when the installer cannot be asked.
void archive_application(ArchiveWriter& writer, const updater::RegisteredApplication& application,
                         Completeness& completeness);

/// Adds what those packages would hold, and one to the count. An application whose folder is missing does not
/// count.
/// @throws updater::Exception "Invalid registered app:PACKAGE" for such an application of the storefront.
void measure_application(ArchiveWriter& writer, const updater::RegisteredApplication& application,
                         SizeResult& result, Completeness& completeness);

}  // namespace harbix
