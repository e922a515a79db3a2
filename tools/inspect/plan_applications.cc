#include "inspect/plan_applications.h"

#include <new>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "app/application_judgement.h"
#include "app/application_package.h"
#include "app/layout.h"
#include "app/package_extraction.h"
#include "app/staged_data.h"
#include "app/uninstalling.h"
#include "archive/space_report.h"
#include "base/domains.h"
#include "base/places.h"
#include "fs/accounts.h"
#include "fs/exception.h"
#include "fs/space.h"
#include "fs/walk.h"
#include "inspect/plan_home_screen.h"
#include "inspect/planned_applications.h"
#include "inspect/planned_extraction.h"
#include "inspect/planned_package.h"
#include "inspect/planned_tree.h"
#include "updater/registered_applications.h"

namespace harbix::inspect {
namespace {

using updater::RegisteredApplication;
using Standing = ApplicationsThere::Standing;

/// Goes through the packages as the restore does, and asks the same judgements.
class ApplicationPlan {
 public:
  ApplicationPlan(ArchiveReader& reader, PlanReport& report,
                  const std::vector<RegisteredApplication>& registered)
      : reader_(reader),
        report_(report),
        there_(registered),
        home_screen_(reader, report, owner_),
        next_(next_package()) {}

  [[nodiscard]] bool has_package() const { return next_ || has_malformed_; }
  [[nodiscard]] bool begins_well() const { return !has_malformed_ && next_ && next_->is_known(); }

  void keep_installed() {
    judgement_.keep_installed();
    home_screen_.keep_old_data();
  }

  void uninstall(const std::vector<RegisteredApplication>& registered) {
    fs::Folder binaries(places::APPLICATIONS);
    fs::Folder data(places::APPLICATION_DATA);
    for (const RegisteredApplication& one : registered) {
      if (!updater::is_from_storefront(one)) continue;
      if (is_application_folder(one.id)) {
        report_.remove(count_below(binaries, fs::Path(one.id)));
        // The installer takes it with the application.
        if (data.holds(fs::Path(one.id))) report_.remove(count_below(data, fs::Path(one.id)));
        freed_ += fs::removable_space(data, fs::Path(one.id));
      }
      there_.uninstall(one);
      old_data_gone_.insert(one.id);
    }
  }

  void run() {
    while (next_) {
      if (!plan_alone(*next_)) return;
      next_.reset();  // one package at a time is in memory
      next_ = next_package();
    }
  }

 private:
  std::optional<ApplicationPackage> next_package() {
    return next_application_package(reader_, [this](const std::string& reason) {
      has_malformed_ = true;
      report_.warn(Keyword::APP, reason);
    });
  }

  /// @return false for a package at which the restore ends.
  bool plan_alone(const ApplicationPackage& package) {
    PackagePlan plan{.package = package_of(fs::Path(package.metadata_name()))};
    try {
      if (package.is_home_screen()) {
        home_screen_.plan(package, plan);
      } else if (package.has_kind(places::BINARY_KIND)) {
        plan_binaries(package, plan);
      } else if (package.has_kind(places::DATA_KIND)) {
        plan_data(package, plan);
      } else {
        report_.stop(Keyword::APP, "Package not recognized '" + package.metadata_name().text() + "'");
        return false;
      }
    } catch (const fs::IdentityError&) {
      throw;
    } catch (const std::runtime_error& error) {
      refuse(package, plan, Fate::REFUSED, error.what());
    }
    report_.end_package(plan);
    return true;
  }

  void plan_binaries(const ApplicationPackage& package, PackagePlan& plan) {
    const BinariesVerdict verdict = judgement_.judge_binaries(package);
    if (!verdict.are_restored()) {
      refuse(package, plan, Fate::REFUSED, verdict.reason);
      return;
    }
    const fs::Path target = binary_folder(package.app_directory());
    PlannedExtraction extraction(reader_, package, target, plan, report_);
    put_on_disk(extraction, Restorable::EVERYTHING, there_.tree(), {owner_, NO_GROUP});
    if (!extraction.is_on_disk()) {
      judgement_.refuse(package);
      there_.tree().remove(target);
      refuse(package, plan, Fate::REFUSED, incomplete_binaries_text(package));
    } else if (there_.standing(target) != Standing::FOLDER) {
      refuse(package, plan, Fate::REFUSED, failed_exchange_text(target, "there is no folder"));
    } else {
      there_.register_one(package);
      if (judgement_.has_early_data(target)) plan.reason = early_data_text(target);
    }
  }

  /// Items of an application for these ids.
  static void put_on_disk(PlannedExtraction& extraction, Restorable restorable, PlannedTree& tree,
                          const fs::EffectiveIds& ids) {
    extraction.run([&](const EntryView& entry, const FileRecord& record) -> std::optional<std::string> {
      if (const std::optional<Refusal> refusal =
              refusal_of(entry, record, restorable, extraction.entries())) {
        if (refusal == Refusal::OTHER_KIND) extraction.note_unpaired();
        return std::string(text_of(*refusal));
      }
      std::optional<std::string> obstacle = put(tree, entry, record, ids);
      if (obstacle) extraction.note_unwritten();
      return obstacle;
    });
  }

  void plan_data(const ApplicationPackage& package, PackagePlan& plan) {
    const DataVerdict verdict = judgement_.judge_data(package);
    if (!verdict.is_restored()) {
      refuse(package, plan, verdict.is_failure() ? Fate::REFUSED : Fate::SKIPPED, verdict.reason);
      return;
    }
    const fs::Path data(package.data_directory());
    PlannedExtraction extraction(reader_, package, data, plan, report_);
    const fs::EffectiveIds ids{owner_, verdict.group};
    if (!extraction.entries().is_readable()) {
      refuse(package, plan, Fate::REFUSED, "the archive is damaged there");
    } else if (const std::optional<std::string> refusal = refusal_of_data(package, data, ids)) {
      refuse(package, plan, Fate::REFUSED, *refusal);
    } else {
      replace_data(package, data, extraction, plan, ids);
    }
  }

  /// Why no data can be made at all.
  std::optional<std::string> refusal_of_data(const ApplicationPackage& package, const fs::Path& data,
                                             const fs::EffectiveIds& ids) {
    if (std::optional<std::string> refusal = refusal_of_place(data.dirname(), ids.user, ids.group))
      return refusal;
    if (package.records().empty()) return std::nullopt;
    PlannedTree all(places::APPLICATION_DATA);
    if (const std::optional<std::string> reason =
            all.obstacle(fs::Path(std::string(places::RESERVED) + "data"), PlannedTree::Kind::FOLDER, ids))
      return "No folder can be made in '" + data.dirname().text() + "': " + *reason;
    return refusal_for_room(package, data);
  }

  std::optional<std::string> refusal_for_room(const ApplicationPackage& package, const fs::Path& data) {
    fs::Folder all_data(places::APPLICATION_DATA);
    const std::uint64_t needed = space_needed(package.records()).real_bytes;
    const std::uint64_t left = fs::free_space(all_data) + freed_;
    const fs::Path name = all_data.relative(data);
    std::uint64_t room = left;
    const auto has_old = [&] { return has_old_data(all_data, name); };
    const auto with_old = [&] { return room = left + fs::removable_space(all_data, name); };
    if (judge_room(needed, left, has_old, with_old) != DataRoom::NONE) return std::nullopt;
    return no_room_text(data, needed, room);
  }

  bool has_old_data(fs::Folder& all_data, const fs::Path& name) const {
    if (made_data_.contains(name.text())) return true;
    return !old_data_gone_.contains(name.text()) && holds_files(all_data, name);
  }

  void replace_data(const ApplicationPackage& package, const fs::Path& data, PlannedExtraction& extraction,
                    PackagePlan& plan, const fs::EffectiveIds& ids) {
    fs::Folder all_data(places::APPLICATION_DATA);
    const fs::Path name = all_data.relative(data);
    // It is made where nothing is, and takes the place of the old.
    PlannedTree place(places::APPLICATION_DATA);
    place.remove(name);
    put_on_disk(extraction, Restorable::DATA_FOLDERS, place, {owner_, ids.group});
    if (package.records().empty()) return;
    const bool is_empty = place.at(name) == PlannedTree::Kind::NOTHING;
    const MadeData made{extraction.is_on_disk(), extraction.is_complete(), is_empty};
    if (!takes_place(made, [&] { return has_old_data(all_data, name); })) {
      refuse(package, plan, Fate::REFUSED, incomplete_data_text(data));
    } else if (is_empty) {
      old_data_gone_.insert(name.text());
      made_data_.erase(name.text());
    } else {
      made_data_.insert(name.text());
    }
  }

  ArchiveReader& reader_;
  PlanReport& report_;
  uid_t owner_ = fs::user_id(domains::APPLICATIONS_USER);
  PlannedApplications there_;
  ApplicationJudgement judgement_{there_};
  HomeScreenPlan home_screen_;
  std::set<std::string> old_data_gone_;  ///< folders of data that would be gone, or be empty
  std::set<std::string> made_data_;      ///< that would have new data
  std::uint64_t freed_ = 0;              ///< bytes by what would be uninstalled
  bool has_malformed_ = false;
  std::optional<ApplicationPackage> next_;
};

void plan_section(ArchiveReader& reader, PlanReport& report,
                  const std::vector<RegisteredApplication>& registered) {
  ApplicationPlan plan(reader, report, registered);
  const InstalledVerdict verdict =
      judge_installed(reader, plan.has_package(), plan.begins_well(), registered);
  if (verdict.installed == InstalledOnes::UNTOUCHED) {
    report.stop(Keyword::APP, verdict.reason.value_or(""));
    return;
  }
  if (verdict.reason) report.warn(Keyword::APP, *verdict.reason);
  if (verdict.installed == InstalledOnes::UNINSTALLED) plan.uninstall(registered);
  if (verdict.installed == InstalledOnes::KEPT) plan.keep_installed();
  plan.run();
}

}  // namespace

void plan_applications(ArchiveReader& reader, PlanReport& report) {
  std::vector<RegisteredApplication> registered;
  if (!updater::read_registered_applications(registered))
    throw std::runtime_error("Error reading registered apps");
  try {
    plan_section(reader, report, registered);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    report.stop(Keyword::APP, error.what());
  }
}

}  // namespace harbix::inspect
