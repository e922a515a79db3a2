#pragma once

#include <string>
#include <string_view>

/// Names are bytes that anybody may have chosen: how they get to a terminal, a pipe or a JSON text.
namespace harbix::inspect {

/// Whether a text is UTF-8 without a flaw: no overlong form, no surrogate, nothing beyond U+10FFFF.
[[nodiscard]] bool is_utf8(std::string_view bytes);

/// A name for a terminal or a line of text: '\' is "\\", newline "\n", tab "\t"; every other control
/// character, those beyond ASCII and those that turn the direction of writing included, and every byte that
/// is no UTF-8 is
/// '\' and three octal digits. Every name has another text.
[[nodiscard]] std::string shown(std::string_view bytes);

/// Base64 with padding.
[[nodiscard]] std::string base64(std::string_view bytes);

}  // namespace harbix::inspect
