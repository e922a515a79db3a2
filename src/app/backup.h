#pragma once

#include <span>
#include <string>
#include <vector>

#include "archive/writer.h"
#include "base/size_result.h"
#include "updater/registered_applications.h"

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

namespace app {

/// Archives applications and the home screen's data. `package_ids` narrows them, as select_applications()
/// does.
/// @return 0, or 1 with a report: when the installer's list cannot be read or a package is not in it, and
/// then nothing is written; when an application is left out because no restore would take its names; when a
/// folder could not be listed to its end.
/// @throws ArchiveError when the archive cannot be written any further; std::runtime_error when the installer
/// cannot be asked about a package.
[[nodiscard]] int back_up(ArchiveWriter& writer, std::span<const std::string> package_ids);

/// Adds up what the applications would take, and nothing of the home screen. Nothing is written.
/// @return as back_up does.
/// @throws std::runtime_error when a storefront application has lost its folder.
[[nodiscard]] int measure(ArchiveWriter& writer, std::span<const std::string> package_ids,
                          SizeResult& result);

}  // namespace app

}  // namespace harbix
