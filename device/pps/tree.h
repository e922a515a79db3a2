#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>

#include "device/pps/node.h"

namespace pps {

/// Every directory and object, and how long each of them lives: while it has a name, while the kernel knows
/// its number, and while it is open.
class Tree {
 public:
  /// An empty root directory.
  explicit Tree(const Metadata& root);

  [[nodiscard]] Node& root() { return *root_; }

  /// The node with this number, removed or not; nullptr when there is none any more.
  [[nodiscard]] Node* node(NodeId id) const;

  /// The object, directory or view called `name` (without open options) in `directory`; nullptr when there is
  /// none. Every directory has a view called ".all" unless an object of that name was made.
  [[nodiscard]] Node* find(Node& directory, std::string_view name);

  /// Adds a child. The name must be free and valid; the caller has checked both.
  Node& add(Node& directory, std::string_view name, Node::Kind kind, const Metadata& metadata);

  /// Turns a directory's view into an ordinary object, still without attributes.
  static void make_object_of(Node& view);

  /// Takes the name of an object or an empty directory away; its view goes with a directory. The nodes stay
  /// until discard_unused() finds them neither open nor known to the kernel.
  void remove(Node& node);

  /// Counts references that the kernel takes and gives back. `node` may be gone after drop().
  static void hold(Node& node) { ++node.lookups; }
  void drop(Node& node, std::uint64_t count);

  /// Ends a removed node without references; does nothing for any other.
  void discard_unused(Node& node);

  [[nodiscard]] Stamp next_stamp() { return ++last_stamp_; }
  [[nodiscard]] Stamp last_stamp() const { return last_stamp_; }

  /// Nodes alive; tests look for leaks with it.
  [[nodiscard]] std::size_t size() const { return nodes_.size(); }

 private:
  Node& make(std::string_view name, Node::Kind kind);
  void detach(Node& node);

  std::unordered_map<NodeId, std::unique_ptr<Node>> nodes_;
  NodeId last_id_ = 0;
  Stamp last_stamp_ = 0;
  Node* root_;
};

}  // namespace pps
