#include "app/application_package.h"

#include <algorithm>
#include <iostream>
#include <utility>

#include "app/layout.h"
#include "base/flags.h"
#include "fs/containment.h"

namespace harbix {
namespace {

constexpr std::size_t KIND_POSITION = 2;

}  // namespace

ApplicationPackage::ApplicationPackage(Package package)
    : metadata_name_(std::move(package.entry_name)),
      components_(metadata_name_.components()),
      attributes_(std::move(package.manifest)),
      records_(read_file_records(attributes_)) {
  // The text of a million records is not needed twice.
  std::erase_if(attributes_, begins_file_record);
  attributes_.shrink_to_fit();
}

bool ApplicationPackage::has_application_name() const {
  return components_.size() > KIND_POSITION &&
         fs::Path(fs::Path::SEPARATOR + components_.front().text()) == places::APPLICATION_PREFIX;
}

bool ApplicationPackage::has_kind(std::string_view kind) const {
  return has_application_name() && components_[KIND_POSITION].text() == kind;
}

bool ApplicationPackage::is_of_kind(std::string_view kind) const {
  if (verbose) {
    for (const fs::Path& component : components_) std::cerr << "=>" << component << ":";
    std::cerr << '\n';
  }
  return has_kind(kind);
}

bool ApplicationPackage::is_known() const {
  return is_home_screen() || has_kind(places::BINARY_KIND) || has_kind(places::DATA_KIND);
}

std::string ApplicationPackage::package() const { return components_.at(1).text(); }

bool ApplicationPackage::is_home_screen() const {
  return has_application_name() && harbix::is_home_screen(package());
}

std::string ApplicationPackage::app_directory() const {
  return meta::look_up(attributes_, package_attributes::APP_DIRECTORY);
}

std::string ApplicationPackage::data_directory() const {
  return meta::look_up(attributes_, package_attributes::DATA_DIRECTORY);
}

std::string ApplicationPackage::extras() const {
  const auto found = std::ranges::find(attributes_, package_attributes::EXTRAS, &meta::Attribute::key);
  return found == attributes_.end() ? "" : found->value;
}

bool ApplicationPackage::has_valid_paths(const fs::Path& base) const {
  if (fs::Path(data_directory()) != data_folder(app_directory())) return false;
  return std::ranges::all_of(
      records_, [&base](const FileRecord& record) { return fs::is_record_path_below(record.path, base); });
}

std::optional<ApplicationPackage> next_application_package(
    ArchiveReader& reader, const std::function<void(const std::string& reason)>& malformed) {
  for (;;) {
    try {
      std::optional<Package> package = find_manifest(reader, METADATA_NAME, OtherEntries::SKIP);
      if (!package) return std::nullopt;
      return ApplicationPackage(*std::move(package));
    } catch (const meta::malformed_manifest& error) {
      malformed(error.what());
    }
  }
}

}  // namespace harbix
