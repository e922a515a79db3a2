#include "inspect/planned_objects.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "archive/pps_object.h"

namespace harbix::inspect {

std::optional<std::string> obstacle_of_object(const EntryView& entry, const fs::Path& path,
                                              const fs::EffectiveIds& ids) {
  if (entry.size() > LARGEST_ARCHIVED_OBJECT) return "PPS object of more than 1 MiB";
  const fs::EffectiveGroup group(ids.group);
  const fs::EffectiveUser user(ids.user);
  struct ::stat record {};
  int error = 0;
  if (::stat(path.c_str(), &record) == -1 || ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == -1) {
    error = errno;
  } else if (S_ISDIR(record.st_mode)) {
    error = EISDIR;
  }
  return error == 0 ? std::nullopt
                    : std::optional(std::string("restore_pps failed: ") + std::strerror(error));
}

}  // namespace harbix::inspect
