#include "fs/accounts.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace fs {
namespace {

constexpr std::size_t FIRST_CAPACITY = 4096;

/// Calls one of the system's look-ups with a buffer that it finds large enough. A group of many members does
/// not fit into what is enough for most.
/// @return the record, which points into `buffer`; nothing for a name that does not exist.
template <typename Record, typename LookUp>
bool find(LookUp look_up, const std::string& name, Record& record, std::vector<char>& buffer) {
  Record* found = nullptr;
  buffer.resize(FIRST_CAPACITY);
  int status = 0;
  while ((status = look_up(name.c_str(), &record, buffer.data(), buffer.size(), &found)) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  // An unknown name is status 0 and no result on some systems, and one of these numbers on others.
  if (status == 0 || status == ENOENT || status == ESRCH) return found != nullptr;
  throw std::runtime_error("Could not look up '" + name + "': " + std::strerror(status));
}

}  // namespace

uid_t user_id(const std::string& name) {
  std::vector<char> buffer;
  ::passwd record{};
  if (!find(::getpwnam_r, name, record, buffer))
    throw std::runtime_error("User '" + name + "' does not exist");
  return record.pw_uid;
}

gid_t group_id(const std::string& name) {
  std::vector<char> buffer;
  ::group record{};
  if (!find(::getgrnam_r, name, record, buffer))
    throw std::runtime_error("Group '" + name + "' does not exist");
  return record.gr_gid;
}

}  // namespace fs
