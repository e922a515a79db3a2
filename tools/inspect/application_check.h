#pragma once

#include <optional>
#include <string>

#include "archive/file_record.h"
#include "archive/manifest.h"
#include "inspect/package_check.h"
#include "inspect/record_table.h"

namespace harbix::inspect {

/// A package of an application, or of a part of the home screen.
class ApplicationCheck : public PackageCheck {
 public:
  ApplicationCheck(PackageName package, Findings& findings);

  void read_manifest(const Item& item, ArchiveReader& reader, const ManifestListener& listener) override;
  void meet(const Item& item) override;
  void end() override;

  /// What the manifest names as the application's folder; nothing when it does not.
  [[nodiscard]] const std::optional<std::string>& directory() const noexcept { return directory_; }

 private:
  void read_attributes(ArchiveReader& reader, const ManifestListener& listener);
  void take(const meta::Attribute& attribute);
  void take(const FileRecord& record);
  void judge_description();
  void match(const Item& item, const fs::Path& path);
  [[nodiscard]] std::optional<Flaw> refusal_of(const EntryView& entry, const fs::Path& path);
  [[nodiscard]] std::optional<Flaw> refusal_of_component(const EntryView& entry, const fs::Path& path) const;
  [[nodiscard]] fs::Path base() const;

  bool is_component_;  ///< of the home screen
  std::optional<std::string> directory_;
  std::optional<std::string> data_directory_;
  RecordTable table_;
  std::uint64_t misplaced_ = 0;  ///< records of paths that the package may not have
};

}  // namespace harbix::inspect
