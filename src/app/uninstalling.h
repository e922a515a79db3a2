#pragma once

#include <optional>
#include <string>
#include <vector>

#include "archive/reader.h"
#include "updater/registered_applications.h"

namespace harbix {

/// What becomes of the installed applications of the storefront before those of an archive are restored.
enum class InstalledOnes {
  UNINSTALLED,  ///< so that only what the archive holds is there afterwards
  KEPT,         ///< the archive is damaged, or another keyword's: what it holds is restored beside them
  UNTOUCHED,    ///< the archive does not fit on the device: nothing is restored
};

/// What becomes of them, and why they are not uninstalled.
struct InstalledVerdict {
  InstalledOnes installed;
  /// An error; nothing where they are uninstalled, or where the package that comes first shows why they are
  /// not.
  std::optional<std::string> reason = {};
};

/// Judges by what can be seen before anything is changed. `begins_with_application` says what the reader's
/// section begins with; `has_package`, whether there is any package in it.
[[nodiscard]] InstalledVerdict judge_installed(ArchiveReader& reader, bool has_package,
                                               bool begins_with_application,
                                               const std::vector<updater::RegisteredApplication>& installed);

/// Has the installer remove the applications of the storefront, and brings the list up to date. A failure is
/// reported with -v and in the log at level 0; the application stays in the list.
void uninstall_storefront(std::vector<updater::RegisteredApplication>& installed);

}  // namespace harbix
