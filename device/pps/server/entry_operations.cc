#include "pps/server/entry_operations.h"

#include <sys/stat.h>

#include <cerrno>
#include <span>
#include <system_error>

#include "pps/open_name.h"
#include "pps/server/node_numbers.h"
#include "pps/server/reply.h"

namespace pps::server {

namespace {

Metadata given_by(fuse_req_t request, mode_t mode) {
  const fuse_ctx* client = fuse_req_ctx(request);
  return new_metadata(mode, client->uid, client->gid);
}

void forget_one(Server& server, fuse_ino_t number, std::uint64_t count) {
  if (Node* node = server.tree.node(numbered_node(number).id); node != nullptr)
    server.tree.drop(*node, count);
}

}  // namespace

void look_up(fuse_req_t request, fuse_ino_t parent, const char* name) {
  answer(request, [&](Server& server) {
    const OpenName asked = split_open_name(name);
    Node* found = server.tree.find(server.node(parent), asked.name);
    if (found == nullptr || (found->is_directory() && asked.has_options)) return reply_error(request, ENOENT);
    reply_entry(request, server, *found, asked.options);
  });
}

void forget(fuse_req_t request, fuse_ino_t number, std::uint64_t count) {
  forget_one(*static_cast<Server*>(fuse_req_userdata(request)), number, count);
  fuse_reply_none(request);
}

void forget_many(fuse_req_t request, std::size_t count, fuse_forget_data* forgotten) {
  Server& server = *static_cast<Server*>(fuse_req_userdata(request));
  for (const fuse_forget_data& each : std::span(forgotten, count)) forget_one(server, each.ino, each.nlookup);
  fuse_reply_none(request);
}

void make_node(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode, dev_t /*device*/) {
  answer(request, [&](Server& server) {
    if (!S_ISREG(mode)) return reply_error(request, EPERM);
    const OpenName asked = split_open_name(name);
    Node& made = server.catalog.make_object(server.node(parent), asked.name, given_by(request, mode));
    server.store.save(made);  // no close follows that would do it
    reply_entry(request, server, made, asked.options);
  });
}

void make_directory(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode) {
  answer(request, [&](Server& server) {
    Node& made = server.catalog.make_directory(server.node(parent), name, given_by(request, mode));
    reply_entry(request, server, made, {});
  });
}

void remove_object(fuse_req_t request, fuse_ino_t parent, const char* name) {
  answer(request, [&](Server& server) {
    server.catalog.remove_object(server.node(parent), split_open_name(name).name);
    reply_error(request, 0);
  });
}

void remove_directory(fuse_req_t request, fuse_ino_t parent, const char* name) {
  answer(request, [&](Server& server) {
    server.catalog.remove_directory(server.node(parent), name);
    reply_error(request, 0);
  });
}

void rename(fuse_req_t request, fuse_ino_t /*parent*/, const char* /*name*/, fuse_ino_t /*new_parent*/,
            const char* /*new_name*/, unsigned /*flags*/) {
  reply_error(request, EXDEV);
}

void make_link(fuse_req_t request, fuse_ino_t /*number*/, fuse_ino_t /*parent*/, const char* /*name*/) {
  reply_error(request, EPERM);
}

void make_symbolic_link(fuse_req_t request, const char* /*target*/, fuse_ino_t /*parent*/,
                        const char* /*name*/) {
  reply_error(request, EPERM);
}

}  // namespace pps::server
