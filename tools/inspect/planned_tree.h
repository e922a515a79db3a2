#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "archive/entry_view.h"
#include "fs/folder.h"
#include "fs/identity.h"

namespace harbix::inspect {

/// What would be below a folder of the device in the course of a restore that is only planned: what is there,
/// without what the restore would have removed by then, and with what it would have made. Looks, as root, and
/// changes nothing. Links are never followed.
///
/// Paths are relative to the folder, or absolute and below it; "." and separators that follow each other do
/// not count.
class PlannedTree {
 public:
  /// @throws fs::Exception when the folder cannot be opened.
  explicit PlannedTree(const fs::Path& root);

  enum class Kind { NOTHING, FILE, FOLDER, LINK };  ///< a file is also whatever is none of the others
  [[nodiscard]] Kind at(const fs::Path& path);
  /// Of what the restore would have made itself.
  [[nodiscard]] std::optional<Kind> made_at(const fs::Path& path);

  /// Why no object of this kind can be put there for these ids, in the words of the system; nothing when it
  /// can. Folders that are missing above it would be made.
  [[nodiscard]] std::optional<std::string> obstacle(const fs::Path& path, Kind kind,
                                                    const fs::EffectiveIds& ids);
  /// Whether these ids may remove what is there, as far as the folder above it decides.
  [[nodiscard]] bool may_remove(const fs::Path& path, const fs::EffectiveIds& ids);

  /// What is there, and all below it, is gone.
  void remove(const fs::Path& path);
  /// All below it is gone, but for what keep() names.
  void clear(const fs::Path& path);
  void keep(const fs::Path& path);
  /// The same, without what is below.
  void keep_alone(const fs::Path& path);

  /// Folders that were made get the modes that they were made with: until then their owner may fill them.
  void settle();

  /// An object was put there, with the folders above it, for these ids. What was there is gone, unless it and
  /// the object are folders.
  void make(const fs::Path& path, Kind kind, mode_t mode, const fs::EffectiveIds& ids);

 private:
  /// What stands at a path.
  struct Node {
    Kind kind = Kind::NOTHING;
    mode_t mode = 0;
    uid_t user = 0;
    gid_t group = 0;
  };
  /// How far what is on disk counts below a path.
  enum class Disk {
    COUNTS,
    CLEARED,  ///< only what is kept
    GONE,
  };
  struct Step {
    Node node;
    Disk disk = Disk::COUNTS;
    std::uint64_t hash = 0;
  };

  using Names = std::vector<std::string>;
  [[nodiscard]] Names names_of(const fs::Path& path) const;
  [[nodiscard]] Step root_step() const;
  /// From a folder to what is called `name` in it; `path` is its own.
  [[nodiscard]] Step next(const Step& folder, const std::string& name, const std::string& path);
  /// The same for the i-th of `names`, a folder on the way: the way of the last path is remembered.
  [[nodiscard]] Step step_on_the_way(const Step& folder, const Names& names, std::size_t i,
                                     const std::string& path);
  [[nodiscard]] Node on_disk(const std::string& path);
  [[nodiscard]] Node made(std::uint64_t hash) const;
  void note_made(const Step& step);
  [[nodiscard]] bool is_empty(const Names& names);
  /// Goes from the root, `parent`, to the last folder on the way that is there.
  /// @return what the system would say to who wants to make something behind it; nothing where he may.
  [[nodiscard]] std::optional<int> walk_to_parent(const Names& names, const fs::EffectiveIds& ids,
                                                  Step& parent);
  [[nodiscard]] bool allows(const Node& node, mode_t wanted, const fs::EffectiveIds& ids) const;

  fs::Folder folder_;
  Node root_;
  std::vector<gid_t> groups_;                                ///< supplementary ones of this process
  std::unordered_map<std::uint64_t, Node> made_;             ///< folders and links, by the hash of the path
  std::vector<std::pair<std::uint64_t, mode_t>> unsettled_;  ///< folders that were made, and their modes
  std::unordered_set<std::uint64_t> made_files_;             ///< hashes of their paths
  std::unordered_set<std::uint64_t> filled_;                 ///< folders in which something was made
  std::unordered_set<std::uint64_t> removed_;
  std::unordered_set<std::uint64_t> cleared_;
  std::unordered_set<std::uint64_t> kept_;           ///< with all that is in it
  std::unordered_set<std::uint64_t> on_the_way_;     ///< to what is kept
  std::vector<std::pair<std::string, Step>> trail_;  ///< the folders on the way to the last path
};

/// What an entry would be there.
[[nodiscard]] PlannedTree::Kind planned_kind(const EntryView& entry);

}  // namespace harbix::inspect
