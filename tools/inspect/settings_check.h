#pragma once

#include "inspect/media_check.h"

namespace harbix::inspect {

/// The package of settings. Which of them a device takes, its own lists decide: not looked at here.
class SettingsCheck : public PlainRecordCheck {
 public:
  using PlainRecordCheck::PlainRecordCheck;

  void read_manifest(const Item& item, ArchiveReader& reader, const ManifestListener& listener) override;
  void meet(const Item& item) override;
  void end() override { end_items(); }

 private:
  [[nodiscard]] static std::optional<Flaw> refusal_of(const EntryView& entry, const fs::Path& target);
};

}  // namespace harbix::inspect
