#include "archive/archive_paths.h"

#include <iostream>

#include "archive/item_error.h"
#include "base/flags.h"
#include "base/log.h"

namespace harbix {
namespace {

void archive_path(ArchiveWriter& writer, SourceOpener& opener, const fs::Path& path, const fs::Path& base) {
  const fs::Path name = base / path;
  diagnostics::line(3, "Archive: %s to %s", path.c_str(), name.c_str());
  if (verbose) std::cerr << "Archive: " << path << " to " << name << '\n';
  writer.write(opener.open(path), name);
}

}  // namespace

void archive_paths(ArchiveWriter& writer, std::span<const fs::Path> paths, const fs::Path& base) {
  SourceOpener opener;
  for (const fs::Path& path : paths) {
    tolerate_item_error([&] { archive_path(writer, opener, path, base); });
  }
}

}  // namespace harbix
