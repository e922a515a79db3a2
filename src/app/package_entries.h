#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "archive/file_record.h"
#include "archive/reader.h"

namespace harbix {

/// The path that the record of an entry would have: `base` and what the entry's name has behind
/// "/app/PACKAGE/KIND", the package's. Nothing for an entry outside of the package, and for one without a
/// name.
[[nodiscard]] std::optional<fs::Path> record_path(const EntryView& entry, const fs::Path& package,
                                                  const fs::Path& base);

/// Is told of what does not pair. This one reports it: on standard error, and in the log.
class PairingReport {
 public:
  PairingReport() = default;
  virtual ~PairingReport() = default;
  PairingReport(const PairingReport&) = delete;
  PairingReport& operator=(const PairingReport&) = delete;
  PairingReport(PairingReport&&) = delete;
  PairingReport& operator=(PairingReport&&) = delete;

  /// An entry without a record is skipped. One inside of the package should have one.
  virtual void skip(const EntryView& entry, bool is_inside);
  /// The archive ends, or is damaged, before every record had its entry.
  virtual void end_early();
  /// The package has ended without an entry for the record of `path`.
  virtual void miss(const fs::Path& path);
};

/// Pairs the entries that follow a package's metadata entry with the package's records, by name: an entry
/// belongs to the record of the same path, in whatever order the two stand, and to no other record.
class PackageEntries {
 public:
  /// Entries are named `name` joined with the path of their record relative to `base`. What does not pair is
  /// told to `report`, which outlives this object; without one it is reported.
  PackageEntries(ArchiveReader& reader, std::span<const FileRecord> records, fs::Path name, fs::Path base,
                 PairingReport* report = nullptr);

  struct Match {
    EntryView entry;
    std::size_t position;  ///< of the entry's record
  };

  /// The next entry that a record names, and its record; nothing at the package's end, where the reader holds
  /// back what comes next. Entries without a record are skipped and reported on the way, and records without
  /// an entry at the end.
  /// @throws std::runtime_error when the archive is damaged within an entry that is skipped.
  [[nodiscard]] std::optional<Match> next();

  /// Whether another entry can be read, or the package ends here in good order. Damage is reported, once.
  [[nodiscard]] bool is_readable();

  /// Whether every record of an item that existed has been met.
  [[nodiscard]] bool has_every_item() const;
  /// Whether also every entry inside the package so far had a record.
  [[nodiscard]] bool is_complete() const { return !has_stranger_ && has_every_item(); }

  /// Whether a record's path leads through the path of another one.
  [[nodiscard]] bool leads_to_others(const fs::Path& path);

 private:
  bool advance();
  void end();
  void skip(const EntryView& entry, bool is_inside);
  [[nodiscard]] PairingReport& report() noexcept { return report_ == nullptr ? own_report_ : *report_; }
  [[nodiscard]] std::optional<std::size_t> take_record_of(const fs::Path& path);
  [[nodiscard]] std::optional<std::size_t> find_record_of(const fs::Path& path);
  const std::vector<std::size_t>& by_path();

  ArchiveReader& reader_;
  std::span<const FileRecord> records_;
  fs::Path name_;
  fs::Path base_;
  PairingReport own_report_;
  PairingReport* report_;             ///< the caller's, if there is one
  std::vector<bool> is_met_;          ///< of each record
  std::size_t expected_ = 0;          ///< the record behind the one that was met last
  std::vector<std::size_t> by_path_;  ///< positions, sorted; made when it is first needed
  bool has_stranger_ = false;
  bool is_over_ = false;
};

}  // namespace harbix
