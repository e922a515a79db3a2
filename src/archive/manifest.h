#pragma once

#include <compare>
#include <cstddef>
#include <iosfwd>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// Manifests: what a package says of itself, one "KEY: VALUE" line an attribute.
namespace meta {

// Beyond every real device; and below what an archive can claim to hold.
inline constexpr std::size_t MOST_ATTRIBUTES = 2'000'000;
inline constexpr std::size_t LARGEST_TEXT = std::size_t{256} << 20;
inline constexpr std::size_t LARGEST_ATTRIBUTE = std::size_t{1} << 20;  // of its key, and of its value

/// The text is no manifest.
class malformed_manifest : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Attribute {
  std::string key;
  std::string value;

  friend bool operator==(const Attribute&, const Attribute&) = default;
};

/// In the order written or read; keys may repeat.
using Manifest = std::vector<Attribute>;

/// Reads a manifest one attribute after the other, so that a large one never is in memory as a whole. A key
/// is everything up to the next ':', line breaks included, and is dropped when it begins with white space; a
/// line that begins with a blank continues the value before it, blank kept.
class AttributeReader {
 public:
  /// The stream is the caller's, and outlives this object. It throws what it cannot read from here on.
  explicit AttributeReader(std::istream& stream);

  /// The next attribute, valid until the next call; nothing at the end of the stream.
  /// @throws std::ios_base::failure when the stream cannot be read; malformed_manifest "Manifest of more than
  /// 2000000 attributes" or "Manifest with an attribute of more than 1 MiB".
  [[nodiscard]] Attribute* next();

 private:
  void read_value();

  std::istream& stream_;
  Attribute attribute_;
  std::size_t count_ = 0;
};

/// A "KEY: VALUE" line an attribute, an empty line for one without a key, and an empty line at the end.
[[nodiscard]] std::string to_text(const Manifest& manifest);

/// Appends the line of one attribute. A manifest's text is these lines, and an empty one.
void append_line(std::string& text, const Attribute& attribute);

/// How many bytes that is.
[[nodiscard]] std::size_t line_size(const Attribute& attribute) noexcept;

/// Reads to the end of the stream.
/// @throws as AttributeReader::next does.
[[nodiscard]] Manifest parse(std::istream& stream);

/// The value of the first attribute with this key.
/// @throws std::runtime_error "Key KEY not found."
[[nodiscard]] std::string look_up(const Manifest& manifest, std::string_view key);

}  // namespace meta
