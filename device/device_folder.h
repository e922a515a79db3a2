#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "base/file_descriptor.h"

namespace device {

/// What a folder of the host holds.
enum class FolderContent { nothing, unfinished_device, device };

/// Holds the folder `folder` for this process until the end of the result: no other device runs in it and no
/// other program changes it.
/// @throws Failure when that is the case already, or the folder cannot be opened.
[[nodiscard]] base::FileDescriptor hold_folder(const std::string& folder);

/// What `path` holds. @throws Failure when it is something else, or a device of another layout.
[[nodiscard]] FolderContent content_of_folder(const std::string& path);

/// To be called before and after the content of a device is made in `path`, so that one whose making was cut
/// short is not taken for a device. @throws Failure
void mark_unfinished(const std::string& path);
void mark_finished(const std::string& path);

/// Removes all that is in `path`, what marks it as a device's last.
/// @throws std::filesystem::filesystem_error
void remove_content(const std::string& path);

/// Shows other programs that the device in `folder`, an open folder, runs in this process and can be entered,
/// until the end of the result, of this process, or until it opens and closes the folder's marker for another
/// reason.
/// @throws Failure
[[nodiscard]] base::FileDescriptor show_running(int folder);

/// The process that shows itself as running the device in `path`; nothing when there is none. The number is
/// good as long as a second call gives the same. @throws Failure
[[nodiscard]] std::optional<pid_t> running_process(const std::string& path);

}  // namespace device
