#pragma once

#include <string_view>

#include "device/pps/publisher.h"
#include "device/pps/store.h"
#include "device/pps/tree.h"

namespace pps {

/// Makes, removes and describes objects and directories, in the tree and in the store. Names come without
/// open options.
///
/// Errors are std::system_error with the number that the client gets, or what the store reports; nothing has
/// changed then.
class Catalog {
 public:
  Catalog(Tree& tree, const Store& store, Publisher& publisher)
      : tree_(tree), store_(store), publisher_(publisher) {}

  /// Makes an object without attributes. The store learns of it when it is flushed or closed.
  /// @throws EEXIST, EINVAL, ENAMETOOLONG, ENOENT (the directory was removed).
  Node& make_object(Node& directory, std::string_view name, const Metadata& metadata);

  /// Errors as for make_object(); a directory cannot be called ".all".
  Node& make_directory(Node& parent, std::string_view name, const Metadata& metadata);

  /// Takes an object's name away. Who waits for its news gets the end of the file, who has it open may go on.
  /// @throws ENOENT; EISDIR; EPERM for a view.
  void remove_object(Node& directory, std::string_view name);

  /// @throws ENOENT; ENOTDIR; ENOTEMPTY.
  void remove_directory(Node& parent, std::string_view name);

  /// Gives mode, owner and times; Metadata::changed becomes now.
  /// @throws EPERM for a view, which has its directory's.
  void change_metadata(Node& node, const Metadata& metadata);

  /// Saves every object that has changed since it was last saved, and goes on past those that the store
  /// refuses.
  /// @return how many were refused.
  [[nodiscard]] int save_all();

 private:
  Node& require(Node& directory, std::string_view name);
  void require_free(Node& directory, std::string_view name);
  void take_away(Node& node);
  int save_below(Node& directory);

  Tree& tree_;
  const Store& store_;
  Publisher& publisher_;
};

}  // namespace pps
