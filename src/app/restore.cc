#include "app/restore.h"

#include <exception>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/application_package.h"
#include "app/application_restore.h"
#include "app/home_screen_programs.h"
#include "app/home_screen_restore.h"
#include "app/layout.h"
#include "app/staged_data.h"
#include "app/uninstalling.h"
#include "archive/completeness.h"
#include "archive/error.h"
#include "archive/space_report.h"
#include "base/domains.h"
#include "base/flags.h"
#include "base/log.h"
#include "base/report.h"
#include "fs/accounts.h"
#include "fs/identity.h"
#include "updater/registered_applications.h"

namespace harbix {
namespace {

using updater::RegisteredApplication;

constexpr mode_t RESTORE_MASK = 007;

class AppRestore {
 public:
  AppRestore(ArchiveReader& reader, const std::vector<RegisteredApplication>& registered)
      : reader_(reader),
        owner_(fs::user_id(domains::APPLICATIONS_USER)),
        applications_(reader, owner_, registered, completeness_),
        next_(next_package()) {}

  /// Whether there is a package that can be read, and whether it is one of applications.
  [[nodiscard]] bool has_package() const { return next_ || !completeness_.is_complete(); }
  [[nodiscard]] bool begins_well() const { return completeness_.is_complete() && next_ && next_->is_known(); }

  /// From here on, removes nothing that is there to make place for what the archive holds in pieces.
  void keep_installed() noexcept {
    applications_.keep_installed();
    old_data_ = OldData::KEPT;
  }

  void fail(const std::string& reason) {
    completeness_.note_missing();
    report::error(reason);
  }

  /// @return whether every package was one that can be restored.
  bool run() {
    const fs::FileMask mask(RESTORE_MASK);
    while (next_) {
      if (verbose) std::cerr << space_report(space_needed(next_->records()), next_->metadata_name().text());
      if (!restore_alone(*next_)) return false;
      next_.reset();  // one package at a time is in memory
      next_ = next_package();
    }
    report::progress("EOF");
    return completeness_.is_complete();
  }

 private:
  std::optional<ApplicationPackage> next_package() {
    return next_application_package(reader_, [this](const std::string& reason) { fail(reason); });
  }

  /// What goes wrong within a package ends that package alone: the applications behind it may have been
  /// uninstalled by now. Damage of the archive shows again at the next package.
  bool restore_alone(const ApplicationPackage& package) {
    try {
      return restore(package);
    } catch (const fs::IdentityError&) {
      throw;
    } catch (const std::runtime_error& error) {
      fail(error.what());
      return true;
    }
  }

  bool restore(const ApplicationPackage& package) {
    if (package.is_home_screen()) {
      std::cerr << "HMI component (" << package.package() << ")\n";
      if (!is_home_screen_stopped_) stop_home_screen();
      is_home_screen_stopped_ = true;
      restore_home_screen(reader_, package, owner_, old_data_, completeness_);
    } else if (package.is_of_kind(places::BINARY_KIND)) {
      applications_.restore_binaries(package);
    } else if (package.is_of_kind(places::DATA_KIND)) {
      applications_.restore_data(package);
    } else {
      std::cerr << "Path " << package.metadata_name() << " not recognized\n";
      diagnostics::line(0, "Package not recognized '%s'", package.metadata_name().c_str());
      return false;
    }
    return true;
  }

  ArchiveReader& reader_;
  uid_t owner_;
  Completeness completeness_;
  ApplicationRestore applications_;
  std::optional<ApplicationPackage> next_;
  OldData old_data_ = OldData::REMOVED;
  bool is_home_screen_stopped_ = false;
};

int restore_applications(ArchiveReader& reader) {
  std::vector<RegisteredApplication> installed;
  if (!updater::read_registered_applications(installed)) {
    std::cerr << "Error reading registered apps\n";
    return 1;
  }
  if (!pretend) remove_interrupted_data();
  // Damage, or the archive of something else, must show before anything is uninstalled.
  AppRestore restore(reader, installed);
  const InstalledVerdict verdict =
      judge_installed(reader, restore.has_package(), restore.begins_well(), installed);
  if (verdict.reason) restore.fail(*verdict.reason);
  switch (verdict.installed) {
    case InstalledOnes::UNINSTALLED:
      uninstall_storefront(installed);
      break;
    case InstalledOnes::KEPT:
      restore.keep_installed();
      break;
    case InstalledOnes::UNTOUCHED:
      return 1;
  }
  return restore.run() ? 0 : 1;
}

}  // namespace
}  // namespace harbix

namespace harbix::app {

int restore(ArchiveReader& reader) {
  try {
    return restore_applications(reader);
  } catch (const std::exception& error) {
    if (lacks_memory(error)) throw;  // the run is over
    report::error(error.what());
    return 1;
  }
}

}  // namespace harbix::app
