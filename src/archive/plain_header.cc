#include "archive/plain_header.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

namespace harbix {
namespace {

// The fields of a ustar header: a name in ASCII, numbers in octal digits.
constexpr std::size_t LONGEST_NAME = 100;
constexpr std::uint64_t IDENTITY_LIMIT = std::uint64_t{1} << (6 * 3);
constexpr std::int64_t SIZE_LIMIT = std::int64_t{1} << (11 * 3);
// Not the field's limit, but the last one that every reader understands.
constexpr std::int64_t TIME_LIMIT = std::numeric_limits<std::int32_t>::max();

bool is_ascii(const std::string& text) {
  constexpr unsigned char FIRST_OTHER = 0x80;
  return std::ranges::all_of(text, [](char byte) { return static_cast<unsigned char>(byte) < FIRST_OTHER; });
}

}  // namespace

bool is_plain_header(const struct ::stat& record, const fs::Path& name) {
  return S_ISREG(record.st_mode) && record.st_uid < IDENTITY_LIMIT && record.st_gid < IDENTITY_LIMIT &&
         record.st_size < SIZE_LIMIT && record.st_mtime >= 0 && record.st_mtime < TIME_LIMIT &&
         name.text().size() <= LONGEST_NAME && is_ascii(name.text());
}

}  // namespace harbix
