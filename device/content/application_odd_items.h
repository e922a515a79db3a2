#pragma once

#include "device/content/application_folders.h"

namespace device {

/// Names of any bytes and links of every kind, among the binaries and among the data.
void write_odd_binaries(ApplicationFolder& binaries);
void write_odd_data(ApplicationFolder& data);

}  // namespace device
