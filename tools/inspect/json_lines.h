#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

/// JSON for programs: one object a line, in ASCII. docs/inspect-json.schema.json describes each.
namespace harbix::inspect {

using Json = nlohmann::ordered_json;

/// Sets KEY to a name. One that is not UTF-8 has the replacement character for what is wrong, and all of its
/// bytes stand as base64 in "KEY_base64".
void set_name(Json& object, const std::string& key, std::string_view bytes);

/// The object's line, without the newline.
[[nodiscard]] std::string json_line(const Json& object);

}  // namespace harbix::inspect
