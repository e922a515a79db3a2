#pragma once

#include "base/file_descriptor.h"
#include "fs/path.h"

namespace fs {

/// Where the process stands, absolute; empty when the system cannot tell.
[[nodiscard]] Path current_directory();

/// Makes `path` the working directory, and makes sure that this is where the process stands afterwards.
/// @throws fs::Exception "Failed to chdir to '...'"
void change_directory(const Path& path);

/// Makes sure that the process stands in `wanted`, to the letter: a link on the way there shows here.
/// @throws fs::Exception with `message`.
void require_working_directory(const Path& wanted, const std::string& message);

/// Works in another directory until the end of the scope, then goes back to the one it found.
class WorkingDirectory {
 public:
  /// @throws fs::Exception as change_directory does; the process then stands where it stood.
  [[nodiscard("name the guard, or it ends at the semicolon")]] explicit WorkingDirectory(const Path& path);
  ~WorkingDirectory();
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;
  WorkingDirectory(WorkingDirectory&&) = delete;
  WorkingDirectory& operator=(WorkingDirectory&&) = delete;

 private:
  base::FileDescriptor saved_;
};

}  // namespace fs
