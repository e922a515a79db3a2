#include "app/uninstalling.h"

#include <array>
#include <cstdint>
#include <exception>
#include <limits>
#include <string>
#include <utility>

#include "app/layout.h"
#include "base/domains.h"
#include "base/log.h"
#include "base/places.h"
#include "base/report.h"
#include "fs/exception.h"
#include "fs/space.h"
#include "updater/installer_client.h"

namespace harbix {
namespace {

using updater::RegisteredApplication;

dev_t device_of(const fs::Folder& folder) {
  struct ::stat record {};
  // A folder that is open has a status.
  return ::fstat(folder.descriptor(), &record) == -1 ? 0 : record.st_dev;
}

/// What is free for applications and their data, and would be once all that a restore replaces is gone.
/// Without an answer from the system everything fits: what does not is reported when it is written.
std::uint64_t room_for(std::uint64_t needed, const std::vector<RegisteredApplication>& installed) try {
  fs::Folder binaries(places::APPLICATIONS);
  fs::Folder data(places::APPLICATION_DATA);
  std::uint64_t room = fs::free_space(data);
  if (device_of(binaries) != device_of(data)) room += fs::free_space(binaries);
  if (needed <= room) return room;
  for (const RegisteredApplication& one : installed) {
    const bool goes = is_from_storefront(one) && is_application_folder(one.id);
    if (goes) room += fs::removable_space(binaries, fs::Path(one.id));
  }
  return room + fs::removable_space(data, fs::Path());
} catch (const fs::Exception& failure) {
  diagnostics::line(1, "%s", failure.what());
  return std::numeric_limits<std::uint64_t>::max();
}

InstalledVerdict judge_room_for(const Survey& survey, const std::vector<RegisteredApplication>& installed) {
  const std::array<fs::Path, 1> prefixes{fs::Path(places::APPLICATION_PREFIX)};
  const std::uint64_t needed = survey.file_bytes_below(prefixes);
  const std::uint64_t room = room_for(needed, installed);
  if (needed <= room) return {InstalledOnes::UNINSTALLED};
  return {InstalledOnes::UNTOUCHED, "The applications need " + std::to_string(needed) +
                                        " bytes, and there is room for " + std::to_string(room) +
                                        ": nothing is uninstalled or restored"};
}

void uninstall(const RegisteredApplication& application) {
  try {
    updater::ActionUninstall(application.dir).exchange();
  } catch (const std::exception& error) {
    diagnostics::line(0, "Unregister of '%s' failed", application.id.c_str());
    report::progress("Error: ", error.what());
  }
}

}  // namespace

InstalledVerdict judge_installed(ArchiveReader& reader, bool has_package, bool begins_with_application,
                                 const std::vector<RegisteredApplication>& installed) {
  const Survey* const survey = reader.survey();
  if (survey != nullptr ? survey->is_empty() : reader.is_empty()) return {InstalledOnes::UNINSTALLED};
  if (survey != nullptr && survey->damage())
    return {InstalledOnes::KEPT,
            "The archive is damaged, so that no application is uninstalled: " + *survey->damage()};
  if (!has_package) return {InstalledOnes::KEPT, "The archive holds no applications"};
  if (!begins_with_application) return {InstalledOnes::KEPT};
  return survey == nullptr ? InstalledVerdict{InstalledOnes::UNINSTALLED}
                           : judge_room_for(*survey, installed);
}

void uninstall_storefront(std::vector<RegisteredApplication>& installed) {
  for (const RegisteredApplication& one : installed) {
    if (is_from_storefront(one)) uninstall(one);
  }
  std::vector<RegisteredApplication> left;
  if (updater::read_registered_applications(left)) {
    installed = std::move(left);
  } else {
    std::erase_if(installed, updater::is_from_storefront);
  }
}

}  // namespace harbix
