#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "archive/manifest.h"
#include "archive/writer.h"
#include "fs/tree.h"

namespace harbix {

/// What one package of an application holds, in archive order.
class PackageItems : public fs::TreeVisitor {
 public:
  explicit PackageItems(const ArchiveWriter& writer) : writer_(writer) {}

  /// Takes an item, but for what no archive can hold.
  void operator()(const fs::File& item) override;
  /// Tells of it; the rest is backed up.
  void unreachable(const fs::Path& path, const fs::Exception& reason) override;

  /// Takes an item that may not exist: then it has a record all the same.
  void add(const fs::Path& path);
  /// Takes everything below a folder. Nothing for a link to one: what it leads to is somebody else's.
  void add_tree(const fs::Path& directory);

  [[nodiscard]] const std::vector<fs::Path>& paths() const noexcept { return paths_; }
  /// The file records, one a path.
  [[nodiscard]] const meta::Manifest& records() const noexcept { return records_; }
  [[nodiscard]] meta::Manifest take_records() noexcept { return std::move(records_); }
  /// Sum of the recorded sizes, in bytes.
  [[nodiscard]] std::int64_t bytes() const noexcept { return bytes_; }

 private:
  const ArchiveWriter& writer_;
  std::vector<fs::Path> paths_;
  meta::Manifest records_;
  std::int64_t bytes_ = 0;
};

}  // namespace harbix
