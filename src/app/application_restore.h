#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "app/application_judgement.h"
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
      : reader_(reader), owner_(owner), completeness_(completeness), there_(registered) {}

  /// From here on, leaves the binaries of applications alone that are there.
  void keep_installed() noexcept { judgement_.keep_installed(); }

  /// Puts the binaries on disk and registers the application, unless they are refused. What was not read of
  /// the package stays in the archive.
  /// @throws std::runtime_error for a manifest without an attribute that it must have; fs::Exception when
  /// owners cannot be set.
  void restore_binaries(const ApplicationPackage& package);

  /// Replaces the data of an application that is installed.
  /// @throws as restore_binaries does.
  void restore_data(const ApplicationPackage& package);

 private:
  void report_refusal(const ApplicationPackage& package, const BinariesVerdict& verdict);
  /// Takes away an application whose binaries did not all get to disk.
  void remove_binaries(const ApplicationPackage& package);
  void register_application(const ApplicationPackage& package, const fs::Path& target);
  void report_refusal(const ApplicationPackage& package, const DataVerdict& verdict);
  void replace_data(const ApplicationPackage& package, gid_t group);
  void put_data_in_place(PackageExtraction& extraction, const fs::Path& data, gid_t group,
                         std::uint64_t needed);
  /// Whether the new data can be made: beside the old, or else in the place of the old, which is removed.
  [[nodiscard]] bool make_room(fs::Folder& all_data, const fs::Path& data, std::uint64_t needed);
  void fail(const std::string& reason);

  ArchiveReader& reader_;
  uid_t owner_;
  Completeness& completeness_;
  ApplicationsThere there_;
  ApplicationJudgement judgement_{there_};
};

}  // namespace harbix
