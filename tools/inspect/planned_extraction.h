#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/application_package.h"
#include "app/package_entries.h"
#include "archive/reader.h"
#include "inspect/plan_report.h"

namespace harbix::inspect {

/// Prints what of a package does not pair.
class PlannedPairing : public PairingReport {
 public:
  PlannedPairing(PackagePlan& plan, PlanReport& report) : plan_(plan), report_(report) {}

  void skip(const EntryView& entry, bool is_inside) override;
  void end_early() override {}
  void miss(const fs::Path& path) override { missed_.push_back(path); }

  /// Records of items that have vanished miss nothing.
  void report_missed(const std::vector<FileRecord>& records);

 private:
  PackagePlan& plan_;
  PlanReport& report_;
  std::vector<fs::Path> missed_;
};

/// What would be put on disk of one application package, item by item.
class PlannedExtraction {
 public:
  using ItemRefusal =
      std::function<std::optional<std::string>(const EntryView& entry, const FileRecord& record)>;

  PlannedExtraction(ArchiveReader& reader, const ApplicationPackage& package, const fs::Path& base,
                    PackagePlan& plan, PlanReport& report)
      : reader_(reader),
        records_(package.records()),
        plan_(plan),
        report_(report),
        pairing_(plan, report),
        entries_(reader, records_, package.name(), base, &pairing_) {}

  [[nodiscard]] PackageEntries& entries() noexcept { return entries_; }
  [[nodiscard]] bool is_on_disk() const noexcept { return is_on_disk_; }
  [[nodiscard]] bool is_complete() const { return is_on_disk_ && is_paired_ && entries_.is_complete(); }

  /// An item that the system would refuse is not on disk.
  void note_unwritten() noexcept { is_on_disk_ = false; }
  void note_unpaired() noexcept { is_paired_ = false; }

  /// Goes through the entries; `place` answers why one is left out, or notes that it is there.
  void run(const ItemRefusal& place);

 private:
  void take(const PackageEntries::Match& match, const ItemRefusal& place);

  ArchiveReader& reader_;
  const std::vector<FileRecord>& records_;
  PackagePlan& plan_;
  PlanReport& report_;
  PlannedPairing pairing_;
  PackageEntries entries_;
  bool is_on_disk_ = true;
  bool is_paired_ = true;
};

}  // namespace harbix::inspect
