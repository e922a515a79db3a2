#include "inspect/sha256.h"

#include <string>

#include <gtest/gtest.h>

#include "inspect/checksums.h"

namespace harbix::inspect {
namespace {

constexpr char OF_ABC[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr char OF_NOTHING[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

TEST(Sha256, IsThatOfTheStandardOneTextAfterTheOther) {
  Sha256 sha256;
  sha256.add("a");
  sha256.add("bc");
  EXPECT_EQ(hexadecimal(sha256.finish()), OF_ABC);
  EXPECT_EQ(hexadecimal(sha256.finish()), OF_NOTHING);
}

TEST(ChecksumLine, EscapesAsSha256sumDoes) {
  Sha256 sha256;
  const Digest digest = sha256.finish();
  const std::string sum = OF_NOTHING;
  EXPECT_EQ(checksum_line(digest, "a b"), sum + "  a b");
  EXPECT_EQ(checksum_line(digest, "a\nb"), '\\' + sum + "  a\\nb");
  EXPECT_EQ(checksum_line(digest, "a\\b\r"), '\\' + sum + "  a\\\\b\\r");
}

}  // namespace
}  // namespace harbix::inspect
