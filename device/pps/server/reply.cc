#include "device/pps/server/reply.h"

#include "device/pps/server/node_numbers.h"

namespace pps::server {

namespace {

/// How long the kernel may answer for itself, in seconds. An object is known by several names, with open
/// options and without, and changes with each publication; a directory has one name and changes at the
/// kernel's request alone.
double seconds_to_keep(const Node& node) {
  constexpr double LONG = 3600;
  return node.is_directory() ? LONG : 0;
}

}  // namespace

struct stat stat_record(const Node& node) {
  constexpr blksize_t READ_SIZE =
      32768;  // a client that reads in its buffer's size gets most objects at once
  constexpr off_t BLOCK = 512;
  struct stat record {};
  const Metadata metadata = shown_metadata(node);
  record.st_ino = node.id;
  record.st_mode = metadata.mode | (node.is_directory() ? S_IFDIR : S_IFREG);
  // Of a directory, 1 says that the directories in it were not counted.
  record.st_nlink = node.is_linked() ? 1 : 0;
  record.st_uid = metadata.uid;
  record.st_gid = metadata.gid;
  record.st_size = static_cast<off_t>(text_size(node));
  record.st_blksize = READ_SIZE;
  record.st_blocks = (record.st_size + BLOCK - 1) / BLOCK;
  record.st_atim = metadata.accessed;
  record.st_mtim = metadata.modified;
  record.st_ctim = metadata.changed;
  return record;
}

void reply_attributes(fuse_req_t request, const Node& node) {
  const struct stat record = stat_record(node);
  // As for reply_error(): an answer fails only when its client is gone.
  static_cast<void>(fuse_reply_attr(request, &record, seconds_to_keep(node)));
}

fuse_entry_param entry_record(const Node& node, OpenOptions options) {
  fuse_entry_param entry{};
  entry.ino = kernel_number(node.id, options);
  entry.attr = stat_record(node);
  entry.attr_timeout = entry.entry_timeout = seconds_to_keep(node);
  return entry;
}

void reply_entry(fuse_req_t request, Server& server, Node& node, OpenOptions options) {
  const fuse_entry_param entry = entry_record(node, options);
  Tree::hold(node);
  if (fuse_reply_entry(request, &entry) != 0) server.tree.drop(node, 1);
}

}  // namespace pps::server
