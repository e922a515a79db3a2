#include "fs/glob.h"

#include <cerrno>

#include "fs/exception.h"
#include "platform/glob.h"

namespace fs {

std::vector<Path> glob(const Path& pattern) {
  platform::GlobResult found = platform::glob(pattern.text());
  if (found.status != 0) {
    const int error = errno;
    throw Exception(error, "Glob pattern '" + pattern.text() + "' failed.");
  }
  std::vector<Path> paths;
  paths.reserve(found.paths.size());
  for (std::string& path : found.paths) paths.emplace_back(std::move(path));
  return paths;
}

std::vector<Path> list_by_glob(const Path& directory) { return glob(directory / "*"); }

}  // namespace fs
