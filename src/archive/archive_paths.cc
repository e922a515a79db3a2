#include "archive/archive_paths.h"

#include <iostream>

#include "archive/error.h"
#include "driver/base/flags.h"
#include "driver/base/log.h"

namespace harbix {
namespace {

void archive_path(ArchiveWriter& writer, const fs::Path& path, const fs::Path& base) {
  const fs::Path name = base / path;
  diagnostics::line(3, "Archive: %s to %s", path.c_str(), name.c_str());
  if (verbose) std::cerr << "Archive: " << path << " to " << name << '\n';
  writer.write(open_source(path), name);
}

}  // namespace

void archive_paths(ArchiveWriter& writer, std::span<const fs::Path> paths, const fs::Path& base) {
  for (const fs::Path& path : paths) {
    try {
      archive_path(writer, path, base);
    } catch (const ArchiveError&) {
      throw;  // not this path's error: there is no archive to go on with
    } catch (const std::runtime_error& error) {
      diagnostics::line(0, "ERROR: %s", error.what());
      std::cerr << "Error: " << error.what() << '\n';
    }
  }
}

}  // namespace harbix
