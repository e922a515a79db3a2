#include "archive/written_file_systems.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/file_descriptor.h"

namespace harbix {

void WrittenFileSystems::note(int folder, const fs::Path& path) {
  if (path == last_) return;
  struct ::stat record {};
  // A folder that has no status any more takes nothing either.
  if (::fstat(folder, &record) == -1) return;
  folders_.try_emplace(record.st_dev, path);
  last_ = path;
}

int WrittenFileSystems::synchronize() const {
  int error = 0;
  for (const auto& [device, path] : folders_) {
    // A folder that is gone, or moved elsewhere, has taken the file system's name with it.
    const base::FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
      ::sync();
    } else if (::syncfs(folder.get()) == -1 && error == 0) {
      error = errno;
    }
  }
  return error;
}

}  // namespace harbix
