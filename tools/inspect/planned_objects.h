#pragma once

#include <optional>
#include <string>

#include "archive/entry_view.h"
#include "fs/identity.h"
#include "fs/path.h"

namespace harbix::inspect {

/// Why the live PPS object at `path` would not take an entry from these ids; nothing where it would.
/// @throws fs::IdentityError
[[nodiscard]] std::optional<std::string> obstacle_of_object(const EntryView& entry, const fs::Path& path,
                                                            const fs::EffectiveIds& ids);

}  // namespace harbix::inspect
