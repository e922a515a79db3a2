#include "archive/manifest.h"

#include <algorithm>
#include <istream>
#include <numeric>

namespace meta {
namespace {

constexpr std::string_view KEY_END = ": ";
constexpr std::string_view WHITE_SPACE = " \t\n\r\f\v";

std::size_t text_size(const Manifest& manifest) {
  return std::accumulate(manifest.begin(), manifest.end(), std::size_t{1},
                         [](std::size_t sum, const Attribute& item) {
                           return sum + item.key.size() + KEY_END.size() + item.value.size() + 1;
                         });
}

std::string read_value(std::istream& stream) {
  std::string value;
  stream >> std::ws;
  std::getline(stream, value);
  std::string continuation;
  while (stream.good() && stream.peek() == ' ' && std::getline(stream, continuation)) value += continuation;
  return value;
}

}  // namespace

std::string to_text(const Manifest& manifest) {
  std::string text;
  // A share of a million files makes this text large: never more memory than it needs.
  text.reserve(text_size(manifest));
  for (const Attribute& attribute : manifest) {
    if (!attribute.key.empty()) text.append(attribute.key).append(KEY_END).append(attribute.value);
    text += '\n';
  }
  text += '\n';
  return text;
}

Manifest parse(std::istream& stream) {
  stream.exceptions(stream.exceptions() | std::ios::badbit);
  Manifest manifest;
  std::string key;
  while (stream.good()) {
    std::getline(stream, key, ':');
    if (key.empty() || stream.eof() || WHITE_SPACE.find(key.front()) != std::string_view::npos) continue;
    if (manifest.size() == MOST_ATTRIBUTES)
      throw malformed_manifest("Manifest of more than " + std::to_string(MOST_ATTRIBUTES) + " attributes");
    std::string value = read_value(stream);
    manifest.push_back({std::move(key), std::move(value)});
    key.clear();
    if (stream.good()) stream >> std::ws;
  }
  return manifest;
}

std::string look_up(const Manifest& manifest, std::string_view key) {
  const auto found = std::ranges::find(manifest, key, &Attribute::key);
  if (found == manifest.end()) throw std::runtime_error("Key " + std::string(key) + " not found.");
  return found->value;
}

}  // namespace meta
