#pragma once

#include <vector>

#include "fs/exception.h"
#include "fs/file.h"

namespace fs {

/// When a walk goes into a directory that it met.
enum class Descent {
  IMMEDIATE,  ///< at once: its contents follow it directly
  DEFERRED,   ///< after all entries of the directory that holds it; one directory is open at a time
};

/// What a walk calls for the objects that it meets.
class TreeVisitor {
 public:
  /// Called once an object; a directory is met before what is inside it.
  virtual void operator()(const File& item) = 0;

  /// Whether the walk shall go into a directory that it has just met. Links are never followed.
  [[nodiscard]] virtual bool enters(const File& /*directory*/) { return true; }

  /// Called when a directory cannot be opened or an object's status cannot be taken. To return is to go on
  /// without it.
  virtual void unreachable(const Path& path, const Exception& reason) = 0;

  TreeVisitor() = default;
  TreeVisitor(const TreeVisitor&) = default;
  TreeVisitor& operator=(const TreeVisitor&) = default;
  TreeVisitor(TreeVisitor&&) = default;
  TreeVisitor& operator=(TreeVisitor&&) = default;
  virtual ~TreeVisitor() = default;
};

/// Visits everything below `directory`, in the order in which the file system lists it. What vanishes while
/// its directory is read is passed over.
void walk(const Path& directory, Descent descent, TreeVisitor& visitor);

/// What list_tree does about a directory that it cannot open.
enum class Tolerance {
  STRICT,    ///< throws
  TOLERANT,  ///< passes over it, and over everything that the effective user may not both read and write
};

/// Everything below `directory`.
/// @throws fs::Exception "Directory '...' could not be opened." or "Path '...' stat failed.", when strict.
[[nodiscard]] std::vector<File> list_tree(const Path& directory, Descent descent, Tolerance tolerance);

/// Removes an object with everything below it. Never throws fs::Exception: failures are logged at level 1,
/// and where the tree cannot be listed it stays as it was.
void remove_tree(const File& file);

}  // namespace fs
