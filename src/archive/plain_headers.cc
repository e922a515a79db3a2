#include "archive/plain_headers.h"

#include <algorithm>
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

constexpr std::int64_t RECORD = 512;
// Sums of these stay far from overflow.
constexpr std::int64_t LARGEST_SIZE = std::int64_t{1} << 40;

/// A size with what fills up its last record.
std::int64_t padded(std::int64_t size) { return (size + RECORD - 1) / RECORD * RECORD; }

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

/// What the record of a header says by itself.
struct Fields {
  std::string name;
  char type;
  std::int64_t size;
};

/// @return nothing for a record that is damaged, or is none of this kind.
std::optional<Fields> fields_of(std::string_view record) {
  if (record.empty() || field(record, MAGIC) != USTAR || !has_right_checksum(record)) return std::nullopt;
  const std::optional<std::int64_t> size = number_of(record, SIZE);
  if (!size || *size > LARGEST_SIZE) return std::nullopt;
  return Fields{name_of(record), record[TYPE_AT], *size};
}

/// What an extended header says in the place of the header's own fields.
struct Extension {
  std::optional<std::string> name;
  std::optional<std::int64_t> size;
};

/// Takes one of the extended header's records, "LENGTH KEY=VALUE" and a newline, off the front of the text.
/// The length is that of all of this.
/// @return "KEY=VALUE"; nothing for what is not of this shape.
std::optional<std::string_view> take_record(std::string_view& text) {
  std::size_t length = 0;
  const auto [end, error] = std::from_chars(text.begin(), text.end(), length);
  const auto digits = static_cast<std::size_t>(end - text.begin());
  if (error != std::errc() || length > text.size() || length < digits + 2 || text[digits] != ' ' ||
      text[length - 1] != '\n') {
    return std::nullopt;
  }
  const std::string_view record = text.substr(digits + 1, length - digits - 2);
  text.remove_prefix(length);
  return record;
}

/// @return whether nothing is left to the library: other keys may change what an entry is.
bool note(std::string_view key, std::string_view value, Extension& extension) {
  constexpr std::array<std::string_view, 9> OF_NO_MATTER_HERE{
      "linkpath", "uid", "gid", "mtime", "atime", "ctime", "uname", "gname", "hdrcharset"};
  if (key == "path") {
    extension.name = value;
    return value.find('\0') == std::string_view::npos;
  }
  if (key == "size") {
    std::int64_t size = 0;
    const auto [end, error] = std::from_chars(value.begin(), value.end(), size);
    extension.size = size;
    return error == std::errc() && end == value.end() && size >= 0 && size <= LARGEST_SIZE;
  }
  return std::ranges::find(OF_NO_MATTER_HERE, key) != OF_NO_MATTER_HERE.end();
}

std::optional<Extension> parse_extension(std::string_view text) {
  Extension extension;
  while (!text.empty()) {
    const std::optional<std::string_view> record = take_record(text);
    const std::size_t separator = record ? record->find('=') : std::string_view::npos;
    if (separator == std::string_view::npos) return std::nullopt;
    if (!note(record->substr(0, separator), record->substr(separator + 1), extension)) return std::nullopt;
  }
  return extension;
}

std::optional<PlainHeader> header_of(Fields fields, const Extension& extension) {
  constexpr char FILE = '0';
  constexpr std::string_view PLAIN_TYPES = "025";
  if (PLAIN_TYPES.find(fields.type) == std::string_view::npos) return std::nullopt;
  PlainHeader header{extension.name.value_or(std::move(fields.name)), fields.type == FILE,
                     extension.size.value_or(fields.size)};
  // Old archives have folders of the type of files; and only files have data for certain.
  if (header.name.empty() || (header.is_file ? header.name.ends_with('/') : header.size != 0))
    return std::nullopt;
  return header;
}

}  // namespace

PlainHeaders::PlainHeaders(const InputFile& input) : input_(input) { met_ = read(0); }

std::optional<PlainHeader> PlainHeaders::next() {
  if (!met_) return std::nullopt;
  const std::int64_t behind = met_->data + padded(met_->header.size);
  std::optional<Met> following = read(behind);
  if (!following) return std::nullopt;
  offset_ = behind;
  return std::exchange(met_, std::move(following))->header;
}

std::optional<PlainHeaders::Met> PlainHeaders::read(std::int64_t offset) {
  constexpr char EXTENDED = 'x';
  std::optional<Fields> fields = fields_of(text_at(offset, RECORD_SIZE));
  std::int64_t data = offset + RECORD;
  Extension extension;
  if (fields && fields->type == EXTENDED) {
    if (fields->size > static_cast<std::int64_t>(ahead_.size())) return std::nullopt;
    std::optional<Extension> parsed = parse_extension(text_at(data, static_cast<std::size_t>(fields->size)));
    if (!parsed) return std::nullopt;
    extension = *std::move(parsed);
    data += padded(fields->size);
    fields = fields_of(text_at(data, RECORD_SIZE));
    data += RECORD;
  }
  std::optional<PlainHeader> header = fields ? header_of(*std::move(fields), extension) : std::nullopt;
  if (!header) return std::nullopt;
  return Met{*std::move(header), data};
}

/// @return nothing where the file does not have all of it.
std::string_view PlainHeaders::text_at(std::int64_t offset, std::size_t size) {
  const auto end = offset + static_cast<std::int64_t>(size);
  if (offset < ahead_begin_ || end > ahead_end_) {
    // What is read costs more than the call: more than is asked for only where the next header is near.
    const bool is_near = offset - ahead_begin_ < static_cast<std::int64_t>(ahead_.size());
    ahead_begin_ = offset;
    ahead_end_ = offset + input_.read_at(offset, std::span(ahead_).first(is_near ? ahead_.size() : size));
    if (ahead_end_ < end) return {};
  }
  return {ahead_.data() + (offset - ahead_begin_), size};
}

}  // namespace harbix
