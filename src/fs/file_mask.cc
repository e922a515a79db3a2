#include "fs/file_mask.h"

#include <sys/stat.h>

namespace fs {

FileMask::FileMask(mode_t mask) noexcept : saved_(::umask(mask)) {}

FileMask::~FileMask() { ::umask(saved_); }

}  // namespace fs
