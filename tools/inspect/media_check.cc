#include "inspect/media_check.h"

#include <array>
#include <charconv>

#include "archive/error.h"
#include "archive/manifest.h"
#include "fs/containment.h"
#include "fs/exception.h"
#include "media/share.h"

namespace harbix::inspect {
namespace {

// More than any archive has that was not made to fill the memory.
constexpr std::size_t MOST_UNLISTED = 100'000;
constexpr std::size_t MOST_RECORDS = 1'000'000;

}  // namespace

void PlainRecordCheck::add_piece(std::string_view piece) {
  records_.add(piece, [this](std::string_view record) { take(record); });
}

void PlainRecordCheck::take(std::string_view record) {
  if (table_.size() >= MOST_RECORDS) {
    has_too_many_ = true;
    return;
  }
  constexpr std::string_view BEGINNING = "File: ";
  const std::optional<std::string_view> path = PlainRecords::path_of(record);
  if (!path) {
    // An archive of nothing has a manifest of an empty line.
    has_strange_record_ = has_strange_record_ || record.find_first_not_of('\n') != std::string_view::npos;
    return;
  }
  const std::string_view number =
      record.substr(BEGINNING.size(), record.size() - path->size() - 1 - BEGINNING.size());
  std::uint64_t size = 0;
  const auto [end, error] = std::from_chars(number.begin(), number.end(), size);
  if (error != std::errc() || end != number.end()) has_strange_record_ = true;
  table_.add(*path, size, true, 0);
  names_.list(*path);
}

void PlainRecordCheck::end_records() {
  records_.finish([this](std::string_view record) { take(record); });
  if (has_too_many_) {
    find(Severity::NOTE, "odd-manifest", "The manifest has more records than can be held against the items");
    names_ = {};
    table_ = {};
  }
  if (has_strange_record_)
    find(Severity::NOTE, "odd-manifest", "The manifest has text that is no record of an item");
}

bool PlainRecordCheck::meet_path(const Item& item, const fs::Path& path, Size size) {
  const bool is_folder = kind_of(item.entry) == "folder";
  const std::string_view listed = listed_path(path.text());
  RecordTable::Record* const record = table_.find(listed);
  // The judgement that the restore's result depends on.
  names_.meet(listed, record != nullptr && record->is_met == 0);
  if (record == nullptr) {
    if (!has_too_many_) find(Severity::NOTE, "no-record", "The manifest has no record of this item", item);
    const bool is_new =
        unlisted_.size() >= MOST_UNLISTED || unlisted_.insert(PathHash::of(path.text())).second;
    return is_new || is_folder;
  }
  if (record->is_met != 0) return is_folder;
  table_.meet(*record, is_folder);
  if (size == Size::COUNTS && item.entry.is_plain_file() &&
      !RecordTable::has_size(*record, static_cast<std::uint64_t>(item.entry.size())))
    find(Severity::NOTE, "size", "The size is not the record's: the file changed during the backup", item);
  if (table_.is_behind_leaf(path.text()))
    find(Severity::PROBLEM, "behind-leaf", "Lies behind something that is no folder", item);
  return true;
}

void PlainRecordCheck::end_items() {
  table_.for_unmet([this](const RecordTable::Record& record, std::string_view path) {
    find(Severity::NOTE, "no-entry",
         path.empty() ? "Record " + std::to_string(record.number + 1) +
                            " has no entry: the item vanished during the backup"
                      : "The record has no entry: the item vanished during the backup",
         path);
  });
  if (names_.has_any())
    find(Severity::PROBLEM, "changed-names", "Holds items under names that it does not list");
}

void MediaCheck::read_manifest(const Item& /*item*/, ArchiveReader& reader,
                               const ManifestListener& listener) {
  std::array<char, 4096> piece{};
  std::size_t total = 0;
  for (std::int64_t count = 0; (count = reader.read_data(piece.data(), piece.size())) != 0;) {
    if (count < 0) throw DataError(reader.error_text());
    const std::string_view text(piece.data(), static_cast<std::size_t>(count));
    listener(text);
    total += text.size();
    if (total <= meta::LARGEST_TEXT) add_piece(text);
  }
  if (total > meta::LARGEST_TEXT) find(Severity::PROBLEM, "bad-manifest", "Manifest of more than 256 MiB");
  end_records();
}

void MediaCheck::meet(const Item& item) {
  fs::Path below;
  try {
    const bool is_dtm = item.name.text().starts_with(places::DTM_PREFIX);
    below =
        is_dtm ? item.name.relative_to(places::DTM_PREFIX) : fs::name_below(item.name, places::MEDIA_PREFIX);
  } catch (const fs::Exception&) {
    find(Severity::PROBLEM, "wrong-place", "No item of media: the restore of media ends here", item);
    return;
  }
  if (!item.name.is_inside(package().path))
    find(Severity::NOTE, "other-package", "Stands in the package '" + package().path.text() + "'", item);
  const bool is_new = meet_path(item, below, Size::COUNTS);
  if (const std::optional<Flaw> flaw = flaw_of(item.entry, below)) {
    find(Severity::PROBLEM, flaw->code, std::string(flaw->reason), item);
  } else if (!is_new) {
    find(Severity::PROBLEM, "twice", "The same name stands twice: one of the two is lost", item);
  } else if (item.name.dirname().is_inside(places::BOOKMARKS_PREFIX)) {
    find(Severity::NOTE, "relocated", "Comes back in misc/lost_and_found", item);
  }
}

}  // namespace harbix::inspect
