#include "archive/stream.h"

#include <stdexcept>

#include <archive.h>

namespace harbix {
namespace {

bool is_supported_format(int format) {
  return (format >= ARCHIVE_FORMAT_TAR && format <= ARCHIVE_FORMAT_TAR_PAX_INTERCHANGE) ||
         format == ARCHIVE_FORMAT_ZIP;
}

}  // namespace

void check_stream_options(const StreamOptions& options) {
  if (options.mode != StreamMode::READ && options.mode != StreamMode::WRITE) {
    throw std::logic_error("Archive can be opened only in read or write modes");
  }
  if (!is_supported_format(options.format)) throw std::logic_error("Format not supported\n");
  if (options.compression != 0) throw std::invalid_argument("Compression not supported");
}

}  // namespace harbix
