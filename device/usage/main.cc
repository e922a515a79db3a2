#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <optional>
#include <string>

#include "device/usage/program_search.h"
#include "device/usage/usage_record.h"

namespace {

constexpr int FAILED = 1;
constexpr int WRONG_COMMAND_LINE = 64;

int report(const std::string& text) {
  // A line that cannot be written is lost: the status tells enough.
  static_cast<void>(std::fprintf(stderr, "use: %s\n", text.c_str()));
  return FAILED;
}

int print_record(const std::string& name) {
  const char* path = std::getenv("PATH");  // NOLINT(concurrency-mt-unsafe): there is one thread
  const std::optional<std::string> program = usage::find_program(name, path == nullptr ? "" : path);
  if (!program) return report("'" + name + "' is not in a folder of PATH");
  const std::optional<std::string> record = usage::usage_record(*program);
  if (!record) return report("'" + *program + "' has no usage record");
  std::cout << *record << std::flush;
  return std::cout ? 0 : report("the usage record could not be written");
}

}  // namespace

int main(int count, char** words) {
  if (count != 2 || *words[1] == '-' || *words[1] == '\0') {
    std::cerr << "usage: use PROGRAM" << std::endl;
    return WRONG_COMMAND_LINE;
  }
  try {
    return print_record(words[1]);
  } catch (const std::exception& error) {
    return report(error.what());
  }
}
