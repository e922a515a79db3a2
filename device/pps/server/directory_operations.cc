#include "pps/server/directory_operations.h"

#include <string>
#include <vector>

#include "pps/server/reply.h"

namespace pps::server {

namespace {

std::vector<ListedName> list(const Node& directory) {
  const Node& parent = directory.parent != nullptr ? *directory.parent : directory;
  std::vector<ListedName> names{{.name = ".", .id = directory.id, .is_directory = true},
                                {.name = "..", .id = parent.id, .is_directory = true}};
  for (const auto& [name, child] : directory.children) {
    names.push_back({.name = name, .id = child->id, .is_directory = child->is_directory()});
  }
  return names;
}

}  // namespace

void open_directory(fuse_req_t request, fuse_ino_t /*number*/, fuse_file_info* file) {
  answer(request, [&](Server& server) {
    file->fh = ++server.last_listing;
    server.listings[file->fh];
    if (fuse_reply_open(request, file) != 0) server.listings.erase(file->fh);
  });
}

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
    // Nobody is left to hear of a failed answer.
    static_cast<void>(fuse_reply_buf(request, buffer.data(), used));
  });
}

void release_directory(fuse_req_t request, fuse_ino_t /*number*/, fuse_file_info* file) {
  answer(request, [&](Server& server) {
    server.listings.erase(file->fh);
    reply_error(request, 0);
  });
}

void synchronize_directory(fuse_req_t request, fuse_ino_t /*number*/, int /*data_only*/,
                           fuse_file_info* /*file*/) {
  reply_error(request, 0);
}

}  // namespace pps::server
