#pragma once

#include <sys/types.h>

#include "archive/extraction.h"
#include "archive/reader.h"
#include "fs/identity.h"
#include "fs/path.h"
#include "fs/working_directory.h"

namespace harbix {

/// Stands in one of the two places that media is restored to, under the identity that owns it, ready to
/// extract. Kept for as long as entries for the same place follow each other: entering it costs more than a
/// small file does.
class RestoreArea {
 public:
  /// @throws std::runtime_error; fs::Exception "Could not chdir" when the place is not where it should be.
  RestoreArea(ArchiveReader& reader, gid_t group, uid_t user, const fs::Path& place);

  /// As Extraction::extract; paths are relative to the place.
  void extract(const EntryView& entry, const fs::Path& target);

 private:
  fs::EffectiveGroup group_;
  fs::EffectiveUser user_;
  fs::WorkingDirectory directory_;
  Extraction extraction_;
};

}  // namespace harbix
