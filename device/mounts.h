#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "base/file_descriptor.h"

namespace device {

/// A copy of a part of the host's tree that is not attached anywhere yet, and goes away unless it is
/// attached.
class DetachedMount {
 public:
  /// The host's file or folder `source` with everything mounted below it, read-only.
  /// @return nothing when there is no `source`. @throws Failure quoting `source`.
  [[nodiscard]] static std::optional<DetachedMount> read_only(const std::string& source);

  /// The host's device node `source`, writable. Result and errors as above.
  [[nodiscard]] static std::optional<DetachedMount> device_node(const std::string& source);

  /// The folder `source` alone, writable, with programs and set-id bits working, also when its own mount
  /// forbids them.
  /// @throws Failure quoting `source`.
  [[nodiscard]] static DetachedMount root_folder(const std::string& source);

  /// Attaches the copy over the existing item `target`. @throws Failure quoting `target`.
  void attach(const std::string& target) const;

 private:
  explicit DetachedMount(base::FileDescriptor tree) : tree_(std::move(tree)) {}

  base::FileDescriptor tree_;
};

/// From here on no mount made by this process is seen outside its own mount namespace.
/// @throws Failure, with EXIT_UNAVAILABLE where this process's root is no mount point.
void make_mounts_private();

/// Mounts a new file system over the existing folder `target`. @throws Failure quoting `target`.
void mount_memory(const std::string& target);
void mount_processes(const std::string& target);
void mount_terminals(const std::string& target);

/// Closes the file system that is mounted on `target` for writers. @throws Failure quoting `target`.
void make_read_only(const std::string& target);

/// Makes `root`, a mount point, this process's root and working directory, and lets go of the old root.
void enter_root(const std::string& root);

}  // namespace device
