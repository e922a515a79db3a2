#pragma once

#include <sys/stat.h>

#include <fuse_lowlevel.h>

namespace pps::server {

void get_attributes(fuse_req_t request, fuse_ino_t number, fuse_file_info* file);
/// A new size is accepted and changes nothing: "echo name::value >object" truncates first and means to merge.
void set_attributes(fuse_req_t request, fuse_ino_t number, struct stat* wanted, int which,
                    fuse_file_info* file);
void describe_file_system(fuse_req_t request, fuse_ino_t number);

}  // namespace pps::server
