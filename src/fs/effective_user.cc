#include "fs/effective_user.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "base/log.h"
#include "fs/accounts.h"
#include "fs/identity_loss.h"

namespace fs {
namespace {

constexpr uid_t UNCHANGED = static_cast<uid_t>(-1);

}  // namespace

void set_effective_user(uid_t user) {
  if (::setreuid(UNCHANGED, user) != -1) return;
  const std::string reason = std::strerror(errno);
  diagnostics::line(0, "Could not set effective uid %d: %s", static_cast<int>(user), reason.c_str());
  throw std::runtime_error("Could not set effective uid: " + reason);
}

EffectiveUser::EffectiveUser(uid_t user) : saved_(::geteuid()) { set_effective_user(user); }

EffectiveUser::EffectiveUser(const std::string& name) : EffectiveUser(user_id(name)) {}

EffectiveUser::~EffectiveUser() {
  if (::setreuid(UNCHANGED, saved_) == -1) end_with_lost_identity("uid", saved_, errno);
}

}  // namespace fs
