#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fs/path.h"

namespace harbix {

/// Takes the text of a manifest of media or of settings apart: a row of "File: SIZE newline PATH newline",
/// and an empty line at its end. What the parser of manifests makes of a path in a line of its own is not
/// exact, and this is: a record ends where the next one begins.
class PlainRecords {
 public:
  /// Takes a whole record, "File: SIZE newline PATH", or what stands in the place of one.
  using Taker = std::function<void(std::string_view record)>;

  /// Takes the next piece of the text, and hands on the records that are whole by now.
  void add(std::string_view piece, const Taker& take);
  /// Ends the text, and hands on the last record.
  void finish(const Taker& take);

  /// The path of a record; nothing for a text that is none.
  [[nodiscard]] static std::optional<std::string_view> path_of(std::string_view record);

 private:
  void drop_endless_record();

  std::string rest_;  ///< what follows the last record that is known to be whole
};

/// The name by which the records have the path of an entry: one that spells the beginning of a record has
/// made another record of its rest.
[[nodiscard]] std::string_view listed_path(std::string_view path);

/// Tells from the records of a manifest and the entries that follow it whether names have changed.
///
/// A tar header that is too short for a name, because that is long or beyond ASCII, is preceded by an
/// extension that has it. No checksum covers an extension: where one of its bytes has changed, an item has
/// another name, and the manifest alone tells.
class ChangedNames {
 public:
  /// Notes the path of a record.
  void list(std::string_view path) noexcept;
  /// Notes an entry, by its listed path, and whether there is a record for it that no other entry has.
  void meet(std::string_view path, bool is_listed) noexcept;

  /// Whether an entry was met that has no record, while there is no entry for a record whose name needs an
  /// extension. An item that vanished during the backup has a record and no entry; that is no change.
  [[nodiscard]] bool has_any() const noexcept { return unlisted_ > 0 && met_long_ < long_; }

 private:
  std::size_t long_ = 0;      ///< records whose names need an extension
  std::size_t met_long_ = 0;  ///< those with an entry
  std::size_t unlisted_ = 0;  ///< entries without a record
};

/// The paths of a package's manifest, of media or of settings, held against the entries that follow it. A
/// path takes 8 bytes of memory.
class RecordNames {
 public:
  /// Takes the next piece of the manifest's text.
  void add(std::string_view piece);

  /// Ends the text: from then on entries are met.
  void finish();

  /// Notes an entry of the package, by its path as a record would have it.
  /// @return whether a record has it. A record stands for one entry: where an entry has taken the name of
  /// another one, the second of them has none.
  bool meet(const fs::Path& path);

  /// How many records there are.
  [[nodiscard]] std::size_t count() const noexcept { return hashes_.size(); }

  /// As ChangedNames::has_any says.
  [[nodiscard]] bool has_changed_names() const noexcept { return changed_.has_any(); }

 private:
  void take(std::string_view record);
  [[nodiscard]] bool take_one(std::string_view path);

  PlainRecords records_;
  std::vector<std::uint64_t> hashes_;  ///< of the paths, with a mark at those that were met
  std::size_t expected_ = 0;           ///< the record behind the one that was met last
  bool is_sorted_ = false;             ///< by hash: entries no longer come in the order of the records
  ChangedNames changed_;
};

/// Reports a package of changed names: "Warning: PACKAGE: holds items under names that it does not list" on
/// standard error, and in the log at level 1.
void report_changed_names(const fs::Path& package);

}  // namespace harbix
