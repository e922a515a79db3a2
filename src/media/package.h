#pragma once

#include <cstdint>
#include <vector>

#include "archive/manifest.h"
#include "archive/manifest_visitors.h"
#include "archive/writer.h"
#include "base/size_result.h"
#include "fs/file.h"

namespace harbix {

/// What is backed up together: a top-level folder, or a top-level file of the dtm share, with everything
/// below it.
class MediaPackage {
 public:
  /// `root` is the top-level item, its path relative to the working directory.
  MediaPackage(fs::File root, const ArchiveWriter& writer);

  /// Gathers the items that the skip test lets pass.
  void collect_media();
  /// Gathers every item.
  void collect_dtm_share();

  [[nodiscard]] bool empty() const noexcept { return paths_.empty(); }

  /// Writes the metadata entry below `prefix`, then the items.
  /// @throws ArchiveError when the archive cannot be written any further.
  void store(ArchiveWriter& writer, const fs::Path& prefix);

  /// What the package would take in an archive: a 512-byte header for each item and for the manifest, and
  /// their contents, each filled up to 512 bytes.
  [[nodiscard]] SizeResult estimate() const;

  /// The items, parents before what is inside them; the top-level item first.
  [[nodiscard]] const std::vector<fs::Path>& paths() const noexcept { return paths_; }

 private:
  bool take(const fs::File& item);
  void gather(CreateDtmShareManifest& visitor);

  fs::File root_;
  const ArchiveWriter& writer_;
  meta::Manifest manifest_;
  std::vector<fs::Path> paths_;
  std::int64_t item_bytes_ = 0;
};

}  // namespace harbix
