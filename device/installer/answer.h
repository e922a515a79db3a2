#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace installer {

/// The attributes of an answer, name and value, in the order in which they are written.
using Answer = std::vector<std::pair<std::string, std::string>>;

inline constexpr std::string_view RESULT = "result";
inline constexpr std::string_view SUCCESS = "0";
inline constexpr std::string_view FAILURE = "1";

/// One line "name::value" for each. A newline in a value becomes a blank: it would end the line.
[[nodiscard]] std::string to_lines(const Answer& answer);

}  // namespace installer
