#pragma once

#include "tests/support/application_device.h"

namespace harbix::test {

/// Gives a device one of each kind of what is backed up, and a little more: files, empty ones, folders, links
/// and holes, short, long and foreign names; two applications, the home screen and objects of PPS.
void add_a_little_of_everything(ApplicationDevice& device);

}  // namespace harbix::test
