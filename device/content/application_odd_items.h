#pragma once

#include "device/content/application_folders.h"

namespace device {

/// Names of any bytes and links of every kind, among the binaries and among the data. The folders have to be
/// made.
void write_odd_binaries(ApplicationFolders& folders);
void write_odd_data(ApplicationFolders& folders);

}  // namespace device
