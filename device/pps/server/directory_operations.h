#pragma once

#include <cstddef>

#include <fuse_lowlevel.h>

namespace pps::server {

// Listing: the file handle numbers one of the server's listings, taken when the client starts from the
// beginning.
void open_directory(fuse_req_t request, fuse_ino_t number, fuse_file_info* file);
void read_directory(fuse_req_t request, fuse_ino_t number, std::size_t size, off_t offset,
                    fuse_file_info* file);
void release_directory(fuse_req_t request, fuse_ino_t number, fuse_file_info* file);
/// Nothing to do: names are in the store when the call that made or removed them returns.
void synchronize_directory(fuse_req_t request, fuse_ino_t number, int data_only, fuse_file_info* file);

}  // namespace pps::server
