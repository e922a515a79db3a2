#pragma once

#include <sys/types.h>

#include "app/application_package.h"
#include "archive/completeness.h"
#include "archive/reader.h"

namespace harbix {

/// What becomes of the navigator's data that is there.
enum class OldData { REMOVED, KEPT };

/// Restores a package of the home screen: the navigator's PPS objects, its data in the place of the old one
/// (or beside it, where that is kept), or the clock database of the system tray. `user` owns installed
/// applications. What the device allows and is not restored is reported, and noted in `completeness`.
/// @throws fs::Exception, std::runtime_error when something cannot be removed, or the archive cannot be read.
void restore_home_screen(ArchiveReader& reader, const ApplicationPackage& package, uid_t user,
                         OldData old_data, Completeness& completeness);

}  // namespace harbix
