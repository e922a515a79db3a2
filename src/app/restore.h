#pragma once

#include "archive/reader.h"

namespace harbix::app {

/// Brings applications, their data and the home screen's data back from the reader's section. Applications
/// of the storefront are uninstalled first, so that only what the archive holds is there afterwards.
/// @return 0; 1 for a failure that ended it, with what came before restored, and when the installer did not
/// answer for one of the packages. Packages that the device does not allow make no difference.
[[nodiscard]] int restore(ArchiveReader& reader);

}  // namespace harbix::app
