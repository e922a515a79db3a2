#include "archive/error.h"

#include <cerrno>

#include <archive.h>

namespace harbix {

bool is_resource_error(int error) noexcept { return error == EMFILE || error == ENFILE || error == ENOMEM; }

std::string error_text(::archive* handle) {
  const char* text = ::archive_error_string(handle);
  return text == nullptr ? "" : text;
}

}  // namespace harbix
