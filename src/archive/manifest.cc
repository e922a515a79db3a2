#include "archive/manifest.h"

#include <algorithm>
#include <array>
#include <istream>
#include <numeric>

namespace meta {
namespace {

constexpr std::string_view KEY_END = ": ";
constexpr std::string_view WHITE_SPACE = " \t\n\r\f\v";

std::size_t text_size(const Manifest& manifest) {
  return std::accumulate(manifest.begin(), manifest.end(), std::size_t{1},
                         [](std::size_t sum, const Attribute& item) { return sum + line_size(item); });
}

/// As std::getline, behind what the text has already.
void append_up_to(char delimiter, std::istream& stream, std::string& text) {
  std::array<char, 4096> piece{};
  for (;;) {
    stream.getline(piece.data(), piece.size(), delimiter);
    const bool has_delimiter = stream.good();
    const auto read = static_cast<std::size_t>(stream.gcount());
    text.append(piece.data(), read - (has_delimiter ? 1 : 0));
    if (text.size() > LARGEST_ATTRIBUTE)
      throw malformed_manifest("Manifest with an attribute of more than 1 MiB");
    // A piece that is full fails, and is not the last.
    if (has_delimiter || stream.eof() || read == 0) return;
    stream.clear();
  }
}

}  // namespace

std::string to_text(const Manifest& manifest) {
  std::string text;
  text.reserve(text_size(manifest));
  for (const Attribute& attribute : manifest) append_line(text, attribute);
  text += '\n';
  return text;
}

void append_line(std::string& text, const Attribute& attribute) {
  if (!attribute.key.empty()) text.append(attribute.key).append(KEY_END).append(attribute.value);
  text += '\n';
}

std::size_t line_size(const Attribute& attribute) noexcept {
  const std::size_t text = attribute.key.size() + KEY_END.size() + attribute.value.size();
  return (attribute.key.empty() ? 0 : text) + 1;
}

AttributeReader::AttributeReader(std::istream& stream) : stream_(stream) {
  stream_.exceptions(stream_.exceptions() | std::ios::badbit);
}

Attribute* AttributeReader::next() {
  while (stream_.good()) {
    attribute_.key.clear();
    append_up_to(':', stream_, attribute_.key);
    const std::string& key = attribute_.key;
    if (key.empty() || stream_.eof() || WHITE_SPACE.find(key.front()) != std::string_view::npos) continue;
    if (count_++ == MOST_ATTRIBUTES)
      throw malformed_manifest("Manifest of more than " + std::to_string(MOST_ATTRIBUTES) + " attributes");
    read_value();
    if (stream_.good()) stream_ >> std::ws;
    return &attribute_;
  }
  return nullptr;
}

void AttributeReader::read_value() {
  attribute_.value.clear();
  stream_ >> std::ws;
  if (stream_.good()) append_up_to('\n', stream_, attribute_.value);
  while (stream_.good() && stream_.peek() == ' ') append_up_to('\n', stream_, attribute_.value);
}

Manifest parse(std::istream& stream) {
  AttributeReader reader(stream);
  Manifest manifest;
  while (Attribute* const attribute = reader.next()) manifest.push_back(std::move(*attribute));
  return manifest;
}

std::string look_up(const Manifest& manifest, std::string_view key) {
  const auto found = std::ranges::find(manifest, key, &Attribute::key);
  if (found == manifest.end()) throw std::runtime_error("Key " + std::string(key) + " not found.");
  return found->value;
}

}  // namespace meta
