#include "app/application_archive.h"

#include <cerrno>
#include <string>
#include <utility>

#include "app/layout.h"
#include "archive/error.h"
#include "archive/package_writer.h"
#include "base/domains.h"
#include "base/flags.h"
#include "base/log.h"
#include "base/places.h"
#include "base/report.h"
#include "fs/containment.h"
#include "fs/exception.h"
#include "fs/folder.h"
#include "fs/walk.h"
#include "updater/exception.h"
#include "updater/installer_client.h"

namespace harbix {
namespace {

using updater::RegisteredApplication;

void announce(report::ProgressLines& progress, const fs::Path& path, const fs::Path& /*name*/) {
  if (verbose) progress.add("Entry: ", path.text());
  progress.add("Archive: ", path.text());
}

constexpr PackageStyle STYLE{
    .record = status_record, .announce = announce, .write = write_object, .error_prefix = ""};

/// Whether something lies there. What cannot be looked at does.
bool is_there(fs::Folder& folder, const fs::Path& relative) try {
  static_cast<void>(folder.file(relative));
  return true;
} catch (const fs::Exception& failure) {
  if (ends_run(failure)) throw;
  return failure.error() != ENOENT && failure.error() != ENOTDIR && failure.error() != ELOOP;
}

/// Gathers an item, or a record of it where there is none.
void collect(fs::Folder& folder, const fs::Path& path, PackageWriter& package) {
  try {
    package.add(folder.file(folder.relative(path)));
  } catch (const fs::Exception& missing) {
    if (ends_run(missing)) throw;
    diagnostics::line(5, "%s", missing.what());
    package.add_missing(path);
  }
}

/// Gathers everything below a folder. Nothing for a link to one: what it leads to belongs to another program.
void collect_below(fs::Folder& folder, const fs::Path& path, PackageWriter& package,
                   Completeness& completeness) try {
  const fs::Path relative = folder.relative(path);
  if (!is_there(folder, relative) || !folder.file(relative).is_directory()) return;
  fs::Walk walk(folder, relative, path);
  while (const fs::WalkItem* item = walk.next()) {
    if (!item->failure) {
      package.add(item->file);
    } else if (!item->has_vanished()) {
      report_unlisted(*item->failure, completeness);
    }
  }
} catch (const fs::Exception& failure) {
  report_unlisted(failure, completeness);
}

void collect_data(fs::Folder& folder, const fs::Path& path, PackageWriter& package,
                  Completeness& completeness) {
  collect(folder, path / places::DATA_FOLDER, package);
  collect(folder, path / places::LOG_FOLDER, package);
  collect(folder, path / places::TEMPORARY_FOLDER, package);
  collect_below(folder, path / places::DATA_FOLDER, package, completeness);
}

meta::Manifest describe(const RegisteredApplication& application) {
  return {{package_attributes::PACKAGE, application.dir},
          {package_attributes::APP_DIRECTORY, application.id},
          {package_attributes::DATA_DIRECTORY, data_folder(application.id).text()}};
}

/// Gathers the installed application while the installer looks up what it needs to register it again.
/// @return the installer's answer.
std::string collect_binaries(fs::Folder& folder, const RegisteredApplication& application,
                             PackageWriter& package, Completeness& completeness) {
  report::progress("QUERY EXTRAS ", application.id);
  updater::ActionQuery query(binary_folder(application.id).text());
  query.write_request();
  collect_below(folder, binary_folder(application.id), package, completeness);
  query.read_response();
  std::string extras = query.get_attribute("actual_extras");
  report::progress("Extras: ", extras);
  return extras;
}

void archive_binaries(ArchiveWriter& writer, const RegisteredApplication& application,
                      Completeness& completeness) {
  fs::Folder applications(places::APPLICATIONS);
  PackageWriter package(writer, applications, STYLE);
  std::string extras = collect_binaries(applications, application, package, completeness);
  meta::Manifest manifest = describe(application);
  // An attribute without a value would take the next line for its own.
  if (!extras.empty()) manifest.push_back({package_attributes::EXTRAS, std::move(extras)});
  package.store(package_name(application.dir, places::BINARY_KIND), binary_folder(application.id), manifest);
}

void archive_data(ArchiveWriter& writer, const RegisteredApplication& application,
                  Completeness& completeness) {
  fs::Folder data(places::APPLICATION_DATA);
  PackageWriter package(writer, data, STYLE);
  collect_data(data, data_folder(application.id), package, completeness);
  package.store(package_name(application.dir, places::DATA_KIND), data_folder(application.id),
                describe(application));
}

}  // namespace

bool has_restorable_names(const RegisteredApplication& application) {
  return is_application_folder(application.id) && fs::is_plain_component(application.dir);
}

void archive_application(ArchiveWriter& writer, const RegisteredApplication& application,
                         Completeness& completeness) {
  if (is_from_storefront(application)) archive_binaries(writer, application, completeness);
  archive_data(writer, application, completeness);
}

void measure_application(ArchiveWriter& writer, const RegisteredApplication& application, SizeResult& result,
                         Completeness& completeness) {
  fs::Folder applications(places::APPLICATIONS);
  if (!applications.holds(fs::Path(application.id))) {
    if (!is_from_storefront(application)) return;
    throw updater::Exception("Invalid registered app:" + application.dir);
  }
  fs::Folder data(places::APPLICATION_DATA);
  PackageWriter binaries(writer, applications, STYLE);
  PackageWriter kept(writer, data, STYLE);
  if (is_from_storefront(application))
    collect_below(applications, binary_folder(application.id), binaries, completeness);
  collect_data(data, data_folder(application.id), kept, completeness);
  result += {.bytes = saturated_sum(binaries.bytes(), kept.bytes()), .files = 1};
}

}  // namespace harbix
