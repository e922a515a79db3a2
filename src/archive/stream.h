#pragma once

namespace harbix {

enum class StreamMode : int { READ = 0, WRITE = 1 };

/// What an archive stream is opened with, in the library's codes.
struct StreamOptions {
  StreamMode mode;
  int format;       ///< tar, ustar, pax interchange or zip (0x30000 to 0x30002, 0x50000)
  int compression;  ///< 0: none
};

/// @throws std::logic_error "Archive can be opened only in read or write modes" or "Format not supported\n";
/// std::invalid_argument "Compression not supported".
void check_stream_options(const StreamOptions& options);

}  // namespace harbix
