#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace installer {

/// The attributes of an object, name to value. Their encodings mean nothing to the installer.
using Attributes = std::map<std::string, std::string, std::less<>>;

/// Takes the text of one object apart. Lines that name an object, and lines of any other shape than
/// "name:encoding:value", are passed over; "[n]" is no part of a name.
[[nodiscard]] Attributes parse_attributes(std::string_view text);

/// The value of `name`; empty when there is none.
[[nodiscard]] std::string value_of(const Attributes& attributes, std::string_view name);

}  // namespace installer
