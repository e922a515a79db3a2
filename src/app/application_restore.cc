#include "app/application_restore.h"

#include <algorithm>
#include <iostream>
#include <stdexcept>

#include "app/layout.h"
#include "app/ownership.h"
#include "app/staged_data.h"
#include "archive/space_report.h"
#include "base/domains.h"
#include "base/flags.h"
#include "base/log.h"
#include "base/places.h"
#include "base/report.h"
#include "fs/exception.h"
#include "fs/space.h"
#include "fs/tree.h"
#include "updater/installer_client.h"

namespace harbix {
namespace {

constexpr mode_t BINARY_MODE = 0750;
constexpr mode_t DATA_MODE = 0770;
constexpr gid_t UNKNOWN_GROUP = 0;
constexpr char BINARIES_STAY[] = "Application binaries will not be restored.\n";

bool is_built_in(const fs::Path& target) {
  updater::ActionQuery query(target.text());
  query.exchange();
  return query.get_attribute("actual_extras").find(domains::BUILT_IN_MARKER) != std::string::npos;
}

}  // namespace

void ApplicationRestore::restore_binaries(const ApplicationPackage& package) {
  report::progress("Bin Package ", package.package());
  const fs::Path target = binary_folder(package.app_directory());
  if (!are_binaries_acceptable(package, target)) {
    refuse_binaries(package);
    return;
  }
  if (keeps_installed_ && fs::exists(target)) {
    // Its data can be restored all the same.
    std::cerr << BINARIES_STAY;
    return;
  }
  PackageExtraction extraction(reader_, package, target, Restorable::EVERYTHING);
  extraction.extract(owner_, UNKNOWN_GROUP);
  if (!extraction.is_complete()) completeness_.note_missing();
  if (extraction.is_on_disk()) {
    register_application(package, target);
  } else {
    remove_binaries(package);
  }
}

void ApplicationRestore::remove_binaries(const ApplicationPackage& package) {
  fail("The binaries of '" + package.package() +
       "' are not complete: the application is removed and not registered");
  refused_ = package.package();
  fs::Folder applications(places::APPLICATIONS);
  const fs::Path folder(package.app_directory());
  if (applications.holds(folder)) fs::remove_tree(applications, folder);
}

bool ApplicationRestore::are_binaries_acceptable(const ApplicationPackage& package, const fs::Path& target) {
  // The parts of the home screen are built in, and no list of the installer tells so.
  const std::string directory = package.app_directory();
  if (is_home_screen(directory)) return false;
  if (!has_fitting_target(package, target)) {
    report_misfit(package);
    return false;
  }
  if (fs::exists(target) && !is_replaceable(target, directory)) return false;
  if (package.has_valid_paths(target)) return true;
  report_misfit(package);
  return false;
}

bool ApplicationRestore::has_fitting_target(const ApplicationPackage& package, const fs::Path& target) {
  const std::string directory = package.app_directory();
  if (target.basename() != fs::Path(directory).basename()) {
    report::progress("Different basenames: '", target, "' '", directory, "'");
    return false;
  }
  if (target.text().substr(0, target.last_separator().value_or(0)) != places::APPLICATIONS) {
    report::progress("Not rooted at apps: '", target, "'");
    return false;
  }
  return package.has_plain_directory();
}

bool ApplicationRestore::is_replaceable(const fs::Path& target, const std::string& id) {
  // The installer makes folders only; owners would be set behind anything else.
  if (!fs::File(target).is_directory()) return false;
  try {
    if (!is_built_in(target)) return true;
    report::progress("ERROR: Attempt to restore 1st or 2nd party app. ");
  } catch (const fs::Exception& error) {
    report_failed_exchange(target, error.what());
  } catch (const std::runtime_error& error) {
    // The installer says nothing of what it does not know: what is left of a restore that was cut short
    // before the registration.
    if (!is_registered(id)) return true;
    report_failed_exchange(target, error.what());
  }
  return false;
}

bool ApplicationRestore::is_registered(const std::string& id) const {
  return std::ranges::find(registered_, id, &updater::RegisteredApplication::id) != registered_.end();
}

void ApplicationRestore::refuse_binaries(const ApplicationPackage& package) {
  std::cerr << BINARIES_STAY;
  refused_ = package.package();
}

void ApplicationRestore::register_application(const ApplicationPackage& package, const fs::Path& target) {
  gid_t group = UNKNOWN_GROUP;
  try {
    // Without a group id: the installer chooses.
    updater::ActionRegister request(target, package.extras(), "");
    request.exchange();
    report::progress("Registered '", target, "'");
    group = parse_application_group(request.get_attribute("actual_gid"));
    report::progress("Actual GID: ", group);
  } catch (const std::runtime_error& error) {
    report_failed_exchange(target, error.what());
    return;
  }
  fs::Folder applications(places::APPLICATIONS);
  const fs::Path folder(package.app_directory());
  if (early_data_.contains(target.text()))
    fail("The data of '" + target.text() +
         "' stands before its binaries in the archive: it was not restored");
  // A package of no entries leaves nothing to own, and nothing but a folder is an application's.
  if (!applications.holds(folder) || !applications.file(folder).is_directory()) return;
  const Ownership ownership{.user = owner_, .group = group, .mode = BINARY_MODE};
  apply_ownership_below(ownership, applications, folder);
  apply_ownership(ownership, applications, folder);
}

void ApplicationRestore::restore_data(const ApplicationPackage& package) {
  report::progress("Data Package ", package.package());
  if (package.package() == refused_) {
    std::cerr << "Skipping package: " << package.package() << '\n';
    refused_.clear();
    return;
  }
  if (!package.has_plain_directory() || is_home_screen(package.app_directory()) ||
      !package.has_valid_paths(fs::Path(package.data_directory()))) {
    report_misfit(package);
    return;
  }
  const fs::Path target = binary_folder(package.app_directory());
  const std::optional<gid_t> group = query_group(target);
  if (!group) return;
  if (*group < FIRST_APPLICATION_GROUP) {
    diagnostics::line(1, "Application '%s' does not exist", target.c_str());
    return;
  }
  replace_data(package, *group);
}

std::optional<gid_t> ApplicationRestore::query_group(const fs::Path& target) {
  if (!fs::exists(target)) {
    std::cerr << "Warning: Could not determine actual_gid. Skipping data.\n";
    early_data_.insert(target.text());
    return UNKNOWN_GROUP;
  }
  try {
    updater::ActionQuery query(target.text());
    query.exchange();
    const std::string extras = query.get_attribute("actual_extras");
    const std::string folder = query.get_attribute("actual_dname");
    report::progress("Extras: ", extras, "\nData dir: ", fs::Path(places::APPLICATION_DATA) / folder);
    return parse_application_group(query.get_attribute("actual_gid"));
  } catch (const std::runtime_error& error) {
    report_failed_exchange(target, error.what());
    return std::nullopt;
  }
}

void ApplicationRestore::replace_data(const ApplicationPackage& package, gid_t group) {
  const fs::Path data(package.data_directory());
  PackageExtraction extraction(reader_, package, data, Restorable::DATA_FOLDERS);
  // What is there must not go before something is seen that takes its place, and can.
  if (!extraction.is_readable()) return;
  if (!extraction.has_place(owner_, group)) {
    completeness_.note_missing();
    return;
  }
  if (pretend || package.records().empty()) {
    extraction.extract(owner_, group);
  } else {
    put_data_in_place(extraction, data, group, space_needed(package.records()).real_bytes);
  }
  if (!extraction.is_complete()) completeness_.note_missing();
}

void ApplicationRestore::put_data_in_place(PackageExtraction& extraction, const fs::Path& data, gid_t group,
                                           std::uint64_t needed) {
  fs::Folder all_data(places::APPLICATION_DATA);
  const fs::Path name = all_data.relative(data);
  StagedData staged(all_data, name, {.user = owner_, .group = group});
  if (!make_room(all_data, data, needed)) return;
  extraction.extract(owner_, group, staged.folder());
  const bool is_empty = !staged.folder().holds(name);
  const bool is_worth_it = extraction.is_on_disk() && (!is_empty || extraction.is_complete());
  if (!is_worth_it && holds_files(all_data, name)) {
    fail("The new data for '" + data.text() + "' is not complete: the old data stays");
    return;
  }
  if (!is_empty) {
    fs::Folder made = staged.folder();
    apply_ownership_below({.user = data_owner(group), .group = group, .mode = DATA_MODE}, made, name);
  }
  if (all_data.holds(name)) report::progress("REMOVE_DIR ", data);
  staged.take_place();
}

bool ApplicationRestore::make_room(fs::Folder& all_data, const fs::Path& data, std::uint64_t needed) {
  const std::uint64_t left = fs::free_space(all_data);
  const fs::Path name = all_data.relative(data);
  if (needed <= left || !holds_files(all_data, name)) return true;
  const std::uint64_t room = left + fs::removable_space(all_data, name);
  if (needed > room) {
    fail("The new data for '" + data.text() + "' needs " + std::to_string(needed) +
         " bytes, and there is room for " + std::to_string(room) + ": the old data stays");
    return false;
  }
  report::progress("REMOVE_DIR ", data);
  fs::remove_tree(all_data, name);
  return true;
}

void ApplicationRestore::fail(const std::string& reason) {
  completeness_.note_missing();
  report::error(reason);
}

void ApplicationRestore::report_misfit(const ApplicationPackage& package) {
  fail("The package '" + package.name().text() + "' does not fit its description");
}

void ApplicationRestore::report_failed_exchange(const fs::Path& target, const char* reason) {
  completeness_.note_missing();
  diagnostics::line(0, "ERROR: Installer request for '%s' failed: %s", target.c_str(), reason);
  std::cerr << "Error: Installer request for '" << target << "' failed: " << reason << '\n';
}

}  // namespace harbix
