#pragma once

#include <sys/types.h>

#include <map>

#include "fs/path.h"

namespace harbix {

/// The file systems that a restore has written to. A system that has taken data may still lose it with the
/// power; some media report a failed write only when they are waited for.
class WrittenFileSystems {
 public:
  /// Remembers the file system of an open folder that something is put into; `path` is the folder's own.
  void note(int folder, const fs::Path& path);

  /// Waits until everything is on the media.
  /// @return 0, or the error number of the first file system that could not be waited for.
  [[nodiscard]] int synchronize() const;

 private:
  fs::Path last_;                      ///< the folder of the last note, which most of the next ones are for
  std::map<dev_t, fs::Path> folders_;  ///< one of each file system
};

}  // namespace harbix
