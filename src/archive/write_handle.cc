#include "archive/write_handle.h"

#include <cstring>
#include <new>

#include <archive.h>

#include "archive/error.h"

namespace harbix {

void WriteHandle::Closer::operator()(::archive* handle) const noexcept {
  ::archive_write_free(handle);  // its result no longer matters: the caller has closed it, or gives it up
}

WriteHandle::WriteHandle(int format, OutputFile& output) : output_(&output), handle_(::archive_write_new()) {
  constexpr int NO_BLOCKS = 0;
  if (handle_ == nullptr) throw std::bad_alloc();
  if (::archive_write_set_format(get(), format) != ARCHIVE_OK ||
      ::archive_write_add_filter_none(get()) != ARCHIVE_OK ||
      ::archive_write_set_bytes_per_block(get(), NO_BLOCKS) != ARCHIVE_OK ||
      ::archive_write_open(get(), this, nullptr, write, nullptr) != ARCHIVE_OK) {
    throw ArchiveError(error_text(get()));
  }
}

// To free a handle is to end its archive first, wherever it stands.
WriteHandle::~WriteHandle() { output_ = nullptr; }

std::ptrdiff_t WriteHandle::write(::archive* handle, void* self, const void* data, std::size_t size) {
  OutputFile* output = static_cast<WriteHandle*>(self)->output_;
  const int error = output == nullptr ? 0 : output->write({static_cast<const std::byte*>(data), size});
  if (error == 0) return static_cast<std::ptrdiff_t>(size);
  ::archive_set_error(handle, error, "Write error: %s", std::strerror(error));
  return -1;
}

}  // namespace harbix
