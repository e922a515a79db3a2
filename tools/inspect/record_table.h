#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace harbix::inspect {

/// The 64-bit hash of a path, made a byte at a time, so that the hashes of all folders above come on the way.
class PathHash {
 public:
  void add(char byte) noexcept {
    value_ ^= static_cast<unsigned char>(byte);
    value_ *= 0x100000001b3U;
  }
  void add(std::string_view bytes) noexcept {
    for (const char byte : bytes) add(byte);
  }
  [[nodiscard]] std::uint64_t value() const noexcept { return value_; }

  [[nodiscard]] static std::uint64_t of(std::string_view path) noexcept {
    PathHash hash;
    hash.add(path);
    return hash.value();
  }

 private:
  std::uint64_t value_ = 0xcbf29ce484222325U;
};

/// The records of one package's manifest, to be held against its entries: 16 bytes for each, whatever its
/// name. The names of the first are kept as well, to say what is missing.
class RecordTable {
 public:
  /// The type bits of a mode, moved down.
  [[nodiscard]] static constexpr std::uint32_t type_of(mode_t mode) noexcept {
    constexpr unsigned BELOW_TYPE = 12;
    return (mode & S_IFMT) >> BELOW_TYPE & 0xfU;
  }

  /// What is known of a record.
  struct Record {
    std::uint64_t hash = 0;    ///< of the path
    std::uint32_t number = 0;  ///< its place in the manifest, from 0
    std::uint32_t size_sum : 24 = 0;
    std::uint32_t had_item : 1 = 0;  ///< an item existed when the record was made
    std::uint32_t is_met : 1 = 0;    ///< an entry has it
    std::uint32_t is_leaf : 1 = 0;   ///< the entry is no folder
    std::uint32_t type : 4 = 0;      ///< of the item, as the record says: the type bits of a mode, or 0

    [[nodiscard]] bool is_link() const noexcept { return type == type_of(S_IFLNK); }
  };
  static_assert(sizeof(Record) == 16);

  /// `mode` is 0 where the record does not say.
  void add(std::string_view path, std::uint64_t size, bool had_item, mode_t mode);
  /// A record of this path that has no entry yet, or else one that has; nullptr when there is none.
  [[nodiscard]] Record* find(std::string_view path) { return find(PathHash::of(path)); }

  /// Notes the entry of a record.
  void meet(Record& record, bool is_folder);

  /// Whether a path leads through what is no folder: a record of a link, or the entry of a file or a link.
  [[nodiscard]] bool is_behind_leaf(std::string_view path);

  /// Whether a record has the size; one in sixteen million others passes for it.
  [[nodiscard]] static bool has_size(const Record& record, std::uint64_t size) noexcept {
    return record.size_sum == sum_of(size);
  }

  /// Calls `take` for each record without an entry, in the order of the manifest, with its path; that is ""
  /// where it was not kept.
  template <typename Take>
  void for_unmet(const Take& take) {
    restore_order();
    std::size_t at = 0;
    for (const Record& record : records_) {
      const bool has_name = record.number < named_;
      const std::size_t size = has_name ? names_.find('\0', at) - at : 0;
      if (record.is_met == 0) take(record, std::string_view(names_).substr(has_name ? at : 0, size));
      if (has_name) at += size + 1;
    }
  }

  [[nodiscard]] std::size_t size() const noexcept { return records_.size(); }

 private:
  static std::uint32_t sum_of(std::uint64_t size) noexcept;
  [[nodiscard]] Record* find(std::uint64_t hash);
  [[nodiscard]] Record* search(std::uint64_t hash);
  [[nodiscard]] bool is_leaf(std::uint64_t hash);
  void restore_order();

  std::deque<Record> records_;
  std::size_t expected_ = 0;  ///< the record behind the one that was found last
  bool is_sorted_ = false;    ///< by hash: entries no longer come in the order of the records
  std::vector<std::uint64_t> folders_ = std::vector<std::uint64_t>(
      1024);                     ///< hashes of some that were met, so that they need not be searched for
  std::string names_;            ///< of the first records, each with a null byte behind it
  std::size_t named_ = 0;        ///< how many
  std::string last_folder_;      ///< the one that is_behind_leaf() was asked for last
  bool is_last_behind_ = false;  ///< and what it answered
};

}  // namespace harbix::inspect
