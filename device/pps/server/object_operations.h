#pragma once

#include <cstddef>

#include <fuse_lowlevel.h>

namespace pps::server {

// Openings: the file handle is the OpenId of the library.
void create(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode, fuse_file_info* file);
void open(fuse_req_t request, fuse_ino_t number, fuse_file_info* file);
void read(fuse_req_t request, fuse_ino_t number, std::size_t size, off_t offset, fuse_file_info* file);
void write(fuse_req_t request, fuse_ino_t number, const char* bytes, std::size_t size, off_t offset,
           fuse_file_info* file);
void flush(fuse_req_t request, fuse_ino_t number, fuse_file_info* file);
void synchronize(fuse_req_t request, fuse_ino_t number, int data_only, fuse_file_info* file);
void release(fuse_req_t request, fuse_ino_t number, fuse_file_info* file);

}  // namespace pps::server
