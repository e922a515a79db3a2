#pragma once

#include <string>

namespace harbix::test {

/// What the size report counts on top of everything: an empty archive, and its end mark once more.
inline constexpr long EMPTY_REPORT = 1024 + 1024;

/// The text of a size report.
inline std::string size_text(long bytes, int files) {
  return "bytesize=" + std::to_string(bytes) + "\ncount=" + std::to_string(files) + "\n";
}

}  // namespace harbix::test
