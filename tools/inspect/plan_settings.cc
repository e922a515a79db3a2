#include "inspect/plan_settings.h"

#include <exception>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>

#include "archive/metadata_entry.h"
#include "base/places.h"
#include "fs/containment.h"
#include "fs/identity.h"
#include "inspect/archive_pass.h"
#include "inspect/planned_objects.h"
#include "inspect/planned_tree.h"
#include "settings/path_list.h"
#include "settings/verification.h"

namespace harbix::inspect {
namespace {

/// Goes through the entries as the restore does, and asks the same rules.
class SettingsPlan {
 public:
  SettingsPlan(ArchiveReader& reader, PlanReport& report)
      : reader_(reader), report_(report), allowed_(allowed_settings(completeness_)) {
    if (!completeness_.is_complete())
      report_.warn(Keyword::SETTINGS, "not all folders of settings can be listed on this device");
  }

  void run() {
    while (reader_.error_number() == 0) {
      RecordNames names;
      const std::optional<Package> package =
          find_manifest(reader_, METADATA_NAME, OtherEntries::REFUSE, &names);
      if (!package) break;
      if (reader_.error_number() == 0) plan_package(*package, names);
    }
    if (reader_.error_number() != 0)
      throw std::runtime_error("Archive not ARCHIVE_OK " + reader_.error_text());
  }

 private:
  void plan_package(const Package& package, RecordNames& names) {
    PackagePlan plan{.package = package_of(fs::Path(package.entry_name))};
    try {
      plan_entries(plan, names);
    } catch (const std::exception&) {
      report_.end_package(plan);
      throw;
    }
    if (names.has_changed_names()) plan.reason = "holds items under names that it does not list";
    if (plan.restored == 0 && plan.left_out > 0) plan.fate = Fate::SKIPPED;
    report_.end_package(plan);
  }

  void plan_entries(PackagePlan& plan, RecordNames& names) {
    while (const std::optional<EntryView> entry = reader_.next_header()) {
      const std::optional<fs::Path> name = entry->name();
      if (!name) {
        report_.warn(Keyword::SETTINGS, "Malformed archive: an entry has no name");
        reader_.skip(*entry);
      } else if (entry->begins_package()) {
        reader_.hold_back();
        return;
      } else {
        take(*entry, *name, plan, names);
      }
    }
  }

  void take(const EntryView& entry, const fs::Path& name, PackagePlan& plan, RecordNames& names) {
    const fs::Path prefix(places::SETTINGS_PREFIX);
    if (name.is_inside(prefix)) names.meet(fs::Path(places::ROOT) / name.relative_to(prefix));
    fs::Path target;
    std::optional<std::string> refusal;
    try {
      target = fs::Path(places::ROOT) / fs::name_below(name, prefix);
      refusal = put(entry, target);
      pass_over(reader_, entry, target, refusal.has_value());
    } catch (const fs::IdentityError&) {
      throw;
    } catch (const std::runtime_error& error) {
      refusal = error.what();
      reader_.clear_error();
    }
    ++(refusal ? plan.left_out : plan.restored);
    if (refusal) report_.leave_out(plan.package, name, target, *refusal);
  }

  /// @return why it is left out.
  std::optional<std::string> put(const EntryView& entry, const fs::Path& target) {
    const auto in_the_way = [this](const fs::Path& path) {
      const std::optional<PlannedTree::Kind> made = tree_.made_at(path);
      return made ? *made != PlannedTree::Kind::FILE : exists_as_folder_or_link(path);
    };
    if (const std::optional<Refusal> refusal = refusal_of(root_, allowed_, entry, target, in_the_way))
      return std::string(text_of(*refusal));
    const struct ::stat record = entry.destination(target).record();
    const fs::EffectiveIds ids{record.st_uid, GROUP};
    if (owner_ != ids.user) tree_.settle();
    owner_ = ids.user;
    if (is_pps_path(target)) return obstacle_of_object(entry, target, ids);
    const PlannedTree::Kind kind = planned_kind(entry);
    std::optional<std::string> obstacle = tree_.obstacle(target, kind, ids);
    if (!obstacle) tree_.make(target, kind, record.st_mode, ids);
    return obstacle;
  }

  static constexpr gid_t GROUP = 0;

  ArchiveReader& reader_;
  PlanReport& report_;
  Completeness completeness_;
  AllowedSettings allowed_;
  fs::Folder root_{places::ROOT};
  PlannedTree tree_{places::ROOT};
  std::optional<uid_t> owner_;  ///< of the last entry that comes back
};

}  // namespace

void plan_settings(ArchiveReader& reader, PlanReport& report) {
  try {
    SettingsPlan(reader, report).run();
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    report.stop(Keyword::SETTINGS, error.what());
  }
}

}  // namespace harbix::inspect
