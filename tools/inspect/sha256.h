#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>

#include "archive/reader.h"

struct evp_md_ctx_st;

namespace harbix::inspect {

using Digest = std::array<unsigned char, 32>;

/// The SHA-256 of one text after the other.
class Sha256 {
 public:
  /// @throws std::runtime_error "SHA-256 is not to be had from the library"
  Sha256();

  void add(std::string_view bytes);
  /// Ends the text, and begins the next.
  [[nodiscard]] Digest finish();

 private:
  struct Closer {
    void operator()(evp_md_ctx_st* context) const noexcept;
  };

  void begin();

  std::unique_ptr<evp_md_ctx_st, Closer> context_;
};

/// In lower-case hexadecimal digits.
[[nodiscard]] std::string hexadecimal(const Digest& digest);

/// Of the current entry's contents. @throws DataError when the archive is damaged there.
[[nodiscard]] Digest digest_of_contents(ArchiveReader& reader, std::int64_t size, Sha256& sha256);

}  // namespace harbix::inspect
