#include "fs/accounts.h"

#include <grp.h>
#include <pwd.h>

#include <array>
#include <stdexcept>

namespace fs {
namespace {

constexpr std::size_t RECORD_CAPACITY = 4096;

}  // namespace

uid_t user_id(const std::string& name) {
  std::array<char, RECORD_CAPACITY> buffer{};
  ::passwd record{};
  ::passwd* found = nullptr;
  const int status = ::getpwnam_r(name.c_str(), &record, buffer.data(), buffer.size(), &found);
  // An unknown name is status 0 and no result on some systems; the record is then garbage.
  if (status != 0 || found == nullptr) throw std::runtime_error("User '" + name + "' does not exist");
  return record.pw_uid;
}

gid_t group_id(const std::string& name) {
  std::array<char, RECORD_CAPACITY> buffer{};
  ::group record{};
  ::group* found = nullptr;
  const int status = ::getgrnam_r(name.c_str(), &record, buffer.data(), buffer.size(), &found);
  if (status != 0 || found == nullptr) throw std::runtime_error("Group '" + name + "' does not exist");
  return record.gr_gid;
}

}  // namespace fs
