#include <sys/stat.h>

#include <cstdlib>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"
#include "tests/support/seed.h"

namespace harbix::test {
namespace {

/// Fills the share with a tree that is different for every seed.
class RandomTree {
 public:
  RandomTree(Device& device, unsigned seed) : device_(device), random_(seed) {}

  void fill(const std::string& folder, int depth) {
    const unsigned items = below(8);
    for (unsigned i = 0; i < items; ++i) add_item(folder + "/" + name(), depth);
  }

  std::string name() {
    static const std::vector<std::string> pieces{
        "a",       "Photo", " ", ":",  "\xc3\xa9", "e\xcc\x81", "\xff", "\n",       "\\",          "'",
        "File: 1", "~",     "-", "%d", "\t",       "\"",        "..",   ".backup.", "\xe2\x82\xac"};
    std::string text;
    const unsigned count = 1 + below(4);
    for (unsigned i = 0; i < count; ++i) text += pieces[below(static_cast<unsigned>(pieces.size()))];
    // Names that repeat would only overwrite each other, and these two are taken.
    return text + std::to_string(next_++);
  }

  unsigned below(unsigned limit) { return static_cast<unsigned>(random_()) % limit; }

 private:
  void add_item(const std::string& path, int depth) {
    switch (below(6)) {
      case 0:
        device_.link(path, below(2) == 0 ? "../" + name() : "/" + name());
        break;
      case 1:
      case 2:
        device_.make_folder(path, below(4) == 0 ? 0750 : 0770);
        if (depth > 0) fill(path, depth - 1);
        break;
      default:
        device_.write(path, content(), below(4) == 0 ? 0440 : 0660);
    }
  }

  std::string content() {
    std::string bytes(below(3) == 0 ? 512 * below(4) : below(5000), '\0');
    for (char& byte : bytes) byte = static_cast<char>(random_());
    return bytes;
  }

  Device& device_;
  std::mt19937 random_;
  unsigned next_ = 0;
};

TEST(MediaRoundTrip, BringsBackEveryNameByteLinkOwnerAndMode) {
  for (int round = 0; round < 4; ++round) {
    const unsigned seed = chosen_seed();
    SCOPED_TRACE("HARBIX_TEST_SEED=" + std::to_string(seed));
    std::cout << "seed " << seed << '\n';
    Device device;
    RandomTree tree(device, seed);
    for (int i = 0; i < 4; ++i) {
      const std::string folder = std::string(SHARED) + "/" + "T" + tree.name();
      device.make_folder(folder);
      tree.fill(folder, 4);
    }
    const Snapshot before = device.snapshot(SHARED);
    ASSERT_EQ(device.harbix({"-f", "/tmp/a.tar", "media"}).status, 0);

    // As it is, with the shared folders still there.
    ASSERT_EQ(device.harbix({"-r", "-f", "/tmp/a.tar", "media"}).status, 0);
    EXPECT_EQ(difference(before, device.snapshot(SHARED)), "");

    // On a device that has lost everything, from standard input.
    ASSERT_EQ(device.shell("rm -rf /accounts/1000/shared/*").status, 0);
    ASSERT_EQ(device.harbix({"-r", "media"}, device.read("/tmp/a.tar")).status, 0);
    EXPECT_EQ(difference(before, device.snapshot(SHARED)), "");

    // The archive of what came back lists the same.
    ASSERT_EQ(device.harbix({"-f", "/tmp/b.tar", "media"}).status, 0);
    const std::string list = "tar -Ptf /tmp/";
    EXPECT_EQ(device.shell(list + "a.tar | sort").output, device.shell(list + "b.tar | sort").output);
  }
}

TEST(MediaRoundTrip, TellsNamesApartThatDifferInTheirAccentsOnly) {
  Device device;
  const std::string folder = std::string(SHARED) + "/Photos/";
  device.write(folder + "caf\xc3\xa9.jpg", "composed");
  device.write(folder + "cafe\xcc\x81.jpg", "decomposed");
  ASSERT_EQ(device.harbix({"-f", "/tmp/a.tar", "media"}).status, 0);
  ASSERT_EQ(device.harbix({"-r", "-f", "/tmp/a.tar", "media"}).status, 0);
  EXPECT_EQ(device.read(folder + "caf\xc3\xa9.jpg"), "composed");
  EXPECT_EQ(device.read(folder + "cafe\xcc\x81.jpg"), "decomposed");
}

}  // namespace
}  // namespace harbix::test
