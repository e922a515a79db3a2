#include "inspect/names.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace harbix::inspect {
namespace {

/// A character at the beginning of a text, and how many bytes it takes: none for bytes that are no UTF-8.
struct Character {
  char32_t code = 0;
  std::size_t size = 0;
};

struct Form {
  unsigned char mask;
  unsigned char mark;
  char32_t smallest;
};

constexpr std::array<Form, 4> FORMS{
    {{0x80, 0x00, 0}, {0xe0, 0xc0, 0x80}, {0xf0, 0xe0, 0x800}, {0xf8, 0xf0, 0x10000}}};
constexpr char32_t LARGEST = 0x10ffff;

bool is_surrogate(char32_t code) { return code >= 0xd800 && code <= 0xdfff; }

Character first_character(std::string_view text) {
  const auto first = static_cast<unsigned char>(text.front());
  const auto* const form =
      std::ranges::find_if(FORMS, [first](const Form& one) { return (first & one.mask) == one.mark; });
  if (form == FORMS.end()) return {};
  const auto size = static_cast<std::size_t>(form - FORMS.begin()) + 1;
  if (text.size() < size) return {};
  auto code = static_cast<char32_t>(first & ~form->mask);
  for (const char byte : text.substr(1, size - 1)) {
    const auto bits = static_cast<unsigned char>(byte);
    if ((bits & 0xc0U) != 0x80U) return {};
    code = code << 6U | (bits & 0x3fU);
  }
  if (code < form->smallest || code > LARGEST || is_surrogate(code)) return {};
  return {code, size};
}

/// Controls, and what turns the direction in which a line is shown.
bool is_harmful(char32_t code) {
  struct Range {
    char32_t first;
    char32_t last;
  };
  constexpr std::array<Range, 6> RANGES{
      {{0, 0x1f}, {0x7f, 0x9f}, {0x61c, 0x61c}, {0x200e, 0x200f}, {0x2028, 0x202e}, {0x2066, 0x2069}}};
  return std::ranges::any_of(
      RANGES, [code](const Range& range) { return code >= range.first && code <= range.last; });
}

void append_octal(std::string& text, char byte) {
  const auto value = static_cast<unsigned char>(byte);
  text += '\\';
  for (const unsigned shift : {6U, 3U, 0U}) text += static_cast<char>('0' + (value >> shift & 7U));
}

}  // namespace

bool is_utf8(std::string_view bytes) {
  while (!bytes.empty()) {
    const Character character = first_character(bytes);
    if (character.size == 0) return false;
    bytes.remove_prefix(character.size);
  }
  return true;
}

std::string shown(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    const Character character = first_character(bytes);
    const std::size_t size = std::max<std::size_t>(character.size, 1);
    const std::string_view piece = bytes.substr(0, size);
    if (character.code == '\\' && character.size == 1) {
      text += "\\\\";
    } else if (character.code == '\n') {
      text += "\\n";
    } else if (character.code == '\t') {
      text += "\\t";
    } else if (character.size == 0 || is_harmful(character.code)) {
      for (const char byte : piece) append_octal(text, byte);
    } else {
      text += piece;
    }
    bytes.remove_prefix(size);
  }
  return text;
}

std::string base64(std::string_view bytes) {
  constexpr std::string_view DIGITS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::string_view group = bytes.substr(at, 3);
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < 3; ++i)
      bits = bits << 8U | (i < group.size() ? static_cast<unsigned char>(group[i]) : 0U);
    for (std::size_t i = 0; i < 4; ++i)
      text += i <= group.size() ? DIGITS[bits >> (18 - 6 * i) & 0x3fU] : '=';
  }
  return text;
}

}  // namespace harbix::inspect
