#pragma once

#include <string>
#include <string_view>

#include "base/file_descriptor.h"
#include "device/pps/node.h"

namespace pps {

/// The folder that keeps objects from one start to the next: one file an object and one folder a directory,
/// at the same relative path, with mode, owner and times on the file itself. A file is replaced in one step,
/// so that the old or the new text is there whenever the program is killed. Nothing is forced to the disk: a
/// power cut may lose what is new.
///
/// Every function throws std::system_error when the system refuses, and changes nothing when there is no
/// folder.
class Store {
 public:
  /// Keeps nothing.
  Store() = default;

  /// Keeps everything in `folder`, which is made with mode 0755 when it is missing; its parent must be there.
  /// Only the directory `passing`, a path such as "services/radio", and what is below it are not kept, unless
  /// it is empty. What the folder holds there all the same is loaded, and goes when it is removed.
  explicit Store(const std::string& folder, std::string passing = {});

  [[nodiscard]] bool keeps() const { return folder_.is_open(); }

  /// The folder, for the loader that reads it at the start; -1 when there is none.
  [[nodiscard]] int descriptor() const { return folder_.get(); }

  /// Writes an object's file: stored_text() and its metadata. Clears its "unsaved".
  void save(Node& object) const;

  /// Makes the folder of a directory that is about to be added to `parent`.
  /// @return what to put into its Node::stored_as.
  [[nodiscard]] std::string make_directory(const Node& parent, std::string_view name,
                                           const Metadata& metadata) const;

  /// Puts a directory's mode, owner and times on its folder.
  void save_directory(const Node& directory) const;

  /// Removes every file or folder that stands for the node. A file that is not there (never saved) is no
  /// error.
  void remove(const Node& node) const;

  /// What a save writes to, in the store's own folder, before it takes the object's name. A name that begins
  /// with '@' belongs to no object, so that one left behind by a kill never becomes visible.
  static constexpr const char* UNFINISHED = "@unfinished";

 private:
  void write_unfinished(const Node& object) const;
  /// Whether something called `name` in `directory` is kept.
  [[nodiscard]] bool keeps(const Node& directory, std::string_view name) const;

  base::FileDescriptor folder_;
  std::string passing_;
};

/// The path, relative to the store, that something called `name` in `directory` is kept at.
[[nodiscard]] std::string store_path(const Node& directory, std::string_view name);

}  // namespace pps
