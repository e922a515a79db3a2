#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/layout.h"
#include "archive/file_record.h"
#include "archive/metadata_entry.h"

namespace harbix {

/// A package as its metadata entry describes it.
class ApplicationPackage {
 public:
  /// Takes the manifest apart.
  explicit ApplicationPackage(Package package);

  /// Name of the metadata entry, in full: "/app/PACKAGE/KIND/.backup.metadata".
  [[nodiscard]] const fs::Path& metadata_name() const noexcept { return metadata_name_; }
  /// What the names of the package's entries begin with: "/app/PACKAGE/KIND".
  [[nodiscard]] fs::Path name() const { return metadata_name_.dirname(); }
  /// Whether it is an application's package of this kind.
  [[nodiscard]] bool has_kind(std::string_view kind) const;
  /// As has_kind, and with verbose output a trace of its components.
  [[nodiscard]] bool is_of_kind(std::string_view kind) const;
  /// PACKAGE, for a package of any kind.
  [[nodiscard]] std::string package() const;
  /// Whether it is a part of the home screen.
  [[nodiscard]] bool is_home_screen() const;
  /// Whether it is a package that a restore of applications knows at all.
  [[nodiscard]] bool is_known() const;

  /// @throws std::runtime_error "Key App-Directory not found." and the like.
  [[nodiscard]] std::string app_directory() const;
  [[nodiscard]] std::string data_directory() const;
  /// Empty for a package without them.
  [[nodiscard]] std::string extras() const;

  [[nodiscard]] const std::vector<FileRecord>& records() const noexcept { return records_; }

  /// Whether "App-Directory" can be the name of an application's folder. Everything that is removed,
  /// extracted or given to an owner lies below it.
  [[nodiscard]] bool has_plain_directory() const { return is_application_folder(app_directory()); }

  /// Whether the package fits its description: its data lies where that of such an application lies, and
  /// every record's path is in normal form and strictly below `base`.
  [[nodiscard]] bool has_valid_paths(const fs::Path& base) const;

 private:
  /// "/app/PACKAGE/KIND" and whatever follows.
  [[nodiscard]] bool has_application_name() const;

  fs::Path metadata_name_;
  std::vector<fs::Path> components_;
  meta::Manifest attributes_;
  std::vector<FileRecord> records_;
};

/// Reads on to the next package of the reader's section; nothing at its end. A package whose manifest is
/// malformed is passed over, and the reason handed on.
/// @throws std::runtime_error as find_manifest does.
[[nodiscard]] std::optional<ApplicationPackage> next_application_package(
    ArchiveReader& reader, const std::function<void(const std::string& reason)>& malformed);

}  // namespace harbix
