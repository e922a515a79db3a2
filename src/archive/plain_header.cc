#include "archive/plain_header.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

namespace harbix {
namespace {

// The fields of a ustar header: a name in ASCII, or two parts of one, and numbers in octal digits.
constexpr std::size_t LONGEST_NAME = 100;
constexpr std::size_t LONGEST_PREFIX = 155;
constexpr std::uint64_t IDENTITY_LIMIT = std::uint64_t{1} << (6 * 3);
constexpr std::int64_t SIZE_LIMIT = std::int64_t{1} << (11 * 3);
// Not the field's limit, but the last one that every reader understands.
constexpr std::int64_t TIME_LIMIT = std::numeric_limits<std::int32_t>::max();

bool is_ascii(const std::string& text) {
  constexpr unsigned char FIRST_OTHER = 0x80;
  return std::ranges::all_of(text, [](char byte) { return static_cast<unsigned char>(byte) < FIRST_OTHER; });
}

/// Whether the name fits as it is, or in two parts around the first separator that leaves the second one
/// short enough; there is no empty prefix.
bool fits_name_fields(const std::string& name) {
  if (name.size() <= LONGEST_NAME) return true;
  const std::size_t first = std::max<std::size_t>(name.size() - LONGEST_NAME - 1, 1);
  const std::size_t separator = name.find(fs::Path::SEPARATOR, first);
  return separator <= LONGEST_PREFIX && separator + 1 < name.size();
}

}  // namespace

bool is_plain_header(const struct ::stat& record, const fs::Path& name) {
  return S_ISREG(record.st_mode) && record.st_uid < IDENTITY_LIMIT && record.st_gid < IDENTITY_LIMIT &&
         record.st_size < SIZE_LIMIT && record.st_mtime >= 0 && record.st_mtime < TIME_LIMIT &&
         fits_name_fields(name.text()) && is_ascii(name.text());
}

}  // namespace harbix
