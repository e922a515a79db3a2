#include "app/backup.h"

#include <iostream>
#include <optional>
#include <vector>

#include "app/application_archive.h"
#include "app/navigator_objects.h"
#include "app/places.h"
#include "app/selection.h"
#include "base/domains.h"
#include "base/flags.h"
#include "base/log.h"
#include "updater/exception.h"
#include "updater/registered_applications.h"

namespace harbix {
namespace {

using updater::RegisteredApplication;

void list(const std::vector<RegisteredApplication>& applications) {
  for (const RegisteredApplication& one : applications) {
    std::cerr << "ID: " << one.id << " DIR: " << one.dir << " VER: " << one.version << " SRC: " << one.source
              << '\n';
  }
}

std::optional<ApplicationSelection> selected_applications(std::span<const std::string> package_ids) {
  std::vector<RegisteredApplication> installed;
  if (!updater::read_registered_applications(installed)) {
    std::cerr << "Error reading registered apps\n";
    return std::nullopt;
  }
  if (verbose) list(installed);
  try {
    return select_applications(std::move(installed), package_ids);
  } catch (const updater::Exception& error) {
    diagnostics::line(0, "ERROR: %s", error.what());
    std::cerr << "Error: " << error.what() << '\n';
    return std::nullopt;
  }
}

/// A part of the home screen, archived as if it were installed.
RegisteredApplication component(const char* name) {
  return {.id = name, .dir = name, .version = "0.0.0.0", .source = domains::BUILT_IN_MARKER};
}

void archive_selection(ArchiveWriter& writer, const ApplicationSelection& selection) {
  for (const RegisteredApplication& one : selection.applications) archive_application(writer, one);
  if (selection.navigator) archive_navigator_objects(writer);
  if (selection.system_tray) archive_application(writer, component(places::SYSTEM_TRAY));
  if (selection.navigator) archive_application(writer, component(places::NAVIGATOR));
}

}  // namespace

int harbix_app(ArchiveWriter& writer, bool size_only, std::span<const std::string> package_ids,
               SizeResult& result) {
  if (verbose) std::cerr << "harbix_app\n";
  const std::optional<ApplicationSelection> selection = selected_applications(package_ids);
  if (!selection) return 1;
  if (size_only) {
    for (const RegisteredApplication& one : selection->applications) measure_application(writer, one, result);
  } else {
    archive_selection(writer, *selection);
  }
  return 0;
}

}  // namespace harbix
