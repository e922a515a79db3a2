#include "pps/server/attribute_operations.h"

#include <sys/statvfs.h>

#include <climits>

#include "pps/server/reply.h"

namespace pps::server {

namespace {

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

}  // namespace

void get_attributes(fuse_req_t request, fuse_ino_t number, fuse_file_info* /*file*/) {
  answer(request, [&](Server& server) { reply_attributes(request, server.node(number)); });
}

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

void describe_file_system(fuse_req_t request, fuse_ino_t /*number*/) {
  struct statvfs description {};
  description.f_bsize = description.f_frsize = 4096;
  description.f_namemax = NAME_MAX;
  // Nobody is left to hear of a failed answer.
  static_cast<void>(fuse_reply_statfs(request, &description));
}

}  // namespace pps::server
