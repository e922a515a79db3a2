#include "app/package_items.h"

#include <iostream>

#include "archive/archivable.h"
#include "archive/file_record.h"
#include "base/log.h"

namespace harbix {

void PackageItems::operator()(const fs::File& item) {
  if (!is_archivable(item, writer_)) return;
  records_.push_back(status_record(item));
  paths_.push_back(item.path());
  bytes_ += item.record().st_size;
}

void PackageItems::unreachable(const fs::Path& /*path*/, const fs::Exception& reason) {
  diagnostics::line(0, "ERROR: %s", reason.what());
  std::cerr << "Error: " << reason.what() << '\n';
}

void PackageItems::add(const fs::Path& path) {
  try {
    (*this)(fs::File(path));
  } catch (const fs::Exception& missing) {
    diagnostics::line(5, "%s", missing.what());
    records_.push_back(status_record({path, {}}));
    paths_.push_back(path);
  }
}

void PackageItems::add_tree(const fs::Path& directory) {
  // Deferred: a tree that is deeper than a process may have files open is backed up as well.
  if (fs::exists(directory) && fs::File(directory).is_directory()) {
    fs::walk(directory, fs::Descent::DEFERRED, *this);
  }
}

}  // namespace harbix
