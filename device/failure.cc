#include "device/failure.h"

#include <cstdio>
#include <system_error>

namespace device {
namespace {

/// In one write, so that the lines of several processes do not mix. A line that cannot be written is lost:
/// the status tells enough.
void report(const char* text) { static_cast<void>(std::fprintf(stderr, "harbix-device: %s\n", text)); }

}  // namespace

Failure system_failure(int error, std::string_view action, std::string_view path, int status) {
  std::string text = "cannot ";
  text += action;
  if (!path.empty()) {
    text += " '";
    text += path;
    text += "'";
  }
  text += ": " + std::generic_category().message(error);
  return Failure(text, status);
}

int status_of(const std::function<int()>& work) {
  try {
    return work();
  } catch (const Failure& failure) {
    report(failure.what());
    return failure.status();
  } catch (const std::exception& error) {
    report(error.what());
    return EXIT_FAILED;
  }
}

}  // namespace device
