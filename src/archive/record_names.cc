#include "archive/record_names.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <iostream>

#include "base/log.h"

namespace harbix {
namespace {

constexpr std::string_view BEGINNING = "File: ";
constexpr std::string_view NEXT = "\nFile: ";
constexpr std::string_view END = "\n\n";

// No name is as long, and a text that claims so must not take memory.
constexpr std::size_t LONGEST_RECORD = std::size_t{128} << 10;

// What a header has room for without an extension, at least.
constexpr std::size_t SHORT_NAME = 100;

// In a hash: whether an entry of the name was met. The order of hashes stays what it is when it is set.
constexpr std::uint64_t MET = 1;

std::uint64_t hash_of(std::string_view path) { return std::hash<std::string_view>()(path) & ~MET; }

bool needs_extension(std::string_view path) {
  constexpr auto IS_BEYOND_ASCII = [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; };
  return path.size() > SHORT_NAME || std::ranges::any_of(path, IS_BEYOND_ASCII);
}

}  // namespace

void PlainRecords::add(std::string_view piece, const Taker& take) {
  // The beginning of the next record may stand across two pieces.
  std::size_t from = rest_.size() - std::min(rest_.size(), NEXT.size() - 1);
  rest_ += piece;
  std::size_t begin = 0;
  for (std::size_t next = 0; (next = rest_.find(NEXT, from)) != std::string::npos; from = begin) {
    take(std::string_view(rest_).substr(begin, next - begin));
    begin = next + 1;
  }
  rest_.erase(0, begin);
  drop_endless_record();
}

void PlainRecords::drop_endless_record() {
  if (rest_.size() > LONGEST_RECORD) rest_.erase(0, rest_.size() - NEXT.size());
}

void PlainRecords::finish(const Taker& take) {
  if (rest_.ends_with(END)) rest_.resize(rest_.size() - END.size());
  take(rest_);
  rest_ = std::string();
}

std::optional<std::string_view> PlainRecords::path_of(std::string_view record) {
  const std::size_t line_end = record.find('\n');
  if (!record.starts_with(BEGINNING) || line_end == std::string_view::npos) return std::nullopt;
  return record.substr(line_end + 1);
}

std::string_view listed_path(std::string_view path) { return path.substr(0, path.find(NEXT)); }

void ChangedNames::list(std::string_view path) noexcept {
  if (needs_extension(path)) ++long_;
}

void ChangedNames::meet(std::string_view path, bool is_listed) noexcept {
  if (!is_listed) {
    ++unlisted_;
  } else if (needs_extension(path)) {
    ++met_long_;
  }
}

void RecordNames::add(std::string_view piece) {
  records_.add(piece, [this](std::string_view record) { take(record); });
}

void RecordNames::finish() {
  records_.finish([this](std::string_view record) { take(record); });
}

bool RecordNames::meet(const fs::Path& path) {
  const std::string_view listed = listed_path(path.text());
  const bool is_listed = take_one(listed);
  changed_.meet(listed, is_listed);
  return is_listed;
}

bool RecordNames::take_one(std::string_view path) {
  // Backups write entries in the order of their records, of which a few may have vanished.
  constexpr std::size_t MOST_VANISHED = 16;
  const std::uint64_t hash = hash_of(path);
  for (std::size_t i = expected_; !is_sorted_ && i < std::min(expected_ + MOST_VANISHED, hashes_.size());
       ++i) {
    if (hashes_[i] != hash) continue;
    hashes_[i] |= MET;
    expected_ = i + 1;
    return true;
  }
  if (!is_sorted_) std::ranges::sort(hashes_);
  is_sorted_ = true;
  // The last of equal ones, behind which those stand that were met.
  const auto behind = std::ranges::upper_bound(hashes_, hash);
  if (behind == hashes_.begin() || *(behind - 1) != hash) return false;
  *(behind - 1) |= MET;
  return true;
}

void RecordNames::take(std::string_view record) {
  const std::optional<std::string_view> path = PlainRecords::path_of(record);
  if (!path) return;
  hashes_.push_back(hash_of(*path));
  changed_.list(*path);
}

void report_changed_names(const fs::Path& package) {
  diagnostics::line(1, "'%s' holds items under names that it does not list", package.c_str());
  std::cerr << "Warning: " << package << ": holds items under names that it does not list\n";
}

}  // namespace harbix
