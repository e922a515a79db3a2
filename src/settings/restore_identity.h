#pragma once

#include <sys/types.h>

#include "archive/extraction.h"
#include "archive/reader.h"
#include "fs/identity.h"

namespace harbix {

/// Restores settings as the owner of an entry. Kept for as long as entries of one owner follow each other.
class RestoreIdentity {
 public:
  /// @throws std::runtime_error when the identity cannot be taken.
  RestoreIdentity(ArchiveReader& reader, uid_t owner);

  [[nodiscard]] uid_t owner() const noexcept { return owner_; }

  /// Creates a plain file, folder or link with the entry's permissions, set-id and sticky bits taken out.
  void extract(const EntryView& entry, const fs::File& target);

 private:
  static constexpr gid_t GROUP = 0;

  uid_t owner_;
  fs::EffectiveGroup group_;
  fs::EffectiveUser user_;
  Extraction extraction_;
};

}  // namespace harbix
