#include "inspect/sha256.h"

#include <openssl/evp.h>

#include <cstdint>
#include <stdexcept>

#include "inspect/archive_pass.h"

namespace harbix::inspect {
namespace {

void require(int result) {
  if (result != 1) throw std::runtime_error("SHA-256 is not to be had from the library");
}

}  // namespace

void Sha256::Closer::operator()(evp_md_ctx_st* context) const noexcept { ::EVP_MD_CTX_free(context); }

Sha256::Sha256() : context_(::EVP_MD_CTX_new()) {
  require(context_ == nullptr ? 0 : ::EVP_DigestInit_ex(context_.get(), ::EVP_sha256(), nullptr));
}

void Sha256::begin() { require(::EVP_DigestInit_ex(context_.get(), nullptr, nullptr)); }

void Sha256::add(std::string_view bytes) {
  require(::EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()));
}

Digest Sha256::finish() {
  Digest digest{};
  require(::EVP_DigestFinal_ex(context_.get(), digest.data(), nullptr));
  begin();
  return digest;
}

std::string hexadecimal(const Digest& digest) {
  constexpr std::string_view DIGITS = "0123456789abcdef";
  std::string text;
  text.reserve(2 * digest.size());
  for (const unsigned char byte : digest) {
    text += DIGITS[byte >> 4U];
    text += DIGITS[byte & 0xfU];
  }
  return text;
}

Digest digest_of_contents(ArchiveReader& reader, std::int64_t size, Sha256& sha256) {
  read_contents(reader, size, [&sha256](std::string_view piece) { sha256.add(piece); });
  return sha256.finish();
}

}  // namespace harbix::inspect
