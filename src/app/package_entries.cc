#include "app/package_entries.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <numeric>
#include <utility>

#include <archive.h>

#include "archive/manifest.h"
#include "base/log.h"

namespace harbix {
namespace {

/// Archives that were packed again by other programs have lost the separator at the front of their names.
fs::Path rooted(fs::Path name) {
  return name.text().starts_with(fs::Path::SEPARATOR) ? std::move(name) : fs::Path() / name;
}

void warn_of_missing_entry(const fs::Path& path) {
  diagnostics::line(1, "No entry in the archive for '%s'", path.c_str());
  std::cerr << "Warning: No entry in the archive for " + path.text() + '\n';
}

}  // namespace

PackageEntries::PackageEntries(ArchiveReader& reader, std::span<const FileRecord> records, fs::Path name,
                               fs::Path base)
    : reader_(reader), records_(records), name_(rooted(std::move(name))), base_(std::move(base)) {}

std::optional<EntryView> PackageEntries::entry_of(std::size_t position) {
  const fs::Path& wanted = records_[position].path;
  while (!is_over_ && advance()) {
    const EntryView entry = reader_.entry();
    const std::optional<fs::Path> path = path_of(entry);
    if (path && *path == wanted) return entry;
    const std::optional<fs::Path> name = entry.name();
    if (entry.begins_package() || (path && is_of_later_record(*path, position))) {
      reader_.hold_back();
      warn_of_missing_entry(wanted);
      return std::nullopt;
    }
    std::cerr << "Skip: " + (name ? name->text() : "an entry without a name") + '\n';
    reader_.skip(entry);
  }
  return std::nullopt;
}

bool PackageEntries::is_readable() {
  if (records_.empty()) return true;  // whatever follows is another package's
  if (!is_over_ && advance()) reader_.hold_back();
  return reader_.error_number() == 0;
}

bool PackageEntries::advance() {
  if (reader_.advance() == ARCHIVE_OK) return true;
  is_over_ = true;
  std::cerr << "Warning: unexpected failure of read next header\n";
  return false;
}

std::optional<fs::Path> PackageEntries::path_of(const EntryView& entry) const {
  const std::optional<fs::Path> name = entry.name();
  if (!name) return std::nullopt;
  const fs::Path full = rooted(*name);
  if (full == name_ || !full.is_inside(name_)) return std::nullopt;
  return base_ / full.relative_to(name_);
}

bool PackageEntries::is_of_later_record(const fs::Path& path, std::size_t position) {
  const auto is_before = [this](const fs::Path& one, std::size_t other) {
    return one < records_[other].path;
  };
  const std::vector<std::size_t>& positions = by_path();
  const auto behind = std::upper_bound(positions.begin(), positions.end(), path, is_before);
  if (behind == positions.begin()) return false;
  // Of one path, the last record comes last.
  const std::size_t last = *std::prev(behind);
  return last > position && records_[last].path == path;
}

bool PackageEntries::leads_to_others(const fs::Path& path) {
  const std::string folder = path.text() + fs::Path::SEPARATOR;
  const auto next = std::ranges::lower_bound(
      by_path(), folder, {},
      [this](std::size_t one) -> const std::string& { return records_[one].path.text(); });
  return next != by_path().end() && records_[*next].path.text().starts_with(folder);
}

const std::vector<std::size_t>& PackageEntries::by_path() {
  if (by_path_.empty()) {
    by_path_.resize(records_.size());
    std::iota(by_path_.begin(), by_path_.end(), std::size_t{0});
    std::ranges::stable_sort(by_path_, {},
                             [this](std::size_t one) -> const fs::Path& { return records_[one].path; });
  }
  return by_path_;
}

}  // namespace harbix
