#include "device/pps/tree.h"

#include <algorithm>
#include <utility>

#include "device/pps/open_name.h"

namespace pps {

Tree::Tree(const Metadata& root) : root_(&make("", Node::Kind::directory)) { root_->metadata = root; }

Node& Tree::make(std::string_view name, Node::Kind kind) {
  const NodeId id = ++last_id_;
  auto made = std::make_unique<Node>(id, kind, name);
  return *nodes_.emplace(id, std::move(made)).first->second;
}

Node* Tree::node(NodeId id) const {
  const auto found = nodes_.find(id);
  return found == nodes_.end() ? nullptr : found->second.get();
}

Node* Tree::find(Node& directory, std::string_view name) {
  if (const auto child = directory.children.find(name); child != directory.children.end())
    return child->second;
  if (name != ALL_NAME || !directory.is_directory() || !directory.is_linked()) return nullptr;
  if (directory.view == nullptr) {
    directory.view = &make(ALL_NAME, Node::Kind::view);
    directory.view->parent = &directory;
  }
  return directory.view;
}

Node& Tree::add(Node& directory, std::string_view name, Node::Kind kind, const Metadata& metadata) {
  Node& node = make(name, kind);
  node.parent = &directory;
  node.metadata = metadata;
  directory.children.emplace(name, &node);
  return node;
}

void Tree::make_object_of(Node& view) {
  view.metadata = shown_metadata(view);
  view.kind = Node::Kind::object;
  view.parent->view = nullptr;
  view.parent->children.emplace(view.name, &view);
}

void Tree::remove(Node& node) {
  node.parent->children.erase(node.name);
  if (node.view != nullptr) {
    Node& view = *std::exchange(node.view, nullptr);
    view.metadata = shown_metadata(view);  // it can still be asked for while it is open
    detach(view);
  }
  detach(node);
}

void Tree::detach(Node& node) {
  node.parent = nullptr;
  discard_unused(node);
}

void Tree::drop(Node& node, std::uint64_t count) {
  node.lookups -= std::min(count, node.lookups);
  discard_unused(node);
}

void Tree::discard_unused(Node& node) {
  if (!node.is_linked() && node.lookups == 0 && node.open.empty()) nodes_.erase(node.id);
}

}  // namespace pps
