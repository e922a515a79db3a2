#pragma once

#include <vector>

#include "fs/path.h"

namespace harbix {

/// The two lists by which components of the device extend and trim the settings.
enum class ScriptList { WHITELIST, BLACKLIST };

/// The absolute paths that the settings scripts name for one list: what they print when they are run with its
/// tag, "whitelist" or "blacklist", in lines "TAG PATH". Kept for the rest of the run once it is not empty;
/// an empty list is asked for anew each time, so callers fetch a list once for each piece of their work. Bad
/// lines, and lines of another kind, are shown on standard error. A missing folder means no scripts.
/// @throws fs::Exception when a script cannot be started, or the scripts cannot be listed: what they would
/// forbid is not known then.
[[nodiscard]] const std::vector<fs::Path>& settings_script_list(ScriptList list);

/// Whether the text of any of `prefixes` begins `path`: characters count, not components.
[[nodiscard]] bool begins_with_any(const fs::Path& path, const std::vector<fs::Path>& prefixes);

/// Whether a path is not to be backed up nor restored: begins_with_any() of the blacklist.
[[nodiscard]] bool is_blacklisted(const fs::Path& path, const std::vector<fs::Path>& blacklist);

}  // namespace harbix
