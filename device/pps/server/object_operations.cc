#include "pps/server/object_operations.h"

#include <fcntl.h>

#include <cerrno>
#include <iostream>
#include <system_error>

#include "pps/open_name.h"
#include "pps/server/node_numbers.h"
#include "pps/server/reply.h"

namespace pps::server {

namespace {

// Reads are a stream of texts: nothing is cached and no position means anything.
void begin(Server& server, Node& node, OpenOptions options, fuse_file_info& file) {
  file.direct_io = 1;
  file.nonseekable = 1;
  file.fh = server.publisher.open(node, options);
}

// Also for an opening that the client never got to know of.
void end(Server& server, OpenId id) {
  try {
    server.publisher.close(id);
  } catch (const std::system_error& error) {
    // The last close has no result; the flush before it told the client.
    std::cerr << "harbix-pps: " << error.what() << "\n";
  }
}

void on_interrupt(fuse_req_t request, void* data) {
  auto& server = *static_cast<Server*>(data);
  if (server.hanging_reads.erase(request) != 0 || server.publisher.cancel(request))
    reply_error(request, EINTR);
}

}  // namespace

void create(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode, fuse_file_info* file) {
  answer(request, [&](Server& server) {
    const OpenName asked = split_open_name(name);
    Node& directory = server.node(parent);
    Node* node = server.tree.find(directory, asked.name);
    // The kernel has looked before, but the object may have been made since.
    if (node != nullptr && (file->flags & O_EXCL) != 0) return reply_error(request, EEXIST);
    if (node != nullptr && node->is_directory()) return reply_error(request, EISDIR);
    if (node == nullptr) {
      const fuse_ctx* client = fuse_req_ctx(request);
      node = &server.catalog.make_object(directory, asked.name, new_metadata(mode, client->uid, client->gid));
    }
    begin(server, *node, asked.options, *file);
    const fuse_entry_param entry = entry_record(*node, asked.options);
    Tree::hold(*node);
    if (fuse_reply_create(request, &entry, file) != 0) {
      end(server, file->fh);
      server.tree.drop(*node, 1);
    }
  });
}

void open(fuse_req_t request, fuse_ino_t number, fuse_file_info* file) {
  answer(request, [&](Server& server) {
    begin(server, server.node(number), numbered_node(number).options, *file);
    if (fuse_reply_open(request, file) != 0) end(server, file->fh);
  });
}

void read(fuse_req_t request, fuse_ino_t number, std::size_t size, off_t /*offset*/, fuse_file_info* file) {
  answer(request, [&](Server& server) {
    const auto patience =
        (file->flags & O_NONBLOCK) != 0 ? Publisher::Patience::refuse : Publisher::Patience::wait;
    if (server.is_hanging(server.node(number))) {
      server.hanging_reads.insert(request);
      if (fuse_req_interrupted(request) != 0) return on_interrupt(request, &server);
      return fuse_req_interrupt_func(request, on_interrupt, &server);
    }
    if (const auto text = server.publisher.read(file->fh, size, patience, request)) {
      // A client that is gone loses what it read, as with any stream.
      static_cast<void>(fuse_reply_buf(request, text->data(), text->size()));
    } else if (fuse_req_interrupted(request) != 0) {
      on_interrupt(request, &server);
    } else {
      fuse_req_interrupt_func(request, on_interrupt, &server);
    }
  });
}

void write(fuse_req_t request, fuse_ino_t /*number*/, const char* bytes, std::size_t size, off_t /*offset*/,
           fuse_file_info* file) {
  answer(request, [&](Server& server) {
    server.publisher.write(file->fh, {bytes, size});
    static_cast<void>(fuse_reply_write(request, size));  // what is published stays published
  });
}

void flush(fuse_req_t request, fuse_ino_t /*number*/, fuse_file_info* file) {
  answer(request, [&](Server& server) {
    server.publisher.flush(file->fh);
    reply_error(request, 0);
  });
}

void synchronize(fuse_req_t request, fuse_ino_t number, int /*data_only*/, fuse_file_info* file) {
  flush(request, number, file);
}

void release(fuse_req_t request, fuse_ino_t /*number*/, fuse_file_info* file) {
  answer(request, [&](Server& server) {
    end(server, file->fh);
    reply_error(request, 0);
  });
}

}  // namespace pps::server
