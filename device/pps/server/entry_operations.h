#pragma once

#include <cstddef>
#include <cstdint>

#include <fuse_lowlevel.h>

namespace pps::server {

// Names: every `name` may carry open options behind a '?', which a directory cannot have.
void look_up(fuse_req_t request, fuse_ino_t parent, const char* name);
void forget(fuse_req_t request, fuse_ino_t number, std::uint64_t count);
void forget_many(fuse_req_t request, std::size_t count, fuse_forget_data* forgotten);
void make_node(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode, dev_t device);
void make_directory(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode);
void remove_object(fuse_req_t request, fuse_ino_t parent, const char* name);
void remove_directory(fuse_req_t request, fuse_ino_t parent, const char* name);
/// EXDEV, so that "mv" copies: an object carries its name in its text.
void rename(fuse_req_t request, fuse_ino_t parent, const char* name, fuse_ino_t new_parent,
            const char* new_name, unsigned flags);
/// EPERM, as where links do not exist.
void make_link(fuse_req_t request, fuse_ino_t number, fuse_ino_t parent, const char* name);
void make_symbolic_link(fuse_req_t request, const char* target, fuse_ino_t parent, const char* name);

}  // namespace pps::server
