#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/application_package.h"
#include "app/package_extraction.h"
#include "archive/reader.h"
#include "updater/registered_applications.h"

namespace harbix {

/// Restores the packages of applications: their binaries and their data. What becomes of one package can
/// decide about the next.
class ApplicationRestore {
 public:
  /// `owner` is the user that owns installed applications, `registered` the installer's list. What
  /// the device allows and is not restored is reported, and noted in `completeness`.
  ApplicationRestore(ArchiveReader& reader, uid_t owner,
                     const std::vector<updater::RegisteredApplication>& registered,
                     Completeness& completeness)
      : reader_(reader), owner_(owner), registered_(registered), completeness_(completeness) {}

  /// From here on, leaves the binaries of applications alone that are there.
  void keep_installed() noexcept { keeps_installed_ = true; }

  /// Puts the binaries on disk and registers the application, unless they are refused. What was not read of
  /// the package stays in the archive.
  /// @throws std::runtime_error for a manifest without an attribute that it must have; fs::Exception when
  /// owners cannot be set.
  void restore_binaries(const ApplicationPackage& package);

  /// Replaces the data of an application that is installed.
  /// @throws as restore_binaries does.
  void restore_data(const ApplicationPackage& package);

 private:
  [[nodiscard]] bool are_binaries_acceptable(const ApplicationPackage& package, const fs::Path& target);
  [[nodiscard]] static bool has_fitting_target(const ApplicationPackage& package, const fs::Path& target);
  /// Whether what is installed there may be replaced.
  [[nodiscard]] bool is_replaceable(const fs::Path& target, const std::string& id);
  [[nodiscard]] bool is_registered(const std::string& id) const;
  void refuse_binaries(const ApplicationPackage& package);
  /// Takes away an application whose binaries did not all get to disk.
  void remove_binaries(const ApplicationPackage& package);
  void register_application(const ApplicationPackage& package, const fs::Path& target);
  /// 0 for an application that is not there, nothing when the installer does not say.
  [[nodiscard]] std::optional<gid_t> query_group(const fs::Path& target);
  void replace_data(const ApplicationPackage& package, gid_t group);
  void put_data_in_place(PackageExtraction& extraction, const fs::Path& data, gid_t group,
                         std::uint64_t needed);
  /// Whether the new data can be made: beside the old, or else in the place of the old, which is removed.
  [[nodiscard]] bool make_room(fs::Folder& all_data, const fs::Path& data, std::uint64_t needed);
  void fail(const std::string& reason);
  void report_misfit(const ApplicationPackage& package);
  void report_failed_exchange(const fs::Path& target, const char* reason);

  ArchiveReader& reader_;
  uid_t owner_;
  const std::vector<updater::RegisteredApplication>& registered_;
  Completeness& completeness_;
  bool keeps_installed_ = false;
  std::set<std::string> early_data_;  ///< applications whose data stood before their binaries
  std::string refused_;               ///< the last package whose binaries were refused
};

}  // namespace harbix
