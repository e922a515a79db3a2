#pragma once

#include <sys/types.h>

#include <string>

namespace fs {

/// Makes `group` the effective group of the process, as the superuser for the length of the call.
/// @throws std::runtime_error "Could not set effective gid: TEXT", which is logged at level 0 as well;
/// nothing has changed then.
void set_effective_group(gid_t group);

/// Runs the enclosing scope with another effective group.
/// Ids belong to the whole process: guards nest, and the innermost ends first.
class EffectiveGroup {
 public:
  /// Goes back to the effective group it found.
  /// @throws as set_effective_group does.
  [[nodiscard("name the guard, or it ends at the semicolon")]] explicit EffectiveGroup(gid_t group);

  /// At its end this form makes the calling thread's id the effective group, not the group it found: whoever
  /// needs the old group afterwards uses the form above.
  /// @throws also std::runtime_error "Group 'NAME' does not exist".
  [[nodiscard("name the guard, or it ends at the semicolon")]] explicit EffectiveGroup(
      const std::string& name);

  /// Ends the process where the system refuses the way back, as end_with_lost_identity does.
  ~EffectiveGroup();
  EffectiveGroup(const EffectiveGroup&) = delete;
  EffectiveGroup& operator=(const EffectiveGroup&) = delete;
  EffectiveGroup(EffectiveGroup&&) = delete;
  EffectiveGroup& operator=(EffectiveGroup&&) = delete;

 private:
  gid_t saved_;
};

}  // namespace fs
