#include "archive/item_error.h"

#include <iostream>
#include <stdexcept>

#include "archive/error.h"
#include "base/log.h"

namespace harbix {

void tolerate_item_error(const std::function<void()>& archive_item, std::string_view prefix) {
  try {
    archive_item();
  } catch (const ArchiveError&) {
    throw;  // not caught below, where every other runtime error is
  } catch (const std::runtime_error& error) {
    diagnostics::line(0, "ERROR: %s", error.what());
    std::cerr << prefix << error.what() << '\n';
  }
}

}  // namespace harbix
