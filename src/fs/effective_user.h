#pragma once

#include <sys/types.h>

#include <string>

namespace fs {

/// Makes `user` the effective user of the process.
/// @throws std::runtime_error "Could not set effective uid: TEXT", which is logged at level 0 as well;
/// nothing has changed then.
void set_effective_user(uid_t user);

/// Runs the enclosing scope as another effective user, then goes back to the one it found.
/// Ids belong to the whole process: guards nest, and the innermost ends first.
class EffectiveUser {
 public:
  /// @throws as set_effective_user does.
  [[nodiscard("name the guard, or it ends at the semicolon")]] explicit EffectiveUser(uid_t user);
  /// @throws also std::runtime_error "User 'NAME' does not exist".
  [[nodiscard("name the guard, or it ends at the semicolon")]] explicit EffectiveUser(
      const std::string& name);
  /// Ends the process where the system refuses the way back, as end_with_lost_identity does.
  ~EffectiveUser();
  EffectiveUser(const EffectiveUser&) = delete;
  EffectiveUser& operator=(const EffectiveUser&) = delete;
  EffectiveUser(EffectiveUser&&) = delete;
  EffectiveUser& operator=(EffectiveUser&&) = delete;

 private:
  uid_t saved_;
};

}  // namespace fs
