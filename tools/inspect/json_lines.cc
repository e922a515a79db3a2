#include "inspect/json_lines.h"

#include "inspect/names.h"

namespace harbix::inspect {

void set_name(Json& object, const std::string& key, std::string_view bytes) {
  object[key] = std::string(bytes);
  if (!is_utf8(bytes)) object[key + "_base64"] = base64(bytes);
}

std::string json_line(const Json& object) {
  constexpr int ONE_LINE = -1;
  constexpr bool ASCII = true;
  return object.dump(ONE_LINE, ' ', ASCII, Json::error_handler_t::replace);
}

}  // namespace harbix::inspect
