#include "media/skip_test.h"

#include <iostream>

#include "base/flags.h"
#include "base/log.h"
#include "media/groups.h"

namespace harbix {

bool is_skipped(const fs::File& item) {
  if (item.record().st_gid == media_groups().protected_media) {
    if (verbose) std::cerr << "Skip: " << item.path() << '\n';
    return true;
  }
  if (item.allows(fs::READ)) return false;
  report_unreadable(item.path());
  return true;
}

void report_unreadable(const fs::Path& path) {
  diagnostics::line(1, "can't access: '%s'; skipping.", path.c_str());
  if (verbose) std::cerr << "permission denied: " << path << " skipping\n";
}

}  // namespace harbix
