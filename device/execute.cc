#include "device/execute.h"

#include <unistd.h>

#include <cerrno>
#include <iostream>

#include "device/failure.h"

namespace device {

void execute(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  // execvp takes its arguments writable by tradition and leaves them alone.
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));  // NOLINT
  arguments.push_back(nullptr);
  ::execvp(arguments.front(), arguments.data());
  const int error = errno;
  std::cerr << "harbix-device: " << system_failure(error, "run", words.front()).what() << std::endl;
  ::_exit(error == ENOENT ? EXIT_NOT_FOUND : EXIT_NOT_EXECUTABLE);
}

}  // namespace device
