#include "app/backup.h"

#include <algorithm>
#include <iostream>
#include <optional>
#include <vector>

#include "app/application_archive.h"
#include "app/layout.h"
#include "archive/package_writer.h"
#include "archive/pps_object.h"
#include "base/domains.h"
#include "base/flags.h"
#include "base/places.h"
#include "base/report.h"
#include "updater/exception.h"
#include "updater/registered_applications.h"

namespace harbix {
namespace {

using updater::RegisteredApplication;

bool contains(std::span<const std::string> names, std::string_view name) {
  return std::ranges::find(names, name) != names.end();
}

void list(const std::vector<RegisteredApplication>& applications) {
  for (const RegisteredApplication& one : applications) {
    std::cerr << "ID: " << one.id << " DIR: " << one.dir << " VER: " << one.version << " SRC: " << one.source
              << '\n';
  }
}

std::optional<ApplicationSelection> selected_applications(std::span<const std::string> package_ids) {
  report::progress("harbix_app");
  std::vector<RegisteredApplication> installed;
  if (!updater::read_registered_applications(installed)) {
    std::cerr << "Error reading registered apps\n";
    return std::nullopt;
  }
  if (verbose) list(installed);
  try {
    return select_applications(std::move(installed), package_ids);
  } catch (const updater::Exception& error) {
    report::error(error.what());
    return std::nullopt;
  }
}

/// A part of the home screen, archived as if it were installed.
RegisteredApplication component(const char* name) {
  return {.id = name, .dir = name, .version = "0.0.0.0", .source = domains::BUILT_IN_MARKER};
}

meta::Attribute object_record(const fs::File& object) { return path_record(object.path()); }

void announce_object(report::ProgressLines& /*progress*/, const fs::Path& path, const fs::Path& /*name*/) {
  report::progress("Entry: ", path);
}

bool is_on_disk(const fs::Path& /*object*/) { return false; }

constexpr PackageStyle OBJECTS{.record = object_record,
                               .announce = announce_object,
                               .write = write_pps_object,
                               .is_on_disk = is_on_disk};

/// Writes the package of the navigator's PPS objects, with those of them that exist.
void archive_navigator_objects(ArchiveWriter& writer) {
  fs::Folder objects(places::PPS);
  PackageWriter package(writer, objects, OBJECTS);
  for (const fs::Path path : places::NAVIGATOR_OBJECTS) {
    if (fs::exists(path)) package.add(fs::File(path));
  }
  package.store(package_name(places::NAVIGATOR, places::OBJECT_KIND), "/",
                {{package_attributes::PACKAGE, places::NAVIGATOR},
                 {package_attributes::APP_DIRECTORY, places::NAVIGATOR},
                 {package_attributes::DATA_DIRECTORY, places::NAVIGATOR}});
}

void archive_selection(ArchiveWriter& writer, const ApplicationSelection& selection,
                       Completeness& completeness) {
  for (const RegisteredApplication& one : selection.applications)
    archive_application(writer, one, completeness);
  if (selection.navigator) archive_navigator_objects(writer);
  if (selection.system_tray) archive_application(writer, component(places::SYSTEM_TRAY), completeness);
  if (selection.navigator) archive_application(writer, component(places::NAVIGATOR), completeness);
}

/// Takes out, and reports, what a restore would refuse by its names.
void leave_out_unrestorable(std::vector<RegisteredApplication>& applications, Completeness& completeness) {
  std::erase_if(applications, [&completeness](const RegisteredApplication& one) {
    if (has_restorable_names(one)) return false;
    completeness.note_missing();
    report::error("The application '" + one.id + "' (package '" + one.dir +
                  "') is left out: no restore would take these names");
    return true;
  });
}

}  // namespace

ApplicationSelection select_applications(std::vector<updater::RegisteredApplication> installed,
                                         std::span<const std::string> package_ids) {
  ApplicationSelection selection{.applications = std::move(installed)};
  if (package_ids.empty()) return selection;
  const std::span<const std::string> names = package_ids.subspan(1);
  for (const std::string& name : names) {
    if (name == places::NAVIGATOR || name == places::SYSTEM_TRAY) continue;
    static_cast<void>(updater::find_application(selection.applications, name, updater::MustExist::YES));
  }
  std::erase_if(selection.applications,
                [&](const updater::RegisteredApplication& one) { return !contains(names, one.dir); });
  selection.system_tray = contains(names, places::SYSTEM_TRAY);
  selection.navigator = contains(names, places::NAVIGATOR);
  return selection;
}

namespace app {

int back_up(ArchiveWriter& writer, std::span<const std::string> package_ids) {
  std::optional<ApplicationSelection> selection = selected_applications(package_ids);
  if (!selection) return 1;
  Completeness completeness;
  leave_out_unrestorable(selection->applications, completeness);
  archive_selection(writer, *selection, completeness);
  return completeness.result();
}

int measure(ArchiveWriter& writer, std::span<const std::string> package_ids, SizeResult& result) {
  std::optional<ApplicationSelection> selection = selected_applications(package_ids);
  if (!selection) return 1;
  Completeness completeness;
  leave_out_unrestorable(selection->applications, completeness);
  for (const RegisteredApplication& one : selection->applications)
    measure_application(writer, one, result, completeness);
  return completeness.result();
}

}  // namespace app

}  // namespace harbix
