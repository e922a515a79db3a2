#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "archive/file_record.h"
#include "archive/reader.h"

namespace harbix {

/// Pairs a package's records with the entries that follow its metadata entry, by name: an entry belongs to
/// the record of the same path, never to another one that happens to stand in its place.
class PackageEntries {
 public:
  /// Entries are named `name` joined with the path of their record relative to `base`.
  PackageEntries(ArchiveReader& reader, std::span<const FileRecord> records, fs::Path name, fs::Path base);

  /// The entry of the record at `position`; records are asked for in their order. Nothing, and a warning on
  /// standard error, when the archive has none; entries that no later record names are skipped on the way.
  /// @throws std::runtime_error when the archive is damaged within such an entry.
  [[nodiscard]] std::optional<EntryView> entry_of(std::size_t position);

  /// Whether another entry can be read, or the package ends here in good order. Damage is told of, once.
  [[nodiscard]] bool is_readable();

  /// Whether the archive has come to its end, or to where it is damaged.
  [[nodiscard]] bool is_over() const noexcept { return is_over_; }

  /// Whether a record's path leads through the path of another one.
  [[nodiscard]] bool leads_to_others(const fs::Path& path);

 private:
  bool advance();
  [[nodiscard]] std::optional<fs::Path> path_of(const EntryView& entry) const;
  [[nodiscard]] bool is_of_later_record(const fs::Path& path, std::size_t position);
  const std::vector<std::size_t>& by_path();

  ArchiveReader& reader_;
  std::span<const FileRecord> records_;
  fs::Path name_;
  fs::Path base_;
  std::vector<std::size_t> by_path_;  ///< positions, sorted; made when it is first needed
  bool is_over_ = false;
};

}  // namespace harbix
