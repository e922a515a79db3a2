#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "app/application_package.h"
#include "archive/reader.h"

namespace harbix {

/// Restores the packages of applications: their binaries and their data. What becomes of one package can
/// decide about the next.
class ApplicationRestore {
 public:
  /// `owner` is the user that owns installed applications.
  ApplicationRestore(ArchiveReader& reader, uid_t owner) : reader_(reader), owner_(owner) {}

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
  void refuse_binaries(const ApplicationPackage& package);
  void register_application(const ApplicationPackage& package, const fs::Path& target);
  /// 0 for an application that is not there, nothing when the installer does not say.
  [[nodiscard]] std::optional<gid_t> query_group(const fs::Path& target);
  void replace_data(const ApplicationPackage& package, gid_t group);
  void report_failed_exchange(const fs::Path& target, const char* reason);

  ArchiveReader& reader_;
  uid_t owner_;
  std::string refused_;  ///< the last package whose binaries were refused
  bool is_complete_ = true;
};

}  // namespace harbix
