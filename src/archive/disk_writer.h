#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "archive/completeness.h"
#include "archive/reader.h"
#include "base/file_descriptor.h"
#include "fs/folder.h"

namespace harbix {

/// Whether the permissions that an archive gives to an entry are put on disk as well.
enum class Keep { NO, YES };

/// What becomes of an object that stands in the place of a new one.
enum class Existing { REPLACED, STAYS };

/// Is told of an object that is not on disk as it should be, and why.
using UnwrittenReport = void (*)(const fs::Path& path, const std::string& reason);

/// Reports that an object is not on disk, or not as it should be: "Warning: PATH: REASON" on standard error,
/// and in the log at level 1.
void report_unwritten(const fs::Path& path, const std::string& reason);

/// Puts the objects of an archive on disk below one folder, for the effective ids and under the mask that are
/// in force. Everything is reached by descriptor, and nothing through a symbolic link. Folders that are
/// missing above an object are made as the mask says.
///
/// What exists as a folder stays a folder, and the archive that is being read stays as it is. Any other
/// object makes room for the new one when that is complete, so that a full disk or a damaged archive costs
/// nothing that was there. Holes of a file stay holes.
///
/// All operations: paths are relative to the folder; @return whether the object was made: false when another
/// one stays in its place; @throws fs::Exception when the object cannot be put on disk, of which nothing is
/// left then.
class DiskWriter {
 public:
  /// The effective ids own what is made. `permissions` says whether those of the records are set; otherwise
  /// the mask limits the modes. Set-id and sticky bits are never set.
  DiskWriter(fs::Folder& folder, ArchiveReader& reader, Keep permissions, Completeness& completeness,
             UnwrittenReport report = report_unwritten)
      : folder_(folder),
        reader_(reader),
        permissions_(permissions),
        completeness_(completeness),
        report_(report) {}

  ~DiskWriter() { settle(); }
  DiskWriter(const DiskWriter&) = delete;
  DiskWriter& operator=(const DiskWriter&) = delete;
  DiskWriter(DiskWriter&&) = delete;
  DiskWriter& operator=(DiskWriter&&) = delete;

  /// Makes a plain file of the data that the reader is at, with the status and the size of `record`.
  /// @throws also DataError when the archive is damaged there.
  bool make_file(const fs::Path& path, const struct ::stat& record, Existing existing = Existing::REPLACED);
  bool make_folder(const fs::Path& path, const struct ::stat& record, Existing existing = Existing::REPLACED);
  bool make_link(const fs::Path& path, const std::string& target, Existing existing = Existing::REPLACED);

  /// Settles the modes of folders that could not be filled with them, at the latest at the end of this
  /// object. Failures are reported, and noted in `completeness`, which outlives this object.
  void settle();

 private:
  /// A folder whose mode is set when nothing is put into it any more.
  struct Unsettled {
    fs::Path path;
    mode_t mode;
  };

  [[nodiscard]] fs::Place place_of(const fs::Path& path);
  [[nodiscard]] fs::Place place_below(const fs::Path& path);
  void make_folders_above(const fs::Path& path);
  void settle(const Unsettled& folder);

  fs::Folder& folder_;
  ArchiveReader& reader_;
  Keep permissions_;
  Completeness& completeness_;
  UnwrittenReport report_;
  std::vector<Unsettled> unsettled_;
};

}  // namespace harbix
