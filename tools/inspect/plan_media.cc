#include "inspect/plan_media.h"

#include <array>
#include <exception>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_set>

#include "archive/metadata_entry.h"
#include "base/places.h"
#include "inspect/archive_pass.h"
#include "inspect/planned_tree.h"
#include "media/restore_rules.h"
#include "media/wipe.h"

namespace harbix::inspect {
namespace {

/// Counts what a wipe would remove, and leaves that out of the tree.
class PlannedWiper : public Wiper {
 public:
  PlannedWiper(PlannedTree& tree, PlanReport& report) : tree_(tree), report_(report) {}

  void begin(const fs::File& top) override {
    end();
    removal_.emplace(Removal{.keyword = Keyword::MEDIA, .path = top.path()});
    ids_ = fs::effective_ids();
    if (top.is_directory()) tree_.clear(top.path());
  }
  void spare(const fs::Path& path) override {
    tree_.keep(path);
    spared_.insert(path.dirname().text());
  }
  void remove_file(const fs::Place& /*place*/, const fs::File& item) override {
    if (!disk_.may_remove(item.path(), ids_)) {
      spare(item.path());
      return;
    }
    ++removal_->files;
    removal_->bytes += static_cast<std::uint64_t>(item.record().st_size);
  }
  [[nodiscard]] bool remove_folder(fs::Folder& /*share*/, const fs::Path& path) override {
    if (!spared_.contains(path.text()) && disk_.may_remove(path, ids_)) return true;
    spared_.insert(path.dirname().text());
    tree_.keep_alone(path);
    return false;
  }

  /// After the last item.
  void end() {
    if (removal_ && removal_->files > 0) report_.remove(*removal_);
    removal_.reset();
  }

 private:
  PlannedTree& tree_;
  PlannedTree disk_{places::SHARED};  ///< as it is
  PlanReport& report_;
  fs::EffectiveIds ids_{};
  std::optional<Removal> removal_;
  std::unordered_set<std::string> spared_;  ///< folders that keep something
};

/// Goes through the entries as the restore does, and asks the same rules.
class MediaPlan {
 public:
  MediaPlan(ArchiveReader& reader, PlanReport& report) : reader_(reader), report_(report) {}

  void wipe() {
    PlannedWiper wiper(tree(MediaPlace::SHARED), report_);
    wipe_shared_media(reader_, wiper);
    wiper.end();
  }

  void run() {
    while (const std::optional<EntryView> entry = reader_.next_header()) {
      if (const std::optional<fs::Path> name = entry->name()) {
        take(*entry, *name);
      } else {
        report_.warn(Keyword::MEDIA, "Malformed archive: an entry has no name");
        reader_.skip(*entry);
      }
    }
    end_package();
  }

  /// The package that is at hand when the restore ends.
  void end_package() {
    if (!plan_) return;
    if (names_.has_changed_names()) plan_->reason = "holds items under names that it does not list";
    if (plan_->restored == 0 && plan_->left_out > 0) plan_->fate = Fate::SKIPPED;
    report_.end_package(*plan_);
    plan_.reset();
    names_ = {};
  }

 private:
  void take(const EntryView& entry, const fs::Path& name) {
    if (entry.begins_package()) {
      end_package();
      plan_.emplace(PackagePlan{.package = package_of(name)});
      names_ = read_record_names(reader_);
      return;
    }
    if (!plan_) plan_.emplace(PackagePlan{.package = {Keyword::MEDIA, Kind::MEDIA, fs::Path(), ""}});
    const MediaPlace place = place_of(name);
    enter(place);
    const MediaDestination destination = destination_of(name);
    names_.meet(destination.below);
    const fs::Path path = folder_of(place) / below(destination.target);
    const std::optional<std::string> refusal = put(entry, place, path);
    ++(refusal ? plan_->left_out : plan_->restored);
    if (refusal) report_.leave_out(plan_->package, name, path, *refusal);
    pass_over(reader_, entry, destination.target, refusal.has_value());
  }

  static fs::Path below(fs::Path target) { return target.strip_leading_dots(); }

  /// @return why it is left out.
  std::optional<std::string> put(const EntryView& entry, MediaPlace place, const fs::Path& path) {
    PlannedTree& tree = this->tree(place);
    const PlannedTree::Kind kind = planned_kind(entry);
    PlannedTree::Kind there = PlannedTree::Kind::NOTHING;
    const std::optional<Refusal> refusal = refusal_of(entry, place, [&] {
      there = tree.at(path);
      return there != PlannedTree::Kind::NOTHING;
    });
    // A folder that is there is as good as one that comes back.
    const bool is_there = refusal == Refusal::EXISTS && kind == PlannedTree::Kind::FOLDER && there == kind;
    if (is_there) return std::nullopt;
    if (refusal) return std::string(text_of(*refusal));
    const fs::EffectiveIds ids{role_->user, role_->group};
    std::optional<std::string> obstacle = tree.obstacle(path, kind, ids);
    if (!obstacle) tree.make(path, kind, entry.destination(path).record().st_mode & ~MASK, ids);
    return obstacle;
  }

  void enter(MediaPlace place) {
    if (place_ == place) return;
    if (place_) tree(*place_).settle();
    role_ = role_in(place);
    require_place(folder_of(place), *role_);
    place_ = place;
  }

  PlannedTree& tree(MediaPlace place) {
    std::optional<PlannedTree>& tree = trees_.at(static_cast<std::size_t>(place));
    if (!tree) tree.emplace(folder_of(place));
    return *tree;
  }

  static constexpr mode_t MASK = 007;

  ArchiveReader& reader_;
  PlanReport& report_;
  std::array<std::optional<PlannedTree>, 2> trees_;
  std::optional<MediaPlace> place_;  ///< of the last entry
  std::optional<Role> role_;         ///< there
  std::optional<PackagePlan> plan_;  ///< of the package at hand
  RecordNames names_;
};

}  // namespace

void plan_media(ArchiveReader& reader, PlanReport& report) {
  MediaPlan plan(reader, report);
  try {
    const bool is_whole = look_before_wipe(reader);
    if (is_whole) plan.wipe();
    plan.run();
    if (!is_whole) throw std::runtime_error(damage_text(*reader.survey()));
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    plan.end_package();
    report.stop(Keyword::MEDIA, error.what());
  }
}

}  // namespace harbix::inspect
