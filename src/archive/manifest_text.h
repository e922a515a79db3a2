#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <streambuf>
#include <string_view>

#include "archive/reader.h"

namespace harbix {

/// The text of the current entry, a manifest, as it comes out of the archive: it never is in memory as a
/// whole. Reading throws meta::malformed_manifest for a text of more than 256 MiB, with a null byte, or
/// compressed beyond all measure.
class ManifestText : public std::streambuf {
 public:
  using Listener = std::function<void(std::string_view piece)>;

  /// `listener` is given each piece before it is read.
  ManifestText(ArchiveReader& reader, Listener listener) : reader_(reader), listener_(std::move(listener)) {}

 protected:
  int_type underflow() override;

 private:
  void judge(std::string_view text);

  static constexpr std::size_t CHUNK_SIZE = 4096;

  ArchiveReader& reader_;
  Listener listener_;
  std::array<char, CHUNK_SIZE> chunk_{};
  std::size_t size_ = 0;
  std::size_t attributes_ = 0;  ///< at most
};

}  // namespace harbix
