#pragma once

#include <set>

#include "archive/record_names.h"
#include "inspect/package_check.h"
#include "inspect/record_table.h"

namespace harbix::inspect {

/// The records of a package whose paths stand in lines of their own, held against the entries that follow:
/// media and settings. What is odd here costs nothing, as no restore needs these records; but the names may
/// have been changed.
class PlainRecordCheck : public PackageCheck {
 public:
  using PackageCheck::PackageCheck;

 protected:
  /// Whether the record's size is that of the contents: not for PPS objects, of which a part is stored.
  enum class Size { COUNTS, IS_ANY };

  void add_piece(std::string_view piece);
  void end_records();
  /// @return false when the path was met before, and is none of a folder.
  bool meet_path(const Item& item, const fs::Path& path, Size size);
  void end_items();

 private:
  void take(std::string_view record);

  PlainRecords records_;
  ChangedNames names_;  ///< the restore's judgement
  RecordTable table_;
  std::set<std::uint64_t> unlisted_;  ///< hashes of paths without a record
  bool has_strange_record_ = false;
  bool has_too_many_ = false;  ///< records: none is looked at
};

/// A package of media.
class MediaCheck : public PlainRecordCheck {
 public:
  using PlainRecordCheck::PlainRecordCheck;

  void read_manifest(const Item& item, ArchiveReader& reader, const ManifestListener& listener) override;
  void meet(const Item& item) override;
  void end() override { end_items(); }
};

}  // namespace harbix::inspect
