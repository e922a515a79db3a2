#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "app/application_package.h"
#include "archive/reader.h"
#include "updater/registered_applications.h"

namespace harbix {

/// Restores the packages of applications: their binaries and their data. What becomes of one package can
/// decide about the next.
class ApplicationRestore {
 public:
  /// `owner` is the user that owns installed applications, `registered` the installer's list.
  ApplicationRestore(ArchiveReader& reader, uid_t owner,
                     const std::vector<updater::RegisteredApplication>& registered)
      : reader_(reader), owner_(owner), registered_(registered) {}

  /// Puts the binaries on disk and registers the application, unless they are refused. What was not read of
  /// the package stays in the archive.
  /// @throws std::runtime_error for a manifest without an attribute that it must have; fs::Exception when
  /// owners cannot be set.
  void restore_binaries(const ApplicationPackage& package);

  /// Replaces the data of an application that is installed.
  /// @throws as restore_binaries does.
  void restore_data(const ApplicationPackage& package);

  /// Whether every exchange with the installer that a package depended on has succeeded.
  [[nodiscard]] bool is_complete() const noexcept { return is_complete_; }

 private:
  [[nodiscard]] bool are_binaries_acceptable(const ApplicationPackage& package, const fs::Path& target);
  /// Whether what is installed there may be replaced.
  [[nodiscard]] bool is_replaceable(const fs::Path& target, const std::string& id);
  [[nodiscard]] bool is_registered(const std::string& id) const;
  void refuse_binaries(const ApplicationPackage& package);
  void register_application(const ApplicationPackage& package, const fs::Path& target);
  /// 0 for an application that is not there, nothing when the installer does not say.
  [[nodiscard]] std::optional<gid_t> query_group(const fs::Path& target);
  void replace_data(const ApplicationPackage& package, gid_t group);
  void report_failed_exchange(const fs::Path& target, const char* reason);

  ArchiveReader& reader_;
  uid_t owner_;
  const std::vector<updater::RegisteredApplication>& registered_;
  std::string refused_;  ///< the last package whose binaries were refused
  bool is_complete_ = true;
};

}  // namespace harbix
