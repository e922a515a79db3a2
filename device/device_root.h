#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "device/mounts.h"
#include "device/own_programs.h"

namespace device {

/// The folder of manual pages that belongs to the programs in `folder`; nothing when there is none. To be
/// called before anything is mounted over the host's folders. @throws Failure when it cannot be taken.
[[nodiscard]] std::optional<DetachedMount> own_pages(const std::filesystem::path& folder);

/// Puts into the filled root `root` what a device shares with its host or has anew at each start: the host's
/// programs and libraries read-only, `programs`, `pages` at /opt/harbix/share/man, /dev
/// and /proc. To be called in the device's own mount and process namespaces.
/// @throws Failure quoting the path that could not be mounted or made.
void furnish_root(const std::string& root, const OwnPrograms& programs,
                  const std::optional<DetachedMount>& pages);

}  // namespace device
