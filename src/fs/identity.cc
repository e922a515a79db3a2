#include "fs/identity.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "base/log.h"
#include "fs/accounts.h"

namespace fs {
namespace {

constexpr uid_t SAME_USER = static_cast<uid_t>(-1);
constexpr gid_t SAME_GROUP = static_cast<gid_t>(-1);
constexpr int STATUS_LOST_IDENTITY = 2;

int switch_user(uid_t user) noexcept { return ::setresuid(SAME_USER, user, SAME_USER); }
int switch_group(gid_t group) noexcept { return ::setresgid(SAME_GROUP, group, SAME_GROUP); }

/// Says and logs why the way back is closed, and ends the process without running anything under this
/// identity.
[[noreturn]] void give_up(const char* what, unsigned id) noexcept {
  const char* reason = std::strerror(errno);
  diagnostics::line(0, "ERROR: Could not restore effective %s %u: %s", what, id, reason);
  std::cerr << "ERROR: Could not restore effective " << what << ' ' << id << ": " << reason << std::endl;
  ::_exit(STATUS_LOST_IDENTITY);
}

}  // namespace

EffectiveIds effective_ids() noexcept { return {.user = ::geteuid(), .group = ::getegid()}; }

void become_superuser() {
  if (::geteuid() != SUPERUSER || ::setresuid(SUPERUSER, SUPERUSER, SUPERUSER) != -1) return;
  throw IdentityError(std::string("Could not become root: ") + std::strerror(errno));
}

void set_effective_user(uid_t user) {
  if (switch_user(user) != -1) return;
  const std::string reason = std::strerror(errno);
  diagnostics::line(0, "Could not set effective uid %d: %s", static_cast<int>(user), reason.c_str());
  throw IdentityError("Could not set effective uid: " + reason);
}

void set_effective_group(gid_t group) {
  const EffectiveUser superuser(SUPERUSER);
  if (switch_group(group) != -1) return;
  const std::string reason = std::strerror(errno);
  diagnostics::line(0, "Could not set effective gid %d: %s", static_cast<int>(group), reason.c_str());
  throw IdentityError("Could not set effective gid: " + reason);
}

EffectiveUser::EffectiveUser(uid_t user) : saved_(::geteuid()) { set_effective_user(user); }

EffectiveUser::EffectiveUser(const std::string& name) : EffectiveUser(user_id(name)) {}

EffectiveUser::~EffectiveUser() {
  if (switch_user(saved_) == -1) give_up("uid", saved_);
}

EffectiveGroup::EffectiveGroup(gid_t group) : saved_(::getegid()) { set_effective_group(group); }

// The thread's id is saved on purpose; the name-based form has always ended that way on the device.
EffectiveGroup::EffectiveGroup(const std::string& name) : saved_(static_cast<gid_t>(::gettid())) {
  set_effective_group(group_id(name));
}

EffectiveGroup::~EffectiveGroup() {
  if (switch_group(saved_) == 0) return;
  // Another user may be the effective one by now, who may not choose his group.
  const uid_t user = ::geteuid();
  if (switch_user(SUPERUSER) == -1 || switch_group(saved_) == -1) give_up("gid", saved_);
  if (switch_user(user) == -1) give_up("uid", user);
}

FileMask::FileMask(mode_t mask) noexcept : saved_(::umask(mask)) {}

FileMask::~FileMask() { ::umask(saved_); }

}  // namespace fs
