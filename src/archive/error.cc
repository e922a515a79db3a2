#include "archive/error.h"

#include <archive.h>

namespace harbix {

std::string error_text(::archive* handle) {
  const char* text = ::archive_error_string(handle);
  return text == nullptr ? "" : text;
}

}  // namespace harbix
