#include "archive/record_names.h"

#include <algorithm>
#include <functional>

namespace harbix {
namespace {

constexpr std::string_view BEGINNING = "File: ";
constexpr std::string_view NEXT = "\nFile: ";
constexpr std::string_view END = "\n\n";

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

void RecordNames::take(std::string_view record) {
  const std::size_t line_end = record.find('\n');
  if (!record.starts_with(BEGINNING) || line_end == std::string_view::npos) return;
  hashes_.push_back(hash_of(record.substr(line_end + 1)));
}

}  // namespace harbix
