#include <sys/stat.h>

#include <cstdlib>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/application_device.h"
#include "tests/support/seed.h"

namespace harbix::test {
namespace {

/// Fills folders with trees that are different for every seed.
class RandomTrees {
 public:
  RandomTrees(ApplicationDevice& device, unsigned seed) : device_(device), random_(seed) {}

  void fill(const std::string& folder, int depth, uid_t user, gid_t group) {
    const unsigned items = below(7);
    for (unsigned i = 0; i < items; ++i) add_item(folder + "/" + name(), depth, user, group);
  }

  /// A path of many folders with names that fill a tar header on their own.
  void dig(std::string folder, uid_t user, gid_t group) {
    for (unsigned i = 1 + below(12); i > 0; --i) folder += "/" + std::string(20 + below(60), 'd');
    device_.make_owned_folder(folder, 0750, user, group);
    device_.write_owned(folder + "/" + std::string(255, 'l'), "deep", 0640, user, group);
  }

  std::string name() {
    static const std::vector<std::string> pieces{
        "a",        "main", " ", ":",  "\xc3\xa9", "e\xcc\x81", "\xff", "\n",       "\\",           "'",
        "File: 1 ", "~",    "-", "%d", "\t",       "\"",        "..",   ".backup.", "\xe2\x82\xac", "\\n"};
    std::string text;
    const unsigned count = 1 + below(4);
    for (unsigned i = 0; i < count; ++i) text += pieces[below(static_cast<unsigned>(pieces.size()))];
    // Names that repeat would only overwrite each other, and these two are taken.
    text += std::to_string(next_++);
    return below(4) == 0 ? text + pieces[below(static_cast<unsigned>(pieces.size()))] : text;
  }

  unsigned below(unsigned limit) { return static_cast<unsigned>(random_()) % limit; }

 private:
  void add_item(const std::string& path, int depth, uid_t user, gid_t group) {
    switch (below(6)) {
      case 0:
        device_.make_owned_link(path, below(2) == 0 ? "../" + name() : "/" + name(), user, group);
        break;
      case 1:
      case 2:
        device_.make_owned_folder(path, 0770, user, group);
        if (depth > 0) fill(path, depth - 1, user, group);
        set_mode(path);
        break;
      default:
        device_.write_owned(path, content(), 0600, user, group);
        set_mode(path);
    }
  }

  void set_mode(const std::string& path) {
    static const std::vector<unsigned> modes{0777, 0750, 0640, 0600, 0444, 0500, 0000, 06755, 01777, 0007};
    if (::chmod(device_.outside(path).c_str(), modes[below(static_cast<unsigned>(modes.size()))]) == -1) {
      throw std::system_error(errno, std::generic_category(), path);
    }
  }

  std::string content() {
    std::string bytes(below(3) == 0 ? 512 * below(4) : below(5000), '\0');
    for (char& byte : bytes) byte = static_cast<char>(random_());
    return bytes;
  }

  ApplicationDevice& device_;
  std::mt19937 random_;
  unsigned next_ = 0;
};

/// What a restore makes of the applications' folders: permissions that were there and may be.
Snapshot as_restored(Snapshot tree, mode_t mask) {
  for (auto& [path, item] : tree) {
    if (!S_ISLNK(item.mode)) item.mode = (item.mode & S_IFMT) | (item.mode & mask);
  }
  return tree;
}

/// The same of an application's data: of logs and temporary files only the folders.
Snapshot data_as_restored(const Snapshot& tree) {
  Snapshot restored = as_restored(tree, 0770);
  std::erase_if(restored, [](const auto& entry) {
    return entry.first != "data" && entry.first != "logs" && entry.first != "tmp" &&
           !entry.first.starts_with("data/");
  });
  return restored;
}

/// With other owners: an application that is new to a device gets a group from its installer.
Snapshot given_to(Snapshot tree, uid_t user, gid_t group) {
  for (auto& [path, item] : tree) {
    item.owner = user;
    item.group = group;
  }
  return tree;
}

class AppRoundTrip : public testing::TestWithParam<int> {
 protected:
  void fill() {
    for (const InstalledApplication& each : applications_) {
      device_.install(each);
      device_.make_data(each);
      trees_.fill(each.folder(), 3, device_.user("apps"), each.group);
      trees_.dig(each.folder(), device_.user("apps"), each.group);
      for (const char* folder : {"/data", "/logs", "/tmp"}) {
        trees_.fill(each.data() + folder, 3, each.data_user(), each.group);
      }
      trees_.dig(each.data() + "/data", each.data_user(), each.group);
    }
  }

  void expect_restored(ApplicationDevice& device) {
    for (std::size_t i = 0; i < applications_.size(); ++i) {
      const InstalledApplication& each = applications_[i];
      const gid_t group = device.snapshot("/apps").at(each.id).group;
      EXPECT_GE(group, 10000U);
      if (each.extras.find("shopvale") != std::string::npos) {
        EXPECT_EQ(
            difference(given_to(binaries_[i], device.user("apps"), group), device.snapshot(each.folder())),
            "")
            << each.id;
      }
      EXPECT_EQ(device.snapshot(APPLICATION_DATA).at(each.id),
                (Item{S_IFDIR | 0770U, device.user("apps"), group, ""}))
          << each.id;
      EXPECT_EQ(difference(given_to(data_[i], group * 10000 + 1000, group), device.snapshot(each.data())), "")
          << each.id;
    }
  }

  unsigned seed_ = chosen_seed();
  ApplicationDevice device_;
  RandomTrees trees_{device_, seed_};
  std::vector<InstalledApplication> applications_{
      {.id = "shop.app", .package = "shop.app.pkg", .group = 10200, .extras = "source::shopvale"},
      {.id = "side app", .package = "side.app.pkg", .group = 10201, .extras = "source::sideload"},
      {.id = "sh\xc3\xb6p", .package = "sh\xff.pkg", .group = 10202, .extras = "a:b:c,source::shopvale"}};
  std::vector<Snapshot> binaries_;
  std::vector<Snapshot> data_;
};

TEST_P(AppRoundTrip, BringsBackEveryNameByteLinkOwnerAndMode) {
  SCOPED_TRACE("HARBIX_TEST_SEED=" + std::to_string(seed_));
  std::cout << "seed " << seed_ << '\n';
  fill();
  for (const InstalledApplication& each : applications_) {
    binaries_.push_back(as_restored(device_.snapshot(each.folder()), 0750));
    data_.push_back(data_as_restored(device_.snapshot(each.data())));
  }
  const Outcome backup = device_.harbix({"-f", "/tmp/a.tar", "app"});
  ASSERT_EQ(backup.status, 0) << backup.errors;

  // Applications and data are still there.
  Outcome restore = device_.harbix({"-r", "-f", "/tmp/a.tar", "app"});
  EXPECT_EQ(restore.status, 0) << restore.errors;
  expect_restored(device_);

  // Everything is gone that the installer does not keep.
  ASSERT_EQ(device_.shell("rm -rf /accounts/1000/appdata/* /apps/shop.app").status, 0);
  restore = device_.harbix({"-r", "app"}, device_.read("/tmp/a.tar"));
  EXPECT_EQ(restore.status, 0) << restore.errors;
  expect_restored(device_);

  // A device that has never seen the storefront applications, whose installer has given their groups away.
  ApplicationDevice fresh;
  fresh.install({.id = "first", .package = "first.pkg", .group = 10000, .extras = "source::sideload"});
  InstalledApplication loaded = applications_[1];
  loaded.group = 10202;
  fresh.install(loaded);
  restore = fresh.harbix({"-r", "app"}, device_.read("/tmp/a.tar"));
  EXPECT_EQ(restore.status, 0) << restore.errors;
  expect_restored(fresh);
  EXPECT_EQ(fresh.snapshot("/apps").at(loaded.id).group, 10202U);

  // The archive of what came back lists the same.
  ASSERT_EQ(device_.harbix({"-f", "/tmp/b.tar", "app"}).status, 0);
  std::vector<std::string> first = device_.names("/tmp/a.tar");
  std::vector<std::string> second = device_.names("/tmp/b.tar");
  EXPECT_THAT(second, testing::UnorderedElementsAreArray(first));
}

INSTANTIATE_TEST_SUITE_P(Devices, AppRoundTrip, testing::Range(0, 4));

}  // namespace
}  // namespace harbix::test
