#pragma once

#include <span>
#include <string>
#include <vector>

#include "updater/registered_application.h"

namespace harbix {

/// What of a device's applications one run is about.
struct ApplicationSelection {
  std::vector<updater::RegisteredApplication> applications;  ///< in the order of the installer's list
  bool system_tray = true;
  bool navigator = true;
};

/// Narrows what is installed to the packages named on the command line. The first item of `package_ids` is
/// the keyword operand, the rest are names; an empty list selects everything.
/// @throws updater::Exception "Package 'NAME' not found."
[[nodiscard]] ApplicationSelection select_applications(std::vector<updater::RegisteredApplication> installed,
                                                       std::span<const std::string> package_ids);

}  // namespace harbix
