#pragma once

#include <sys/types.h>

#include <cstddef>

#include "app/application_package.h"
#include "app/package_entries.h"
#include "archive/extraction.h"
#include "archive/reader.h"
#include "fs/identity.h"

namespace harbix {

/// Which of a package's records are put on disk.
enum class Restorable {
  EVERYTHING,
  DATA_FOLDERS,  ///< what lies in "data", "logs" or "tmp" of an application's data
};

/// Puts the entries of one application package on disk, each at its record's path and with its record's
/// status, as the user that owns installed applications.
class PackageExtraction {
 public:
  /// `base` is the folder that the package's records lie below.
  PackageExtraction(ArchiveReader& reader, const ApplicationPackage& package, const fs::Path& base,
                    Restorable restorable);

  /// Whether the archive can be read where the package's entries begin. Damage is told of.
  [[nodiscard]] bool is_readable() { return entries_.is_readable(); }

  /// Whether `user` and `group` can enter the folder that the package's own is to be made in. If not, it is
  /// told.
  [[nodiscard]] bool has_place(uid_t user, gid_t group) const;

  /// Extracts for `user` and `group`, in the records' order. What cannot be extracted costs itself and a
  /// warning; where the archive ends or is damaged, the rest stays out.
  /// @return false for a damaged archive.
  [[nodiscard]] bool extract(uid_t user, gid_t group);

 private:
  void extract_record(Extraction& extraction, std::size_t position);
  [[nodiscard]] bool is_wanted(const EntryView& entry, const FileRecord& record);
  void put_on_disk(Extraction& extraction, const EntryView& entry, const FileRecord& record);

  ArchiveReader& reader_;
  const std::vector<FileRecord>& records_;
  fs::Path place_;  ///< the folder that holds the package's own
  PackageEntries entries_;
  Restorable restorable_;
  int last_error_ = 0;  ///< the library's, of the last entry that was extracted
};

}  // namespace harbix
