#pragma once

#include <array>
#include <map>
#include <string>

#include "tests/support/pps_client.h"

namespace harbix::test {

/// Serves every request that clients put into objects of `directory`, as a device's service does: waits at
/// the directory's
/// ".all" for objects with an "action" and a "package_path", and answers each in one write to that object.
class ToyService {
 public:
  /// Comes back when it is listening.
  explicit ToyService(const std::string& directory);

 private:
  ToyService(const std::string& directory, std::array<base::FileDescriptor, 2> pipe);

  Process process_;
};

/// One exchange as a client makes it: an object made exclusively, a request written and flushed, lines read
/// through the same descriptor until "result", the object removed.
/// @return the answer's attributes, name to value. @throws std::system_error.
std::map<std::string, std::string> exchange(const std::string& object, const std::string& package_path);

}  // namespace harbix::test
