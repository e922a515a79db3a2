#include "archive/archivable.h"

#include <iostream>

#include "base/log.h"

namespace harbix {
namespace {

bool leave_out(const fs::Path& path, const char* reason) {
  diagnostics::line(1, "%s: '%s'; skipping.", reason, path.c_str());
  std::cerr << reason << ": " << path << " skipping\n";
  return false;
}

}  // namespace

bool is_archivable(const fs::File& item, const ArchiveWriter& writer) {
  if (!item.is_regular() && !item.is_directory() && !item.is_symbolic_link()) {
    return leave_out(item.path(), "not a file, folder or link");
  }
  if (writer.is_output(item)) return leave_out(item.path(), "is the archive itself");
  return true;
}

}  // namespace harbix
