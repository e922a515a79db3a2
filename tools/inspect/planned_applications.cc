#include "inspect/planned_applications.h"

#include "app/layout.h"
#include "app/ownership.h"

namespace harbix::inspect {

void PlannedApplications::uninstall(const updater::RegisteredApplication& one) {
  gone_.insert(one.id);
  if (is_application_folder(one.id)) tree_.remove(fs::Path(one.id));
}

void PlannedApplications::register_one(const ApplicationPackage& package) {
  made_[binary_folder(package.app_directory()).text()] = package.extras();
}

ApplicationsThere::Standing PlannedApplications::standing(const fs::Path& target) const {
  switch (tree_.at(target)) {
    case PlannedTree::Kind::NOTHING:
      return Standing::NOTHING;
    case PlannedTree::Kind::FOLDER:
      return Standing::FOLDER;
    default:
      return Standing::OTHER;
  }
}

updater::Attributes PlannedApplications::query(const fs::Path& target) {
  const auto made = made_.find(target.text());
  if (made == made_.end()) return ApplicationsThere::query(target);
  // The group is the installer's choice, among those of applications.
  return {{"actual_extras", made->second},
          {"actual_dname", target.basename().text()},
          {"actual_gid", std::to_string(FIRST_APPLICATION_GROUP)}};
}

bool PlannedApplications::is_registered(const std::string& id) const {
  return !gone_.contains(id) && ApplicationsThere::is_registered(id);
}

}  // namespace harbix::inspect
