#include "device/pps/catalog.h"

#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "device/pps/open_name.h"
#include "device/refuse.h"

namespace pps {

namespace {

// A set-group-id directory hands its group on, as directories do elsewhere.
Metadata inherited(const Node& directory, Metadata metadata, mode_t handed_on) {
  if ((directory.metadata.mode & S_ISGID) != 0) {
    metadata.gid = directory.metadata.gid;
    metadata.mode |= handed_on;
  }
  return metadata;
}

void touch(Node& directory) { directory.metadata.modified = directory.metadata.changed = now(); }

}  // namespace

Node& Catalog::require(Node& directory, std::string_view name) {
  Node* found = tree_.find(directory, name);
  if (found == nullptr) device::refuse(ENOENT);
  return *found;
}

void Catalog::require_free(Node& directory, std::string_view name) {
  if (!directory.is_linked()) device::refuse(ENOENT);
  if (const int error = check_name(name); error != 0) device::refuse(error);
  if (tree_.find(directory, name) != nullptr) device::refuse(EEXIST);
}

Node& Catalog::make_object(Node& directory, std::string_view name, const Metadata& metadata) {
  require_free(directory, name);
  Node& object = tree_.add(directory, name, Node::Kind::object, inherited(directory, metadata, 0));
  object.unsaved = true;
  object.stamp = tree_.next_stamp();
  touch(directory);
  publisher_.objects_changed(directory);
  return object;
}

Node& Catalog::make_directory(Node& parent, std::string_view name, const Metadata& metadata) {
  require_free(parent, name);
  const Metadata given = inherited(parent, metadata, S_ISGID);
  std::string stored = store_.make_directory(parent, name, given);
  Node& made = tree_.add(parent, name, Node::Kind::directory, given);
  made.stored_as.push_back(std::move(stored));
  touch(parent);
  return made;
}

void Catalog::remove_object(Node& directory, std::string_view name) {
  Node& object = require(directory, name);
  if (object.is_directory()) device::refuse(EISDIR);
  if (object.kind == Node::Kind::view) device::refuse(EPERM);
  store_.remove(object);
  const Stamp stamp = tree_.next_stamp();
  if (directory.view != nullptr && !directory.view->open.empty()) directory.removed[object.name] = stamp;
  take_away(object);
  touch(directory);
  publisher_.objects_changed(directory);
}

void Catalog::remove_directory(Node& parent, std::string_view name) {
  Node& directory = require(parent, name);
  if (!directory.is_directory()) device::refuse(ENOTDIR);
  if (!directory.children.empty()) device::refuse(ENOTEMPTY);
  store_.remove(directory);
  Node* view = directory.view;
  if (view != nullptr) Tree::hold(*view);
  take_away(directory);
  touch(parent);
  if (view != nullptr) {
    publisher_.wake(*view);
    tree_.drop(*view, 1);
  }
}

// Holds the node until its waiting readers have their answers.
void Catalog::take_away(Node& node) {
  Tree::hold(node);
  tree_.remove(node);
  node.metadata.changed = now();
  publisher_.wake(node);
  tree_.drop(node, 1);
}

void Catalog::change_metadata(Node& node, const Metadata& metadata) {
  if (node.kind == Node::Kind::view) device::refuse(EPERM);
  const Metadata before = node.metadata;
  node.metadata = metadata;
  node.metadata.changed = now();
  if (!node.is_linked()) return;
  try {
    if (node.is_directory()) {
      store_.save_directory(node);
    } else {
      store_.save(node);
    }
  } catch (const std::system_error&) {
    node.metadata = before;
    throw;
  }
}

int Catalog::save_all() { return save_below(tree_.root()); }

int Catalog::save_below(Node& directory) {
  int refused = 0;
  for (const auto& [name, child] : directory.children) {
    if (child->is_directory()) {
      refused += save_below(*child);
    } else if (child->unsaved) {
      try {
        store_.save(*child);
      } catch (const std::system_error&) {
        ++refused;
      }
    }
  }
  return refused;
}

}  // namespace pps
