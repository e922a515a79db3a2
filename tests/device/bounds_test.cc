// Small archives that ask for much: what their restore takes of memory and time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/device/measured_run.h"
#include "tests/support/application_device.h"

namespace harbix::test {
namespace {

/// Writes an archive of a kind.
constexpr char WRITE_BOMB[] = R"(
import gzip, sys, tarfile
def header(name, size, kind=tarfile.REGTYPE):
    info = tarfile.TarInfo(name)
    info.size, info.type, info.mode = size, kind, 0o700
    return info.tobuf(format=tarfile.USTAR_FORMAT)
def padded(data):
    return data + b'\0' * (-len(data) % 512)
def long_name(name):
    return header('././@LongLink', len(name) + 1, b'L') + padded(name + b'\0') + header('x', 1) + padded(b'1')
package, kind = sys.argv[1:]
path = '/tmp/bomb'
small = header(package + '/.backup.metadata', 12) + padded(b'File: 1\n/a\n\n')
if kind == 'manifest':
    size = 240000000
    piece = b'File: 1\n/a\n' * 9000
    with gzip.open(path, 'wb', 1) as archive:
        archive.write(header(package + '/.backup.metadata', size))
        for begin in range(0, size, len(piece)):
            archive.write(piece[:size - begin])
        archive.write(b'\0' * (-size % 512 + 1024))
elif kind == 'path':
    with gzip.open(path, 'wb', 1) as archive:
        archive.write(small + long_name(package.encode() + b'/' + b'x' * (32 << 20)) + b'\0' * 1024)
else:
    with open(path, 'wb') as archive:
        archive.write(small + long_name(package.encode() + b'/a' * 400000) + b'\0' * 1024)
)";

struct Keyword {
  const char* name;
  const char* package;
};

class Bounds : public testing::TestWithParam<Keyword> {
 protected:
  Bounds() { device_.write("/tmp/write.py", WRITE_BOMB); }

  /// Takes at most 128 MiB and 30 s, and ends with `status` and a line of errors that matches.
  void expect_bounded(const std::string& kind, int status, const std::string& error) {
    const Outcome written = device_.run({"python3", "/tmp/write.py", GetParam().package, kind});
    ASSERT_EQ(written.status, 0) << written.errors;
    const MeasuredRun restore = measured_run(device_, {"harbix", "-r", "-f", "/tmp/bomb", GetParam().name});
    EXPECT_EQ(restore.status, status) << restore.errors;
    EXPECT_THAT(restore.errors, testing::HasSubstr(error));
    // The sanitizers take memory of their own.
#ifndef HARBIX_SANITIZED
    EXPECT_LE(restore.mebibytes, 128);
#endif
    EXPECT_LE(restore.seconds, 30);
  }

  bool is_media() { return GetParam().name == std::string("media"); }
  bool is_app() { return GetParam().name == std::string("app"); }

  ApplicationDevice device_;
};

TEST_P(Bounds, HoldForAManifestThatComesOutOfAFewHundredKibibytes) {
  // The media themselves come back without their manifest, whose names are only held against theirs.
  expect_bounded("manifest", is_media() ? 0 : 1, is_media() ? "" : "Manifest that is compressed too far\n");
}

TEST_P(Bounds, HoldForAPathOf32Mebibytes) {
  expect_bounded("path", 1, is_app() ? "Special header too large\n" : "Could not read next archive header\n");
}

TEST_P(Bounds, HoldForANameOf400000Folders) {
  expect_bounded("folders", 1,
                 is_app() ? "Name of more than 64 KiB\n" : "Could not read next archive header\n");
}

std::string name_of_keyword(const testing::TestParamInfo<Keyword>& keyword) { return keyword.param.name; }

INSTANTIATE_TEST_SUITE_P(Keywords, Bounds,
                         testing::Values(Keyword{"media", "/media/M"}, Keyword{"settings", "/settings"},
                                         Keyword{"app", "/app/side.app.pkg/appdata"}),
                         name_of_keyword);

}  // namespace
}  // namespace harbix::test
