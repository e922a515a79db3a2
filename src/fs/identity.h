#pragma once

#include <sys/types.h>

#include <stdexcept>
#include <string>

/// Under whose name the process works. Ids and mask belong to the whole process: guards nest, and the
/// innermost ends first. They leave the real and the saved user alone, which stay the superuser's: the way
/// back is open, and another user whose files are handled can send this process no signals.
namespace fs {

inline constexpr uid_t SUPERUSER = 0;

/// For whom the system takes the process.
struct EffectiveIds {
  uid_t user;
  gid_t group;
};

/// Those of this moment: two calls of the system, and valid until one of the guards below begins or ends.
[[nodiscard]] EffectiveIds effective_ids() noexcept;

/// The process cannot work under the identity that a piece of work needs. It is no error of one item: work
/// that goes on with the next item after another error lets this one pass.
class IdentityError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Makes the superuser the real and the saved user as well, where he is the effective one: a program that was
/// started with the set-user-id bit could not come back from another identity otherwise.
/// @throws IdentityError "Could not become root: TEXT"
void become_superuser();

/// Makes `user` the effective user of the process.
/// @throws IdentityError "Could not set effective uid: TEXT", which is logged at level 0 as well; nothing has
/// changed then.
void set_effective_user(uid_t user);

/// Makes `group` the effective group of the process, as the superuser for the length of the call.
/// @throws IdentityError "Could not set effective gid: TEXT", which is logged at level 0 as well; nothing has
/// changed then.
void set_effective_group(gid_t group);

/// Runs the enclosing scope as another effective user, then goes back to the one it found. Where the system
/// does not let it go back, the process ends with status 2: going on would mean working under another
/// identity.
class EffectiveUser {
 public:
  /// @throws as set_effective_user does.
  [[nodiscard("name the guard, or it ends at the semicolon")]] explicit EffectiveUser(uid_t user);
  /// @throws also std::runtime_error "User 'NAME' does not exist".
  [[nodiscard("name the guard, or it ends at the semicolon")]] explicit EffectiveUser(
      const std::string& name);
  ~EffectiveUser();
  EffectiveUser(const EffectiveUser&) = delete;
  EffectiveUser& operator=(const EffectiveUser&) = delete;
  EffectiveUser(EffectiveUser&&) = delete;
  EffectiveUser& operator=(EffectiveUser&&) = delete;

 private:
  uid_t saved_;
};

/// Runs the enclosing scope with another effective group. Ends the process as EffectiveUser does.
class EffectiveGroup {
 public:
  /// Goes back to the effective group it found.
  /// @throws as set_effective_group does.
  [[nodiscard("name the guard, or it ends at the semicolon")]] explicit EffectiveGroup(gid_t group);

  /// At its end this form makes the calling thread's id the effective group, not the group it found: a caller
  /// that needs the old group afterwards uses the form above.
  /// @throws also std::runtime_error "Group 'NAME' does not exist".
  [[nodiscard("name the guard, or it ends at the semicolon")]] explicit EffectiveGroup(
      const std::string& name);

  ~EffectiveGroup();
  EffectiveGroup(const EffectiveGroup&) = delete;
  EffectiveGroup& operator=(const EffectiveGroup&) = delete;
  EffectiveGroup(EffectiveGroup&&) = delete;
  EffectiveGroup& operator=(EffectiveGroup&&) = delete;

 private:
  gid_t saved_;
};

/// Creates files under another file-creation mask until the end of the scope.
class FileMask {
 public:
  [[nodiscard("name the guard, or it ends at the semicolon")]] explicit FileMask(mode_t mask) noexcept;
  ~FileMask();
  FileMask(const FileMask&) = delete;
  FileMask& operator=(const FileMask&) = delete;
  FileMask(FileMask&&) = delete;
  FileMask& operator=(FileMask&&) = delete;

 private:
  mode_t saved_;
};

}  // namespace fs
