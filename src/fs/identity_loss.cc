#include "fs/identity_loss.h"

#include <unistd.h>

#include <cstring>
#include <iostream>
#include <string>

#include "base/log.h"

namespace fs {
namespace {

constexpr int STATUS = 2;

}  // namespace

void end_with_lost_identity(std::string_view kind, unsigned id, int error) {
  const std::string text = "Could not restore effective " + std::string(kind) + " " + std::to_string(id) +
                           ": " + std::strerror(error);
  diagnostics::line(0, "%s", text.c_str());
  std::cerr << "ERROR: " << text << std::endl;
  // Without destructors and exit handlers: they would work as somebody else.
  ::_exit(STATUS);
}

}  // namespace fs
