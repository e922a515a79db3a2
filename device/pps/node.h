#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "device/pps/attribute_set.h"
#include "device/pps/change.h"
#include "device/pps/metadata.h"

namespace pps {

class OpenObject;

/// Numbers every node ever made, the root being 1; never used twice, so that it serves as the inode number.
using NodeId = std::uint64_t;

/// An object, a directory, or the ".all" of a directory that shows its objects together.
struct Node {
  enum class Kind { directory, object, view };

  Node(NodeId number, Kind what, std::string_view called) : id(number), kind(what), name(called) {}

  const NodeId id;
  Kind kind;
  std::string name;
  Node* parent = nullptr;  ///< the directory it is in; none for the root and for what was removed
  Metadata metadata;       ///< a view has none of its own, see shown_metadata()
  Stamp stamp = 0;  ///< of an object: its last change; of a directory: the last change of an object in it

  AttributeSet attributes;  ///< of an object

  std::map<std::string, Node*, std::less<>> children;  ///< of a directory; its view is not among them
  Node* view = nullptr;                                ///< of a directory, once a client has looked it up
  std::map<std::string, Stamp>
      removed;  ///< of a directory: objects whose end some reader of the view must hear of

  /// The files or folders of the store that stand for this node, relative to the store. The last is the one
  /// that is written; more than one when the store has several names with the same part before '@'.
  std::vector<std::string> stored_as;
  bool unsaved = false;

  std::vector<OpenObject*> open;  ///< every opening of the object or view
  std::uint64_t lookups = 0;      ///< how many references to it the kernel holds

  [[nodiscard]] bool is_directory() const { return kind == Kind::directory; }
  /// False after it was removed, even while it is still open.
  [[nodiscard]] bool is_linked() const { return parent != nullptr || id == ROOT_ID; }

  static constexpr NodeId ROOT_ID = 1;
};

/// Owner, permissions and times as a client sees them. A view takes its directory's, without the search bits:
/// a client that may list the directory may read the view, and one that may make objects there may make an
/// object of its name.
[[nodiscard]] Metadata shown_metadata(const Node& node);

/// The text of an object or a view as a first read gives it.
[[nodiscard]] std::string whole_text(const Node& node);

/// Bytes of whole_text().
[[nodiscard]] std::size_t text_size(const Node& node);

/// Whether something that others did since `cursor` shows in the object or view.
[[nodiscard]] bool has_news(const Node& node, Cursor cursor);

/// The "@name" line and what is news at `cursor`; of a view, the same for each of its objects that has news,
/// and
/// "-@name" for each object that was removed.
[[nodiscard]] std::string news_text(const Node& node, Cursor cursor);

/// The text that the store keeps of an object: whole_text() without the attributes that are not persistent.
[[nodiscard]] std::string stored_text(const Node& object);

}  // namespace pps
