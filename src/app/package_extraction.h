#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>

#include "app/application_package.h"
#include "app/package_entries.h"
#include "archive/extraction.h"
#include "archive/reader.h"
#include "archive/refusal.h"
#include "fs/identity.h"

namespace harbix {

/// Which of a package's records are put on disk.
enum class Restorable {
  EVERYTHING,
  DATA_FOLDERS,  ///< what lies in "data", "logs" or "tmp" of an application's data
};

/// Why an entry of an application's package is not put on disk; nothing for one that is. `entries` has given
/// it, with its record.
[[nodiscard]] std::optional<Refusal> refusal_of(const EntryView& entry, const FileRecord& record,
                                                Restorable restorable, PackageEntries& entries);

/// What is put on disk for an entry: at its record's path, with its own status, and with the record's where
/// it has one. The size stays: it tells how much data follows.
[[nodiscard]] fs::File destination_of(const EntryView& entry, const FileRecord& record);

/// Why `user` and `group` cannot enter a folder; nothing where they can.
/// @throws fs::IdentityError
[[nodiscard]] std::optional<std::string> refusal_of_place(const fs::Path& place, uid_t user, gid_t group);

/// Puts the entries of one application package on disk, each at its record's path and with its record's
/// status, as the user that owns installed applications.
class PackageExtraction {
 public:
  /// `base` is the folder that the package's records lie below.
  PackageExtraction(ArchiveReader& reader, const ApplicationPackage& package, const fs::Path& base,
                    Restorable restorable);

  /// Whether the archive can be read where the package's entries begin. Damage is reported.
  [[nodiscard]] bool is_readable() { return entries_.is_readable(); }

  /// Whether `user` and `group` can enter the folder that the package's own is to be made in. If not, that is
  /// reported.
  [[nodiscard]] bool has_place(uid_t user, gid_t group) const;

  /// Extracts for `user` and `group`, in the archive's order, below `place`: that folder stands for the one
  /// which holds the package's own. What cannot be extracted is reported, and the rest is extracted; where
  /// the archive ends or is damaged, the rest stays out.
  void extract(uid_t user, gid_t group, fs::Folder place);
  /// The same in the folder itself.
  void extract(uid_t user, gid_t group);

  /// Whether all that the archive holds of the package is on disk: nothing failed, and the archive could be
  /// read until every item had come.
  [[nodiscard]] bool is_on_disk() const noexcept { return written_.is_complete(); }
  /// Whether also every record had its entry, and every entry its record.
  [[nodiscard]] bool is_complete() const { return is_on_disk() && is_paired_ && entries_.is_complete(); }

 private:
  void extract_all(Extraction& extraction);
  void extract_one(Extraction& extraction, const PackageEntries::Match& match);
  [[nodiscard]] bool is_wanted(const EntryView& entry, const FileRecord& record);
  void put_on_disk(Extraction& extraction, const EntryView& entry, const FileRecord& record);

  ArchiveReader& reader_;
  const std::vector<FileRecord>& records_;
  fs::Path place_;  ///< the folder that holds the package's own
  PackageEntries entries_;
  Restorable restorable_;
  Completeness written_;
  bool is_paired_ = true;  ///< no record calls its entry something else
  int last_error_ = 0;     ///< the library's, of the last entry that was extracted
};

}  // namespace harbix
