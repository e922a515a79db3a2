#include "app/package_entries.h"

#include <algorithm>
#include <iostream>
#include <numeric>
#include <utility>

#include <archive.h>

#include "archive/manifest.h"
#include "base/log.h"
#include "base/report.h"

namespace harbix {
namespace {

/// Archives that were packed again by other programs have lost the separator at the front of their names.
fs::Path rooted(fs::Path name) {
  return name.text().starts_with(fs::Path::SEPARATOR) ? std::move(name) : fs::Path() / name;
}

constexpr std::size_t MOST_OF_ONE_PATH = 8;

}  // namespace

void PairingReport::skip(const EntryView& entry, bool is_inside) {
  const std::optional<fs::Path> name = entry.name();
  if (is_inside) report::error("No record in the manifest for '" + name->text() + "'");
  std::cerr << "Skip: " + (name ? name->text() : "an entry without a name") + '\n';
}

void PairingReport::end_early() { std::cerr << "Warning: unexpected failure of read next header\n"; }

void PairingReport::miss(const fs::Path& path) {
  diagnostics::line(1, "No entry in the archive for '%s'", path.c_str());
  std::cerr << "Warning: No entry in the archive for " + path.text() + '\n';
}

std::optional<fs::Path> record_path(const EntryView& entry, const fs::Path& package, const fs::Path& base) {
  const std::optional<fs::Path> name = entry.name();
  if (!name) return std::nullopt;
  const fs::Path full = rooted(*name);
  if (full == package || !full.is_inside(package)) return std::nullopt;
  return base / full.relative_to(package);
}

PackageEntries::PackageEntries(ArchiveReader& reader, std::span<const FileRecord> records, fs::Path name,
                               fs::Path base, PairingReport* report)
    : reader_(reader),
      records_(records),
      name_(rooted(std::move(name))),
      base_(std::move(base)),
      report_(report),
      is_met_(records.size()) {}

std::optional<PackageEntries::Match> PackageEntries::next() {
  while (!is_over_ && advance()) {
    const EntryView entry = reader_.entry();
    if (entry.begins_package()) {
      reader_.hold_back();
      end();
      break;
    }
    const std::optional<fs::Path> path = record_path(entry, name_, base_);
    const std::optional<std::size_t> position = path ? take_record_of(*path) : std::nullopt;
    if (position) return Match{entry, *position};
    skip(entry, path.has_value());
  }
  return std::nullopt;
}

void PackageEntries::skip(const EntryView& entry, bool is_inside) {
  has_stranger_ = has_stranger_ || is_inside;
  report().skip(entry, is_inside);
  reader_.skip(entry);
}

bool PackageEntries::is_readable() {
  if (records_.empty()) return true;  // whatever follows is another package's
  if (!is_over_ && advance()) reader_.hold_back();
  return reader_.error_number() == 0;
}

bool PackageEntries::advance() {
  if (reader_.advance() == ARCHIVE_OK) return true;
  if (std::ranges::find(is_met_, false) != is_met_.end()) report().end_early();
  end();
  return false;
}

void PackageEntries::end() {
  is_over_ = true;
  // Behind damage the entries may well be there.
  if (reader_.error_number() != 0) return;
  for (std::size_t i = 0; i < records_.size(); ++i) {
    if (!is_met_[i]) report().miss(records_[i].path);
  }
}

bool PackageEntries::has_every_item() const {
  for (std::size_t i = 0; i < records_.size(); ++i) {
    const std::optional<RecordedStatus>& status = records_[i].status;
    if (!is_met_[i] && status && status->mode != 0) return false;
  }
  return true;
}

std::optional<std::size_t> PackageEntries::take_record_of(const fs::Path& path) {
  // Backups write entries in the order of their records.
  const bool is_expected =
      expected_ < records_.size() && !is_met_[expected_] && records_[expected_].path == path;
  const std::optional<std::size_t> found = is_expected ? expected_ : find_record_of(path);
  if (!found) return std::nullopt;
  is_met_[*found] = true;
  expected_ = *found + 1;
  return found;
}

std::optional<std::size_t> PackageEntries::find_record_of(const fs::Path& path) {
  const std::vector<std::size_t>& positions = by_path();
  auto next = std::ranges::lower_bound(
      positions, path, {}, [this](std::size_t one) -> const fs::Path& { return records_[one].path; });
  // No backup names a path twice. A limit keeps the search short in an archive that names one all the time.
  for (std::size_t i = 0; i < MOST_OF_ONE_PATH && next != positions.end(); ++i, ++next) {
    if (records_[*next].path != path) break;
    if (!is_met_[*next]) return *next;
  }
  return std::nullopt;
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
