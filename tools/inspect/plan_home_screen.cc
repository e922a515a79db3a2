#include "inspect/plan_home_screen.h"

#include "app/home_screen_rules.h"
#include "app/layout.h"
#include "fs/exception.h"
#include "fs/walk.h"
#include "inspect/planned_extraction.h"
#include "inspect/planned_objects.h"
#include "inspect/planned_package.h"

namespace harbix::inspect {
namespace {

void add(Removal& removal, fs::Folder& folder, const fs::File& item) {
  if (!item.is_directory()) {
    ++removal.files;
    removal.bytes += static_cast<std::uint64_t>(item.record().st_size);
    return;
  }
  fs::Folder own(folder.path());
  const Removal inside = count_below(own, item.path());
  removal.files += inside.files;
  removal.bytes += inside.bytes;
}

}  // namespace

void HomeScreenPlan::plan(const ApplicationPackage& package, PackagePlan& plan) {
  switch (part_of(package)) {
    case HomeScreenPart::NOTHING:  // but for entries that no record names
    case HomeScreenPart::OBJECTS:
      plan_objects(package, plan);
      break;
    case HomeScreenPart::NAVIGATOR_DATA:
      plan_navigator_data(package, plan);
      break;
    case HomeScreenPart::SYSTEM_TRAY_DATA:
      plan_system_tray_data(package, plan);
      break;
    case HomeScreenPart::UNKNOWN:
      refuse(package, plan, Fate::SKIPPED, "no part of the home screen");
      break;
  }
}

void HomeScreenPlan::plan_objects(const ApplicationPackage& package, PackagePlan& plan) {
  PlannedExtraction extraction(reader_, package, fs::Path(), plan, report_);
  extraction.run([&](const EntryView& entry, const FileRecord& record) -> std::optional<std::string> {
    if (const std::optional<Refusal> refusal = refusal_of_object(root_, entry, record.path))
      return std::string(text_of(*refusal));
    return obstacle_of_object(entry, record.path, {fs::SUPERUSER, NO_GROUP});
  });
}

void HomeScreenPlan::plan_navigator_data(const ApplicationPackage& package, PackagePlan& plan) {
  PlannedTree& tree = component_tree();
  PlannedExtraction extraction(reader_, package, data_folder(places::NAVIGATOR), plan, report_);
  if (!extraction.entries().is_readable()) {
    refuse(package, plan, Fate::REFUSED, "the archive is damaged there");
    return;
  }
  if (!keeps_old_data_) remove_navigator_data(tree);
  const Stands stands = [&tree](const fs::Path& path) { return tree.at(path) != PlannedTree::Kind::NOTHING; };
  extraction.run([&](const EntryView& entry, const FileRecord& record) {
    const std::optional<Refusal> refusal = refusal_of_navigator_data(root_, entry, record.path, stands);
    return put_in_component(tree, entry, record, refusal);
  });
}

void HomeScreenPlan::plan_system_tray_data(const ApplicationPackage& package, PackagePlan& plan) {
  PlannedTree& tree = component_tree();
  PlannedExtraction extraction(reader_, package, data_folder(places::SYSTEM_TRAY), plan, report_);
  extraction.run([&](const EntryView& entry, const FileRecord& record) {
    return put_in_component(tree, entry, record, refusal_of_system_tray_data(root_, entry, record.path));
  });
}

std::optional<std::string> HomeScreenPlan::put_in_component(PlannedTree& tree, const EntryView& entry,
                                                            const FileRecord& record,
                                                            std::optional<Refusal> refusal) {
  // A folder that is there is as good as one that comes back.
  const bool is_there = refusal == Refusal::EXISTS && planned_kind(entry) == PlannedTree::Kind::FOLDER &&
                        tree.at(record.path) == PlannedTree::Kind::FOLDER;
  if (is_there) return std::nullopt;
  if (refusal) return std::string(text_of(*refusal));
  return put(tree, entry, record, {owner_, NO_GROUP});
}

void HomeScreenPlan::remove_navigator_data(PlannedTree& tree) {
  fs::Folder all_data(places::APPLICATION_DATA);
  const fs::Path data = fs::Path(places::NAVIGATOR) / places::DATA_FOLDER;
  if (tree.at(data) != PlannedTree::Kind::FOLDER) return;
  Removal removal{.keyword = Keyword::APP, .path = all_data.path() / data};
  fs::Walk walk(all_data, data, data);
  while (const fs::WalkItem* item = walk.next()) {
    walk.stay_out();
    if (item->failure) throw fs::Exception(*item->failure);
    if (!is_replaced_navigator_data(item->file.path())) continue;
    add(removal, all_data, item->file);
    tree.remove(item->file.path());
  }
  report_.remove(removal);
}

PlannedTree& HomeScreenPlan::component_tree() {
  if (!components_) components_.emplace(places::APPLICATION_DATA);
  return *components_;
}

}  // namespace harbix::inspect
