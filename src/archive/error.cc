#include "archive/error.h"

#include <cerrno>
#include <new>

#include <archive.h>

#include "fs/exception.h"

namespace harbix {

bool is_resource_error(int error) noexcept { return error == EMFILE || error == ENFILE || error == ENOMEM; }

bool ends_run(const std::exception& error) noexcept {
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) return true;
  if (dynamic_cast<const ResourceError*>(&error) != nullptr) return true;
  const auto* const failure = dynamic_cast<const fs::Exception*>(&error);
  return failure != nullptr && is_resource_error(failure->error());
}

bool lacks_memory(const std::exception& error) noexcept {
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) return true;
  if (const auto* const of_run = dynamic_cast<const ResourceError*>(&error); of_run != nullptr)
    return of_run->error() == ENOMEM;
  const auto* const failure = dynamic_cast<const fs::Exception*>(&error);
  return failure != nullptr && failure->error() == ENOMEM;
}

std::string error_text(::archive* handle) {
  const char* text = ::archive_error_string(handle);
  return text == nullptr ? "" : text;
}

}  // namespace harbix
