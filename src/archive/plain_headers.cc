#include "archive/plain_headers.h"

#include <charconv>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

namespace harbix {
namespace {

/// A field of the header: where it begins, and how long it is.
struct Field {
  std::size_t begin;
  std::size_t size;
};

constexpr Field NAME{0, 100};
constexpr Field SIZE{124, 12};
constexpr Field CHECKSUM{148, 8};
constexpr std::size_t TYPE_AT = 156;
constexpr Field MAGIC{257, 8};
constexpr Field PREFIX{345, 155};
constexpr std::string_view USTAR(
    "ustar\0"
    "00",
    8);

std::string_view field(std::string_view record, const Field& place) {
  return record.substr(place.begin, place.size);
}

std::string_view text_of(std::string_view record, const Field& place) {
  const std::string_view text = field(record, place);
  return text.substr(0, text.find('\0'));
}

/// Digits, and nothing behind them but blanks and zeros.
std::optional<std::int64_t> number_of(std::string_view record, const Field& place) {
  constexpr int BASE = 8;
  const std::string_view text = field(record, place);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.begin(), text.end(), number, BASE);
  const std::string_view rest(end, text.end());
  if (error != std::errc() || number < 0 ||
      rest.find_first_not_of(std::string_view(" \0", 2)) != std::string_view::npos)
    return std::nullopt;
  return number;
}

/// The sum of up to 1024 bytes, a whole number of words: eight at a time, or it would take half of the time
/// of looking at a header.
std::int64_t sum_of(std::string_view bytes) {
  constexpr std::uint64_t EVERY_OTHER_BYTE = 0x00ff00ff00ff00ff;
  std::uint64_t sums = 0;  // four of 16 bits
  for (; !bytes.empty(); bytes.remove_prefix(sizeof sums)) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes.data(), sizeof word);
    sums += (word & EVERY_OTHER_BYTE) + (word >> 8 & EVERY_OTHER_BYTE);
  }
  constexpr std::uint64_t SUM = 0xffff;
  return static_cast<std::int64_t>((sums & SUM) + (sums >> 16 & SUM) + (sums >> 32 & SUM) + (sums >> 48));
}

bool has_right_checksum(std::string_view record) {
  // Its own field counts as blanks.
  const std::int64_t sum =
      sum_of(record) - sum_of(field(record, CHECKSUM)) + std::int64_t{' '} * std::int64_t{CHECKSUM.size};
  return number_of(record, CHECKSUM) == sum;
}

std::string name_of(std::string_view record) {
  const std::string_view prefix = text_of(record, PREFIX);
  std::string name(prefix);
  if (!prefix.empty()) name += '/';
  return name.append(text_of(record, NAME));
}

}  // namespace

PlainHeaders::PlainHeaders(const InputFile& input) : input_(input) { header_ = read(0); }

std::optional<PlainHeader> PlainHeaders::next() {
  if (!header_) return std::nullopt;
  constexpr std::int64_t RECORD = RECORD_SIZE;
  const std::int64_t behind = offset_ + RECORD + (header_->size + RECORD - 1) / RECORD * RECORD;
  std::optional<PlainHeader> following = read(behind);
  if (!following) return std::nullopt;
  offset_ = behind;
  return std::exchange(header_, std::move(following));
}

std::optional<PlainHeader> PlainHeaders::read(std::int64_t offset) {
  constexpr char FILE = '0';
  constexpr std::string_view PLAIN_TYPES = "025";
  // Sums of these stay far from overflow.
  constexpr std::int64_t LARGEST_SIZE = std::int64_t{1} << 40;
  const char* const begin = record_at(offset);
  if (begin == nullptr) return std::nullopt;
  const std::string_view record(begin, RECORD_SIZE);
  const std::optional<std::int64_t> size = number_of(record, SIZE);
  const char type = record[TYPE_AT];
  if (field(record, MAGIC) != USTAR || PLAIN_TYPES.find(type) == std::string_view::npos || !size ||
      *size > LARGEST_SIZE || !has_right_checksum(record)) {
    return std::nullopt;
  }
  PlainHeader header{name_of(record), type == FILE, *size};
  // Old archives have folders of the type of files; and only files have data for certain.
  if (header.name.empty() || (header.is_file ? header.name.ends_with('/') : *size != 0)) return std::nullopt;
  return header;
}

const char* PlainHeaders::record_at(std::int64_t offset) {
  constexpr std::int64_t RECORD = RECORD_SIZE;
  if (offset < ahead_begin_ || offset + RECORD > ahead_end_) {
    // What is read costs more than the call: more than a header only where the next one is near.
    const bool is_near = offset - ahead_begin_ < static_cast<std::int64_t>(ahead_.size());
    ahead_begin_ = offset;
    ahead_end_ =
        offset + input_.read_at(offset, std::span(ahead_).first(is_near ? ahead_.size() : RECORD_SIZE));
    if (ahead_end_ < offset + RECORD) return nullptr;
  }
  return ahead_.data() + (offset - ahead_begin_);
}

}  // namespace harbix
