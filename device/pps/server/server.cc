#include "device/pps/server/server.h"

#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <system_error>
#include <utility>

#include "device/pps/server/node_numbers.h"
#include "device/pps/store_loader.h"

namespace pps::server {

namespace {

constexpr mode_t ROOT_MODE = 0755;

void answer_read(ReaderToken token, std::string_view text) {
  auto* const request = static_cast<fuse_req_t>(token);
  // An answer fails only when its client is gone.
  static_cast<void>(fuse_reply_buf(request, text.data(), text.size()));
}

}  // namespace

Server::Server(const std::string& folder, const std::string& passing)
    : store(folder.empty() ? Store() : Store(folder, passing)),
      tree(new_metadata(ROOT_MODE, ::geteuid(), ::getegid())),
      publisher(tree, store, answer_read),
      catalog(tree, store, publisher) {
  load(store, tree, std::cerr);
}

void Server::refuse_waiting_reads(int error) {
  for (fuse_req_t request : std::exchange(hanging_reads, {})) {
    // As below.
    static_cast<void>(fuse_reply_err(request, error));
  }
  for (ReaderToken token : publisher.cancel_all()) {
    // A client that is gone needs no answer.
    static_cast<void>(fuse_reply_err(static_cast<fuse_req_t>(token), error));
  }
}

bool Server::is_hanging(const Node& node) const {
  if (hanging_objects.empty() || node.parent == nullptr) return false;
  std::string path = node.name;
  for (const Node* above = node.parent; above->parent != nullptr; above = above->parent) {
    path.insert(0, above->name + "/");
  }
  return hanging_objects.contains(path);
}

Node& Server::node(fuse_ino_t number) const {
  Node* found = tree.node(numbered_node(number).id);
  if (found == nullptr) throw std::system_error(ESTALE, std::generic_category());
  return *found;
}

}  // namespace pps::server
