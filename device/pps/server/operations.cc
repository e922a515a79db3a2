#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include <fuse_lowlevel.h>

#include "device/pps/open_name.h"
#include "device/pps/server/node_numbers.h"
#include "device/pps/server/reply.h"
#include "device/pps/server/server.h"

namespace pps::server {
namespace {

// In the order of the table at the end. Every `name` may carry open options behind a '?', which a directory
// cannot have. The file handle of an opened object is the publisher's OpenId; that of an opened directory
// numbers one of the server's listings.

void look_up(fuse_req_t request, fuse_ino_t parent, const char* name) {
  answer(request, [&](Server& server) {
    const OpenName asked = split_open_name(name);
    Node* found = server.tree.find(server.node(parent), asked.name);
    if (found == nullptr || (found->is_directory() && asked.has_options)) return reply_error(request, ENOENT);
    reply_entry(request, server, *found, asked.options);
  });
}

void forget_one(Server& server, fuse_ino_t number, std::uint64_t count) {
  if (Node* node = server.tree.node(numbered_node(number).id); node != nullptr)
    server.tree.drop(*node, count);
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

void get_attributes(fuse_req_t request, fuse_ino_t number, fuse_file_info* /*file*/) {
  answer(request, [&](Server& server) { reply_attributes(request, server.node(number)); });
}

Metadata merged(Metadata metadata, const struct stat& wanted, unsigned which) {
  const auto has = [which](unsigned bit) { return (which & bit) != 0; };
  if (has(FUSE_SET_ATTR_MODE)) metadata.mode = metadata_of(wanted).mode;
  if (has(FUSE_SET_ATTR_UID)) metadata.uid = wanted.st_uid;
  if (has(FUSE_SET_ATTR_GID)) metadata.gid = wanted.st_gid;
  if (has(FUSE_SET_ATTR_ATIME)) metadata.accessed = wanted.st_atim;
  if (has(FUSE_SET_ATTR_MTIME)) metadata.modified = wanted.st_mtim;
  if (has(FUSE_SET_ATTR_ATIME_NOW)) metadata.accessed = now();
  if (has(FUSE_SET_ATTR_MTIME_NOW)) metadata.modified = now();
  return metadata;
}

/// A new size is accepted and changes nothing: "echo name::value >object" truncates first and means to merge.
void set_attributes(fuse_req_t request, fuse_ino_t number, struct stat* wanted, int which,
                    fuse_file_info* /*file*/) {
  answer(request, [&](Server& server) {
    Node& node = server.node(number);
    const auto bits = static_cast<unsigned>(which);
    if ((bits & FUSE_SET_ATTR_SIZE) == 0) {
      server.catalog.change_metadata(node, merged(node.metadata, *wanted, bits));
    }
    reply_attributes(request, node);
  });
}

Metadata given_by(fuse_req_t request, mode_t mode) {
  const fuse_ctx* client = fuse_req_ctx(request);
  return new_metadata(mode, client->uid, client->gid);
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

/// EPERM, as where links do not exist.
void make_symbolic_link(fuse_req_t request, const char* /*target*/, fuse_ino_t /*parent*/,
                        const char* /*name*/) {
  reply_error(request, EPERM);
}

/// EXDEV, so that "mv" copies: an object carries its name in its text.
void rename(fuse_req_t request, fuse_ino_t /*parent*/, const char* /*name*/, fuse_ino_t /*new_parent*/,
            const char* /*new_name*/, unsigned /*flags*/) {
  reply_error(request, EXDEV);
}

void make_link(fuse_req_t request, fuse_ino_t /*number*/, fuse_ino_t /*parent*/, const char* /*name*/) {
  reply_error(request, EPERM);
}

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
    // The last close has no result; the client got this error from the flush before it.
    std::cerr << "harbix-pps: " << error.what() << "\n";
  }
}

void open(fuse_req_t request, fuse_ino_t number, fuse_file_info* file) {
  answer(request, [&](Server& server) {
    begin(server, server.node(number), numbered_node(number).options, *file);
    if (fuse_reply_open(request, file) != 0) end(server, file->fh);
  });
}

void create(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode, fuse_file_info* file) {
  answer(request, [&](Server& server) {
    const OpenName asked = split_open_name(name);
    Node& directory = server.node(parent);
    Node* node = server.tree.find(directory, asked.name);
    // The kernel has looked before, but the object may have been made since.
    if (node != nullptr && (file->flags & O_EXCL) != 0) return reply_error(request, EEXIST);
    if (node != nullptr && node->is_directory()) return reply_error(request, EISDIR);
    if (node == nullptr) {
      node = &server.catalog.make_object(directory, asked.name, given_by(request, mode));
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

void on_interrupt(fuse_req_t request, void* data) {
  auto& server = *static_cast<Server*>(data);
  if (server.hanging_reads.erase(request) != 0 || server.publisher.cancel(request))
    reply_error(request, EINTR);
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

void release(fuse_req_t request, fuse_ino_t /*number*/, fuse_file_info* file) {
  answer(request, [&](Server& server) {
    end(server, file->fh);
    reply_error(request, 0);
  });
}

void synchronize(fuse_req_t request, fuse_ino_t number, int /*data_only*/, fuse_file_info* file) {
  flush(request, number, file);
}

void open_directory(fuse_req_t request, fuse_ino_t /*number*/, fuse_file_info* file) {
  answer(request, [&](Server& server) {
    file->fh = ++server.last_listing;
    server.listings[file->fh];
    if (fuse_reply_open(request, file) != 0) server.listings.erase(file->fh);
  });
}

std::vector<ListedName> list(const Node& directory) {
  const Node& parent = directory.parent != nullptr ? *directory.parent : directory;
  std::vector<ListedName> names{{.name = ".", .id = directory.id, .is_directory = true},
                                {.name = "..", .id = parent.id, .is_directory = true}};
  for (const auto& [name, child] : directory.children) {
    names.push_back({.name = name, .id = child->id, .is_directory = child->is_directory()});
  }
  return names;
}

/// The listing is taken when the client starts from the beginning.
void read_directory(fuse_req_t request, fuse_ino_t number, std::size_t size, off_t offset,
                    fuse_file_info* file) {
  answer(request, [&](Server& server) {
    std::vector<ListedName>& names = server.listings[file->fh];
    if (offset == 0) names = list(server.node(number));

    std::string buffer(size, '\0');
    std::size_t used = 0;
    for (auto next = static_cast<std::size_t>(offset); next < names.size(); ++next) {
      struct stat record {};
      record.st_ino = names[next].id;
      record.st_mode = names[next].is_directory ? S_IFDIR : S_IFREG;
      const std::size_t needed =
          fuse_add_direntry(request, &buffer[used], size - used, names[next].name.c_str(), &record,
                            static_cast<off_t>(next + 1));
      if (needed > size - used) break;
      used += needed;
    }
    // An answer fails only when its client is gone.
    static_cast<void>(fuse_reply_buf(request, buffer.data(), used));
  });
}

void release_directory(fuse_req_t request, fuse_ino_t /*number*/, fuse_file_info* file) {
  answer(request, [&](Server& server) {
    server.listings.erase(file->fh);
    reply_error(request, 0);
  });
}

/// Nothing to do: names are in the store when the call that made or removed them returns.
void synchronize_directory(fuse_req_t request, fuse_ino_t /*number*/, int /*data_only*/,
                           fuse_file_info* /*file*/) {
  reply_error(request, 0);
}

void describe_file_system(fuse_req_t request, fuse_ino_t /*number*/) {
  struct statvfs description {};
  description.f_bsize = description.f_frsize = 4096;
  description.f_namemax = NAME_MAX;
  // An answer fails only when its client is gone.
  static_cast<void>(fuse_reply_statfs(request, &description));
}

}  // namespace

const fuse_lowlevel_ops& operations() {
  static const fuse_lowlevel_ops OPERATIONS = [] {
    fuse_lowlevel_ops table{};  // what stays empty is answered with ENOSYS, or left to the kernel
    table.lookup = look_up;
    table.forget = forget;
    table.forget_multi = forget_many;
    table.getattr = get_attributes;
    table.setattr = set_attributes;
    table.mknod = make_node;
    table.mkdir = make_directory;
    table.unlink = remove_object;
    table.rmdir = remove_directory;
    table.symlink = make_symbolic_link;
    table.rename = rename;
    table.link = make_link;
    table.open = open;
    table.create = create;
    table.read = read;
    table.write = write;
    table.flush = flush;
    table.release = release;
    table.fsync = synchronize;
    table.opendir = open_directory;
    table.readdir = read_directory;
    table.releasedir = release_directory;
    table.fsyncdir = synchronize_directory;
    table.statfs = describe_file_system;
    return table;
  }();
  return OPERATIONS;
}

}  // namespace pps::server
