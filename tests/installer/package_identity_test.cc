#include "device/installer/package_identity.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "device/installer/refusal.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace installer {
namespace {

std::string identity_of(const std::string& text) {
  const PackageIdentity identity = parse_package_manifest(text, "id");
  return identity.name + " " + identity.version;
}

TEST(PackageIdentity, IsWhatTheManifestSays) {
  struct Row {
    const char* text;
    const char* identity;
  };
  for (const Row& row : {
           Row{"", "id 0.0.0.0"},
           Row{"Package-Name: P\nPackage-Version: 1.0.0.1\n", "P 1.0.0.1"},
           Row{"Package-Name: P\r\nPackage-Version: 1.0.0.1\r\n", "P 1.0.0.1"},
           Row{"Manifest-Version: 1.0\nPackage-Version: 2", "id 2"},
           Row{"Package-Name:P\npackage-name: Q\n Package-Name: R\n", "id 0.0.0.0"},
           Row{"Package-Name: a: b\n", "a: b 0.0.0.0"},
           Row{"Package-Name: first\nPackage-Name: last\n", "last 0.0.0.0"},
       }) {
    EXPECT_EQ(identity_of(row.text), row.identity) << row.text;
  }
}

TEST(PackageIdentity, IsRefusedWhenTheListCouldNotShowIt) {
  for (const char* text : {"Package-Name: \n", "Package-Name: a,b\n", "Package-Version: 1,0\n"}) {
    EXPECT_THROW(static_cast<void>(identity_of(text)), Refusal) << text;
  }
  EXPECT_THROW(static_cast<void>(parse_package_manifest("", "a,b")), Refusal);
}

TEST(PackageIdentity, IsReadFromAPlainFileOnly) {
  const harbix::test::TemporaryFolder folder;
  const auto read = [&] { return read_package_identity(folder / "", "id").name; };
  EXPECT_EQ(read(), "id");
  ASSERT_EQ(::mkdir((folder / "META-INF").c_str(), 0755), 0);
  const std::string manifest = folder / "META-INF/MANIFEST.MF";
  harbix::test::write_file(manifest, "Package-Name: P\n");
  EXPECT_EQ(read(), "P");
  ASSERT_EQ(::rename(manifest.c_str(), (folder / "elsewhere").c_str()), 0);
  ASSERT_EQ(::symlink("../elsewhere", manifest.c_str()), 0);
  EXPECT_EQ(read(), "id");
  ASSERT_EQ(::unlink(manifest.c_str()), 0);
  ASSERT_EQ(::mkfifo(manifest.c_str(), 0600), 0);
  EXPECT_EQ(read(), "id");
  ASSERT_EQ(::unlink(manifest.c_str()), 0);
  ASSERT_EQ(::mkdir(manifest.c_str(), 0755), 0);
  EXPECT_EQ(read(), "id");
}

TEST(PackageIdentity, IsRefusedFromAManifestBeyondReason) {
  const harbix::test::TemporaryFolder folder;
  ASSERT_EQ(::mkdir((folder / "META-INF").c_str(), 0755), 0);
  const std::string manifest = folder / "META-INF/MANIFEST.MF";
  harbix::test::write_file(manifest, "Package-Name: P\n" + std::string((1 << 20) - 16, 'x'));
  EXPECT_EQ(read_package_identity(folder / "", "id").name, "P");
  harbix::test::write_file(manifest, "Package-Name: P\n" + std::string((1 << 20) - 15, 'x'));
  EXPECT_THROW(static_cast<void>(read_package_identity(folder / "", "id")), Refusal);
}

}  // namespace
}  // namespace installer
