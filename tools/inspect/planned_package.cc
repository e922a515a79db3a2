#include "inspect/planned_package.h"

#include <utility>

#include "app/package_extraction.h"
#include "fs/walk.h"

namespace harbix::inspect {
namespace {

std::uint64_t count_items(const ApplicationPackage& package) {
  std::uint64_t count = 0;
  for (const FileRecord& record : package.records()) {
    if (!record.status || record.status->mode != 0) ++count;
  }
  return count;
}

}  // namespace

void refuse(const ApplicationPackage& package, PackagePlan& plan, Fate fate, std::string reason) {
  plan.fate = fate;
  plan.reason = std::move(reason);
  plan.restored = 0;
  plan.left_out = count_items(package);
}

std::optional<std::string> put(PlannedTree& tree, const EntryView& entry, const FileRecord& record,
                               const fs::EffectiveIds& ids) {
  const PlannedTree::Kind kind = planned_kind(entry);
  std::optional<std::string> obstacle = tree.obstacle(record.path, kind, ids);
  if (!obstacle) tree.make(record.path, kind, destination_of(entry, record).record().st_mode, ids);
  return obstacle;
}

Removal count_below(fs::Folder& folder, const fs::Path& relative) {
  Removal removal{.keyword = Keyword::APP, .path = folder.path() / relative};
  if (!folder.holds(relative)) return removal;
  fs::Walk walk(folder, relative, relative);
  while (const fs::WalkItem* item = walk.next()) {
    if (item->failure || item->file.is_directory()) continue;
    ++removal.files;
    removal.bytes += static_cast<std::uint64_t>(item->file.record().st_size);
  }
  return removal;
}

}  // namespace harbix::inspect
