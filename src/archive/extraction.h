#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "archive/completeness.h"
#include "archive/disk_writer.h"
#include "archive/entry_view.h"
#include "archive/reader.h"
#include "fs/folder.h"
#include "fs/identity.h"

namespace harbix {

/// For whom entries are put on disk.
struct Role {
  uid_t user;
  gid_t group;
};

/// Why an entry is not on disk.
struct ExtractionWarning {
  int error_number;  ///< the system's; 0 when it has none
  std::string text;
};

/// What an extraction throws for an entry whose contents are damaged in the archive.
[[nodiscard]] std::string damaged_contents_text(const fs::Path& destination);

/// Puts entries on disk during one piece of restore work: one package, or one run of entries for the same
/// role in the same place. The process has the role's effective group and user for as long as this object
/// lives, and modes of folders are settled before it gives them up.
class Extraction {
 public:
  /// Everything is put below `place`, an absolute path that only root can replace. `permissions` says whether
  /// those of the entries are restored; otherwise the mask in force limits the modes. What is not on disk as
  /// the archive has it when this object is gone has been noted in `completeness`, which outlives it.
  /// @throws fs::IdentityError when the role cannot be taken; fs::Exception when the place cannot be opened.
  Extraction(ArchiveReader& reader, const Role& role, const fs::Path& place, Keep permissions,
             Completeness& completeness);
  /// The same below a folder that is open.
  Extraction(ArchiveReader& reader, const Role& role, fs::Folder place, Keep permissions,
             Completeness& completeness);

  [[nodiscard]] const Role& role() const noexcept { return role_; }
  [[nodiscard]] fs::Folder& folder() noexcept { return folder_; }

  /// Creates `destination`, with its status, from an entry and the data that follows in the archive. Its path
  /// is absolute or relative to the place. An existing object is replaced, unless it is a folder with
  /// something in it or the archive itself. What fails for this entry alone is a warning on standard error.
  /// @return that warning.
  /// @throws std::runtime_error when the archive is damaged.
  std::optional<ExtractionWarning> extract(const EntryView& entry, const fs::File& destination);

  /// The same where nothing stands: an existing object of any kind stays, and the data is not read then.
  /// @return whether the place was free.
  /// @throws std::runtime_error when the archive is damaged.
  bool extract_new(const EntryView& entry, const fs::File& destination);

 private:
  struct Attempt {
    bool was_free;
    std::optional<ExtractionWarning> warning;
  };

  Attempt attempt(const EntryView& entry, const fs::File& destination, Existing existing);
  [[nodiscard]] bool put_on_disk(const EntryView& entry, const fs::File& destination, Existing existing);

  ArchiveReader& reader_;
  Role role_;
  fs::EffectiveGroup group_;
  fs::EffectiveUser user_;
  fs::Folder folder_;
  Completeness& completeness_;
  DiskWriter writer_;
};

}  // namespace harbix
