#pragma once

#include <sys/types.h>

#include "archive/extraction.h"
#include "archive/reader.h"
#include "fs/identity.h"

namespace harbix {

/// Puts the data of one home-screen component on disk, with the identity and the file-creation mask that the
/// component's files need, for as long as it lives.
class ComponentRestore {
 public:
  /// `mask` is meant for files. What is not on disk when this object is gone has been noted in
  /// `completeness`.
  ComponentRestore(ArchiveReader& reader, uid_t user, mode_t mask, Completeness& completeness);

  /// Creates an entry with this status, and the folders above it where they are missing. A folder that may be
  /// read may be searched as well, whatever the mask says: what is in it would be lost otherwise.
  /// @throws fs::Exception, std::runtime_error as Extraction::extract does.
  void extract(const EntryView& entry, const fs::File& destination);

 private:
  static constexpr gid_t GROUP = 0;

  void make_folders_above(const fs::Path& path);

  mode_t mask_;
  fs::FileMask file_mask_;
  Extraction extraction_;
};

}  // namespace harbix
