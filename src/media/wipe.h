#pragma once

#include "archive/reader.h"
#include "fs/folder.h"

namespace harbix {

/// What a wipe of the shared media does with what it comes to, in this order: files are removed as they are
/// met, and a folder when all that is in it has been gone through. This one removes it.
class Wiper {
 public:
  Wiper() = default;
  virtual ~Wiper() = default;
  Wiper(const Wiper&) = delete;
  Wiper& operator=(const Wiper&) = delete;
  Wiper(Wiper&&) = delete;
  Wiper& operator=(Wiper&&) = delete;

  /// A top-level folder is emptied; the folder itself stays.
  virtual void begin(const fs::File& /*top*/) {}
  /// An item, and what is in it, is left alone.
  virtual void spare(const fs::Path& /*path*/) {}
  virtual void remove_file(const fs::Place& place, const fs::File& item);
  /// @return false for a folder that stays, for one because something in it was left.
  /// `folder` is the one that holds it.
  [[nodiscard]] virtual bool remove_folder(fs::Folder& folder, const fs::Path& path);
};

/// Empties every top-level folder of the shared media, as far as the skip test and the ids of media allow;
/// the folders themselves stay, and so do those whose names begin with a dot, which no backup holds, and the
/// archive that is being restored. Failures are logged at level 1 and never thrown.
/// @throws fs::Exception when the share cannot be entered or listed; everything is still there then.
void wipe_shared_media(const ArchiveReader& reader);
/// The same by the hands of `wiper`.
void wipe_shared_media(const ArchiveReader& reader, Wiper& wiper);

}  // namespace harbix
