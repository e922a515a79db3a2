#include "app/application_restore.h"

#include <iostream>
#include <optional>
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

}  // namespace

void ApplicationRestore::restore_binaries(const ApplicationPackage& package) {
  report::progress("Bin Package ", package.package());
  const fs::Path target = binary_folder(package.app_directory());
  const BinariesVerdict verdict = judgement_.judge_binaries(package);
  if (!verdict.are_restored()) {
    report_refusal(package, verdict);
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

void ApplicationRestore::report_refusal(const ApplicationPackage& package, const BinariesVerdict& verdict) {
  using enum BinariesVerdict::Answer;
  const std::string directory = package.app_directory();
  const fs::Path target = binary_folder(directory);
  if (verdict.answer == OTHER_BASENAME)
    report::progress("Different basenames: '", target, "' '", directory, "'");
  if (verdict.answer == NOT_AT_APPS) report::progress("Not rooted at apps: '", target, "'");
  if (verdict.answer == BUILT_IN) report::progress("ERROR: Attempt to restore 1st or 2nd party app. ");
  if (verdict.is_failure()) fail(verdict.reason);
  std::cerr << BINARIES_STAY;
}

void ApplicationRestore::remove_binaries(const ApplicationPackage& package) {
  fail(incomplete_binaries_text(package));
  judgement_.refuse(package);
  fs::Folder applications(places::APPLICATIONS);
  const fs::Path folder(package.app_directory());
  if (applications.holds(folder)) fs::remove_tree(applications, folder);
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
    fail(failed_exchange_text(target, error.what()));
    return;
  }
  fs::Folder applications(places::APPLICATIONS);
  const fs::Path folder(package.app_directory());
  if (judgement_.has_early_data(target)) fail(early_data_text(target));
  // A package of no entries leaves nothing to own, and nothing but a folder is an application's.
  if (!applications.holds(folder) || !applications.file(folder).is_directory()) return;
  const Ownership ownership{.user = owner_, .group = group, .mode = BINARY_MODE};
  apply_ownership_below(ownership, applications, folder);
  apply_ownership(ownership, applications, folder);
}

void ApplicationRestore::restore_data(const ApplicationPackage& package) {
  report::progress("Data Package ", package.package());
  const DataVerdict verdict = judgement_.judge_data(package);
  if (verdict.told) {
    report::progress("Extras: ", verdict.told->extras,
                     "\nData dir: ", fs::Path(places::APPLICATION_DATA) / verdict.told->folder);
  }
  if (verdict.is_restored()) {
    replace_data(package, verdict.group);
  } else {
    report_refusal(package, verdict);
  }
}

void ApplicationRestore::report_refusal(const ApplicationPackage& package, const DataVerdict& verdict) {
  using enum DataVerdict::Answer;
  if (verdict.is_failure()) fail(verdict.reason);
  if (verdict.answer == BINARIES_REFUSED) std::cerr << "Skipping package: " << package.package() << '\n';
  if (verdict.answer == NO_BINARIES) std::cerr << "Warning: Could not determine actual_gid. Skipping data.\n";
  if (verdict.answer == NO_BINARIES || verdict.answer == NO_APPLICATION)
    diagnostics::line(1, "Application '%s' does not exist", binary_folder(package.app_directory()).c_str());
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
  const MadeData made{extraction.is_on_disk(), extraction.is_complete(), is_empty};
  if (!takes_place(made, [&] { return holds_files(all_data, name); })) {
    fail(incomplete_data_text(data));
    return;
  }
  if (!is_empty) {
    fs::Folder folder = staged.folder();
    apply_ownership_below({.user = data_owner(group), .group = group, .mode = DATA_MODE}, folder, name);
  }
  if (all_data.holds(name)) report::progress("REMOVE_DIR ", data);
  staged.take_place();
}

bool ApplicationRestore::make_room(fs::Folder& all_data, const fs::Path& data, std::uint64_t needed) {
  const std::uint64_t left = fs::free_space(all_data);
  const fs::Path name = all_data.relative(data);
  std::uint64_t room = left;
  const auto has_old = [&] { return holds_files(all_data, name); };
  const auto with_old = [&] { return room = left + fs::removable_space(all_data, name); };
  switch (judge_room(needed, left, has_old, with_old)) {
    case DataRoom::BESIDE:
      break;
    case DataRoom::IN_PLACE:
      report::progress("REMOVE_DIR ", data);
      fs::remove_tree(all_data, name);
      break;
    case DataRoom::NONE:
      fail(no_room_text(data, needed, room));
      return false;
  }
  return true;
}

void ApplicationRestore::fail(const std::string& reason) {
  completeness_.note_missing();
  report::error(reason);
}

}  // namespace harbix
