#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "app/application_judgement.h"
#include "app/application_package.h"
#include "base/places.h"
#include "inspect/planned_tree.h"
#include "updater/registered_applications.h"

namespace harbix::inspect {

/// The applications of the device as the restore would have left them so far.
class PlannedApplications : public ApplicationsThere {
 public:
  explicit PlannedApplications(const std::vector<updater::RegisteredApplication>& registered)
      : ApplicationsThere(registered) {}

  void uninstall(const updater::RegisteredApplication& one);
  /// The application is registered by its binaries.
  void register_one(const ApplicationPackage& package);

  [[nodiscard]] PlannedTree& tree() { return tree_; }

  [[nodiscard]] Standing standing(const fs::Path& target) const override;
  [[nodiscard]] updater::Attributes query(const fs::Path& target) override;
  [[nodiscard]] bool is_registered(const std::string& id) const override;

 private:
  mutable PlannedTree tree_{places::APPLICATIONS};
  std::set<std::string> gone_;
  std::map<std::string, std::string> made_;  ///< extras of what was registered, by the folder
};

}  // namespace harbix::inspect
