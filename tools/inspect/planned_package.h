#pragma once

#include <optional>
#include <string>

#include "app/application_package.h"
#include "archive/entry_view.h"
#include "fs/folder.h"
#include "fs/identity.h"
#include "inspect/plan_report.h"
#include "inspect/planned_tree.h"

namespace harbix::inspect {

/// Of the identity that a restore writes with where the group does not count.
inline constexpr gid_t NO_GROUP = 0;

/// The package does not come back, and so does none of its items.
void refuse(const ApplicationPackage& package, PackagePlan& plan, Fate fate, std::string reason);

/// Puts an item into the tree where its record says, from these ids.
/// @return what is in its way; nothing when it is there.
[[nodiscard]] std::optional<std::string> put(PlannedTree& tree, const EntryView& entry,
                                             const FileRecord& record, const fs::EffectiveIds& ids);

/// Counts what would be removed with `relative`: itself, or of a folder what is below it.
[[nodiscard]] Removal count_below(fs::Folder& folder, const fs::Path& relative);

}  // namespace harbix::inspect
