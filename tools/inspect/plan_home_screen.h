#pragma once

#include <optional>
#include <string>

#include "app/application_package.h"
#include "archive/reader.h"
#include "archive/refusal.h"
#include "base/places.h"
#include "fs/folder.h"
#include "inspect/plan_report.h"
#include "inspect/planned_tree.h"

namespace harbix::inspect {

/// Finds out what a restore would make of the home screen's packages, with the judgements of the restore.
class HomeScreenPlan {
 public:
  /// `owner` is whose data an application's is.
  HomeScreenPlan(ArchiveReader& reader, PlanReport& report, uid_t owner)
      : reader_(reader), report_(report), owner_(owner) {}

  /// Of an archive that is damaged, nothing is removed.
  void keep_old_data() noexcept { keeps_old_data_ = true; }

  /// Goes through the entries of a package of the home screen. @throws std::runtime_error
  void plan(const ApplicationPackage& package, PackagePlan& plan);

 private:
  void plan_objects(const ApplicationPackage& package, PackagePlan& plan);
  void plan_navigator_data(const ApplicationPackage& package, PackagePlan& plan);
  void plan_system_tray_data(const ApplicationPackage& package, PackagePlan& plan);
  [[nodiscard]] std::optional<std::string> put_in_component(PlannedTree& tree, const EntryView& entry,
                                                            const FileRecord& record,
                                                            std::optional<Refusal> refusal);
  void remove_navigator_data(PlannedTree& tree);
  [[nodiscard]] PlannedTree& component_tree();

  ArchiveReader& reader_;
  PlanReport& report_;
  uid_t owner_;
  fs::Folder root_{places::ROOT};
  std::optional<PlannedTree> components_;  ///< their data, once it is needed
  bool keeps_old_data_ = false;
};

}  // namespace harbix::inspect
