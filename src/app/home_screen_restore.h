#pragma once

#include <sys/types.h>

#include "app/application_package.h"
#include "archive/reader.h"

namespace harbix {

/// Restores a package of the home screen: the navigator's PPS objects, its data in the place of the old one,
/// or the clock database of the system tray. `user` owns installed applications.
/// @throws fs::Exception, std::runtime_error when something cannot be removed or restored.
void restore_home_screen(ArchiveReader& reader, const ApplicationPackage& package, uid_t user);

}  // namespace harbix
