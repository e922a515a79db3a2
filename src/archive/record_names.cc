#include "archive/record_names.h"

#include <algorithm>
#include <functional>
#include <iostream>

#include "base/log.h"

namespace harbix {
namespace {

constexpr std::string_view BEGINNING = "File: ";
constexpr std::string_view NEXT = "\nFile: ";
constexpr std::string_view END = "\n\n";

/// Whether a header has room for a name, which its checksum covers then.
bool fits_header(std::string_view name) {
  constexpr std::size_t ROOM = 100;
  return name.size() <= ROOM &&
         std::ranges::all_of(name, [](char each) { return static_cast<unsigned char>(each) < 0x80; });
}

std::uint64_t hash_of(std::string_view path) { return std::hash<std::string_view>()(path); }

}  // namespace

void RecordNames::add(std::string_view piece) {
  // The beginning of the next record may stand across two pieces.
  std::size_t from = rest_.size() - std::min(rest_.size(), NEXT.size() - 1);
  rest_ += piece;
  std::size_t begin = 0;
  for (std::size_t next = 0; (next = rest_.find(NEXT, from)) != std::string::npos; from = begin) {
    take(std::string_view(rest_).substr(begin, next - begin));
    begin = next + 1;
  }
  rest_.erase(0, begin);
}

void RecordNames::finish() {
  if (rest_.ends_with(END)) rest_.resize(rest_.size() - END.size());
  take(rest_);
  rest_ = std::string();
  std::ranges::sort(hashes_);
}

bool RecordNames::holds(const fs::Path& path) const {
  return std::ranges::binary_search(hashes_, hash_of(path.text()));
}

bool RecordNames::contradicts(const fs::Path& entry_name, const fs::Path& path) const {
  if (empty() || fits_header(entry_name.text()) || holds(path)) return false;
  // A path that spells the beginning of a record is two records in the manifest.
  return path.text().find(NEXT) == std::string::npos;
}

void report_strange_name(const fs::Path& name) {
  diagnostics::line(1, "'%s' is not in the list of its package", name.c_str());
  std::cerr << "Warning: " << name << ": not in the list of its package\n";
}

void RecordNames::take(std::string_view record) {
  const std::size_t line_end = record.find('\n');
  if (!record.starts_with(BEGINNING) || line_end == std::string_view::npos) return;
  hashes_.push_back(hash_of(record.substr(line_end + 1)));
}

}  // namespace harbix
