#include "pps/server/attribute_operations.h"
#include "pps/server/directory_operations.h"
#include "pps/server/entry_operations.h"
#include "pps/server/object_operations.h"
#include "pps/server/server.h"

namespace pps::server {

const fuse_lowlevel_ops& operations() {
  static const fuse_lowlevel_ops OPERATIONS = [] {
    fuse_lowlevel_ops table{};  // what stays empty is answered with ENOSYS, or left to the kernel
    table.lookup = look_up;
    table.forget = forget;
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
    table.create = create;
    table.forget_multi = forget_many;
    return table;
  }();
  return OPERATIONS;
}

}  // namespace pps::server
