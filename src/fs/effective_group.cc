#include "fs/effective_group.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "base/log.h"
#include "fs/accounts.h"
#include "fs/effective_user.h"
#include "fs/identity_loss.h"

namespace fs {
namespace {

constexpr gid_t UNCHANGED = static_cast<gid_t>(-1);
constexpr uid_t SUPERUSER = 0;

}  // namespace

void set_effective_group(gid_t group) {
  const EffectiveUser superuser(SUPERUSER);
  if (::setregid(UNCHANGED, group) != -1) return;
  const std::string reason = std::strerror(errno);
  diagnostics::line(0, "Could not set effective gid %d: %s", static_cast<int>(group), reason.c_str());
  throw std::runtime_error("Could not set effective gid: " + reason);
}

EffectiveGroup::EffectiveGroup(gid_t group) : saved_(::getegid()) { set_effective_group(group); }

// The thread's id is saved on purpose; the name-based form has always ended that way on the device.
EffectiveGroup::EffectiveGroup(const std::string& name) : saved_(static_cast<gid_t>(::gettid())) {
  set_effective_group(group_id(name));
}

EffectiveGroup::~EffectiveGroup() {
  if (::setregid(UNCHANGED, saved_) == -1) end_with_lost_identity("gid", saved_, errno);
}

}  // namespace fs
