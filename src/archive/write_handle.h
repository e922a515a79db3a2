#pragma once

#include <cstddef>
#include <memory>

#include "archive/output_file.h"

struct archive;

namespace harbix {

/// A handle of the library that writes archives of one format into an output. Nothing stays behind in it:
/// what it has been given is in the output when a call returns, so that several handles can take turns. Its
/// end mark is written by archive_write_close alone; a handle that is given up leaves what it has written as
/// it is.
class WriteHandle {
 public:
  /// `format` is a code of the library's; the output must outlive the handle.
  /// @throws ArchiveError with the library's reason.
  WriteHandle(int format, OutputFile& output);
  ~WriteHandle();
  WriteHandle(const WriteHandle&) = delete;
  WriteHandle& operator=(const WriteHandle&) = delete;
  WriteHandle(WriteHandle&&) = delete;
  WriteHandle& operator=(WriteHandle&&) = delete;

  [[nodiscard]] ::archive* get() const noexcept { return handle_.get(); }

 private:
  struct Closer {
    void operator()(::archive* handle) const noexcept;
  };

  static std::ptrdiff_t write(::archive* handle, void* self, const void* data, std::size_t size);

  OutputFile* output_;  ///< none while the handle is given up
  std::unique_ptr<::archive, Closer> handle_;
};

}  // namespace harbix
