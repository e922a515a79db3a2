#include "app/application_archive.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <utility>

#include "app/package_attributes.h"
#include "app/package_items.h"
#include "app/places.h"
#include "app/progress_lines.h"
#include "archive/item_error.h"
#include "archive/metadata_entry.h"
#include "base/domains.h"
#include "base/flags.h"
#include "base/places.h"
#include "updater/actions.h"
#include "updater/exception.h"

namespace harbix {
namespace {

using updater::RegisteredApplication;

bool is_from_storefront(const RegisteredApplication& application) {
  return application.source == domains::STOREFRONT_SOURCE;
}

fs::Path binary_folder(const RegisteredApplication& application) {
  return fs::Path(places::APPLICATIONS) / application.id;
}

fs::Path data_folder(const RegisteredApplication& application) {
  return fs::Path(places::APPLICATION_DATA) / application.id;
}

PackageItems binary_items(const ArchiveWriter& writer, const RegisteredApplication& application) {
  PackageItems items(writer);
  items.add_tree(binary_folder(application));
  return items;
}

PackageItems data_items(const ArchiveWriter& writer, const RegisteredApplication& application) {
  PackageItems items(writer);
  const fs::Path folder = data_folder(application);
  items.add(folder / places::DATA_FOLDER);
  items.add(folder / places::LOG_FOLDER);
  items.add(folder / places::TEMPORARY_FOLDER);
  items.add_tree(folder / places::DATA_FOLDER);
  return items;
}

meta::Manifest describe(const RegisteredApplication& application) {
  return {{package_attributes::PACKAGE, application.dir},
          {package_attributes::APP_DIRECTORY, application.id},
          {package_attributes::DATA_DIRECTORY, data_folder(application).text()}};
}

struct Binaries {
  PackageItems items;
  std::string extras;  ///< what the installer needs to register the application again
};

Binaries collect_binaries(const ArchiveWriter& writer, const RegisteredApplication& application) {
  if (verbose) std::cerr << "QUERY EXTRAS " << application.id << '\n';
  updater::ActionQuery query(binary_folder(application).text());
  query.write_request();
  // While the installer looks it up.
  PackageItems items = binary_items(writer, application);
  query.read_response();
  std::string extras = query.get_attribute("actual_extras");
  if (verbose) std::cerr << "Extras: " << extras << '\n';
  return {.items = std::move(items), .extras = std::move(extras)};
}

class PackageArchiver {
 public:
  /// Entries are named `name` joined with their path relative to `base`.
  PackageArchiver(ArchiveWriter& writer, fs::Path name, fs::Path base)
      : writer_(writer), name_(std::move(name)), base_(std::move(base)) {}

  void store(meta::Manifest manifest, PackageItems items) {
    std::ranges::move(items.take_records(), std::back_inserter(manifest));
    store_manifest(writer_, name_, METADATA_NAME, manifest);
    // Not needed any more, and as large as the list of items.
    manifest = meta::Manifest();
    for (const fs::Path& path : items.paths()) {
      tolerate_item_error([&] { archive_path(path); }, "");
    }
  }

 private:
  void archive_path(const fs::Path& path) {
    if (verbose) progress_.add("Entry: ", path.text());
    progress_.add("Archive: ", path.text());
    try {
      writer_.write(opener_.open(path), name_ / path.relative_to(base_));
    } catch (...) {
      progress_.flush();  // the error is told of behind the path
      throw;
    }
  }

  ArchiveWriter& writer_;
  SourceOpener opener_;
  ProgressLines progress_;
  fs::Path name_;
  fs::Path base_;
};

fs::Path package_name(const RegisteredApplication& application, const char* kind) {
  return fs::Path(places::APPLICATION_PREFIX) / application.dir / kind;
}

void archive_binaries(ArchiveWriter& writer, const RegisteredApplication& application) {
  Binaries binaries = collect_binaries(writer, application);
  meta::Manifest manifest = describe(application);
  // An attribute without a value would take the next line for its own.
  if (!binaries.extras.empty()) manifest.push_back({package_attributes::EXTRAS, std::move(binaries.extras)});
  PackageArchiver(writer, package_name(application, places::BINARY_KIND), binary_folder(application))
      .store(std::move(manifest), std::move(binaries.items));
}

void archive_data(ArchiveWriter& writer, const RegisteredApplication& application) {
  PackageArchiver(writer, package_name(application, places::DATA_KIND), data_folder(application))
      .store(describe(application), data_items(writer, application));
}

}  // namespace

void archive_application(ArchiveWriter& writer, const RegisteredApplication& application) {
  if (is_from_storefront(application)) archive_binaries(writer, application);
  archive_data(writer, application);
}

void measure_application(const ArchiveWriter& writer, const RegisteredApplication& application,
                         SizeResult& result) {
  if (!fs::exists(binary_folder(application))) {
    if (!is_from_storefront(application)) return;
    throw updater::Exception("Invalid registered app:" + application.dir);
  }
  if (is_from_storefront(application)) result.bytes += binary_items(writer, application).bytes();
  result.bytes += data_items(writer, application).bytes();
  ++result.files;
}

}  // namespace harbix
