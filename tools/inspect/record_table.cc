#include "inspect/record_table.h"

#include <algorithm>
#include <utility>

namespace harbix::inspect {
namespace {

// Enough for 50,000 names of the usual length.
constexpr std::size_t MOST_OF_NAMES = std::size_t{4} << 20;

}  // namespace

std::uint32_t RecordTable::sum_of(std::uint64_t size) noexcept {
  constexpr std::uint64_t MASK = 0xffffff;
  return static_cast<std::uint32_t>((size ^ size >> 24U ^ size >> 48U) & MASK);
}

void RecordTable::add(std::string_view path, std::uint64_t size, bool had_item, mode_t mode) {
  Record record;
  record.hash = PathHash::of(path);
  record.number = static_cast<std::uint32_t>(records_.size());
  record.size_sum = sum_of(size) & 0xffffffU;
  record.had_item = had_item ? 1 : 0;
  record.type = type_of(mode) & 0xfU;
  const bool is_next = named_ == records_.size() && path.find('\0') == std::string_view::npos;
  if (is_next && names_.size() + path.size() < MOST_OF_NAMES) {
    names_.append(path).push_back('\0');
    ++named_;
  }
  records_.push_back(record);
}

void RecordTable::restore_order() {
  if (is_sorted_) std::ranges::sort(records_, {}, &Record::number);
  is_sorted_ = false;
  expected_ = records_.size();
}

RecordTable::Record* RecordTable::find(std::uint64_t hash) {
  // Backups write entries in the order of their records, of which a few may have vanished.
  constexpr std::size_t MOST_VANISHED = 16;
  const std::size_t end = std::min(expected_ + MOST_VANISHED, records_.size());
  for (std::size_t i = expected_; !is_sorted_ && i < end; ++i) {
    if (records_[i].hash != hash) continue;
    expected_ = i + 1;
    return &records_[i];
  }
  return search(hash);
}

RecordTable::Record* RecordTable::search(std::uint64_t hash) {
  // As the restore does: a limit keeps the search short in a manifest that names one path all the time.
  constexpr int MOST_OF_ONE_PATH = 8;
  if (!is_sorted_)
    std::ranges::sort(records_, [](const Record& one, const Record& other) {
      return std::pair(one.hash, one.number) < std::pair(other.hash, other.number);
    });
  is_sorted_ = true;
  auto next = std::ranges::lower_bound(records_, hash, {}, &Record::hash);
  Record* met = nullptr;
  for (int i = 0; i < MOST_OF_ONE_PATH && next != records_.end() && next->hash == hash; ++i, ++next) {
    if (next->is_met == 0) return &*next;
    met = &*next;
  }
  return met;
}

void RecordTable::meet(Record& record, bool is_folder) {
  record.is_met = 1;
  record.is_leaf = is_folder ? 0 : 1;
  if (is_folder) folders_[record.hash % folders_.size()] = record.hash;
}

bool RecordTable::is_leaf(std::uint64_t hash) {
  if (folders_[hash % folders_.size()] == hash) return false;
  const Record* const record = search(hash);
  return record != nullptr && (record->is_link() || (record->is_met != 0 && record->is_leaf != 0));
}

bool RecordTable::is_behind_leaf(std::string_view path) {
  const std::string_view folder = path.substr(0, path.rfind('/') + 1);
  if (folder == last_folder_) return is_last_behind_;
  last_folder_ = folder;
  is_last_behind_ = false;
  PathHash hash;
  for (const char byte : folder) {
    if (byte == '/' && hash.value() != PathHash().value() && is_leaf(hash.value())) is_last_behind_ = true;
    hash.add(byte);
  }
  return is_last_behind_;
}

}  // namespace harbix::inspect
