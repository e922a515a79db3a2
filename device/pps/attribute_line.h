#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pps {

/// One line that a client wrote, or that stands in the store. The views point into the line.
struct AttributeLine {
  enum class Kind {
    nothing,  ///< an empty line, or one that names an object ("@...")
    set,      ///< "name:encoding:value" or "[n]name:encoding:value"
    remove,   ///< "-name"
  };

  Kind kind = Kind::nothing;
  std::string_view name;
  std::string_view encoding;
  std::string_view value;
  bool persistent = true;  ///< false behind "[n]": shown to readers, never stored
};

/// Takes a line, without its newline, apart. Encoding and value may be empty and hold any byte, the value ':'
/// too; a name is not empty, holds no ':' and does not begin with '-', '@' or '['.
/// @return nothing for a malformed line.
[[nodiscard]] std::optional<AttributeLine> parse_attribute_line(std::string_view line);

/// Appends "name:encoding:value" and a newline to `text`, with "[n]" before it when the line is not
/// persistent.
void append_attribute(std::string& text, const AttributeLine& line);

}  // namespace pps
