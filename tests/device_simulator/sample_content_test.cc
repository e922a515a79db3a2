#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "device/content/media_share.h"
#include "device/content/random.h"
#include "device/content/sample.h"
#include "device/well_known_folders.h"
#include "tests/support/device_process.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using testing::HasSubstr;

void write_device(const TemporaryFolder& folder) {
  device::TreeWriter tree(folder / "");
  device::write_well_known_folders(tree);
  device::write_sample_content(tree);
  tree.finish();
}

struct Item {
  std::string path;
  struct stat status = {};
};

class SampleContent : public testing::Test {
 protected:
  void SetUp() override {
    REQUIRE_ROOT();
    write_device(folder_);
    const std::string share = folder_ / "accounts/1000/shared";
    for (const auto& entry : std::filesystem::recursive_directory_iterator(share)) {
      Item item{.path = entry.path().string().substr(share.size() + 1)};
      ASSERT_EQ(::lstat(entry.path().c_str(), &item.status), 0);
      media_.push_back(item);
    }
  }

  [[nodiscard]] auto count(const std::function<bool(const Item&)>& matches) const {
    return std::count_if(media_.begin(), media_.end(), matches);
  }

  TemporaryFolder folder_;
  std::vector<Item> media_;
};

TEST_F(SampleContent, IsTheSameEveryTime) {
  const TemporaryFolder other;
  write_device(other);
  EXPECT_EQ(listing(folder_ / ""), listing(other / ""));
}

TEST_F(SampleContent, HasAFewHundredFilesOfManySizes) {
  const auto is_file = [](const Item& item) { return S_ISREG(item.status.st_mode); };
  EXPECT_GT(count(is_file), 250);
  EXPECT_LT(count(is_file), 600);
  for (const off_t size : {0, 1, 511, 512, 513}) {
    EXPECT_GE(count([&](const Item& item) { return is_file(item) && item.status.st_size == size; }), 1)
        << size;
  }
  EXPECT_GE(count([&](const Item& item) { return is_file(item) && item.status.st_size > 1 << 20; }), 3);
  EXPECT_GE(count([](const Item& item) { return item.status.st_size > item.status.st_blocks * 512 + 65536; }),
            1)
      << "no file with a hole";
}

TEST_F(SampleContent, HasNamesOfManyKinds) {
  const auto has = [&](const std::string& name) {
    return count([&](const Item& item) { return item.path.substr(item.path.rfind('/') + 1) == name; }) == 1;
  };
  for (const char* name : {"caf\xc3\xa9.txt", "cafe\xcc\x81.txt", "caf\xe9 latin-1.txt", "Fotos M\xfcnchen",
                           "blank behind ", " blank in front.txt", "-leading dash", "a:b",
                           "colon:", "back\\slash", "new\nline", "newline\n", "'single' \"double\" `back`"}) {
    EXPECT_TRUE(has(name)) << name;
  }
  EXPECT_TRUE(has(std::string(255, 'l')));
  EXPECT_TRUE(has(std::string(255, 'f')));
}

TEST_F(SampleContent, HasItemsThatABackupSkips) {
  const auto is_protected = [](const Item& item) {
    return item.status.st_gid == device::PROTECTED_MEDIA_GROUP;
  };
  EXPECT_GE(count([&](const Item& item) { return is_protected(item) && S_ISDIR(item.status.st_mode); }), 2);
  EXPECT_GE(count([&](const Item& item) { return is_protected(item) && S_ISREG(item.status.st_mode); }), 3);
  const auto is_locked = [](const Item& item) { return (item.status.st_mode & 07777) == 0; };
  EXPECT_GE(count([&](const Item& item) { return is_locked(item) && S_ISDIR(item.status.st_mode); }), 3);
  EXPECT_GE(count([&](const Item& item) { return is_locked(item) && S_ISREG(item.status.st_mode); }), 3);
  EXPECT_GE(count([](const Item& item) { return S_ISLNK(item.status.st_mode); }), 8);
}

TEST_F(SampleContent, BelongsToTheMediaUserAndASharedGroup) {
  for (const Item& item : media_) {
    EXPECT_EQ(item.status.st_uid, device::MEDIA_USER) << item.path;
    EXPECT_TRUE(item.status.st_gid == device::SHARED_GROUP ||
                item.status.st_gid == device::PROTECTED_MEDIA_GROUP)
        << item.path;
    // A run with the umask 007 can bring it back as it was.
    if (S_ISLNK(item.status.st_mode)) continue;
    EXPECT_EQ(item.status.st_mode & 0007, 0U) << item.path;
  }
}

struct DatabaseCloser {
  void operator()(sqlite3* database) const noexcept { sqlite3_close(database); }
};

TEST_F(SampleContent, MatchesItsMediaLibrary) {
  std::map<int, std::pair<int, std::int64_t>> expected;
  for (const Item& item : media_) {
    if (!S_ISREG(item.status.st_mode) || item.status.st_gid != device::SHARED_GROUP) continue;
    if ((item.status.st_mode & S_IRUSR) == 0 || item.path.find("ocked/") != std::string::npos) continue;
    auto& [files, bytes] = expected[static_cast<int>(device::media_type(item.path))];
    ++files;
    bytes += item.status.st_size;
  }
  sqlite3* opened = nullptr;
  ASSERT_EQ(sqlite3_open((folder_ / "accounts/1000/db/mmlibrary.db").c_str(), &opened), SQLITE_OK);
  const std::unique_ptr<sqlite3, DatabaseCloser> database(opened);
  std::map<int, std::pair<int, std::int64_t>> found;
  const auto take_row = [](void* map, int, char** values, char**) {
    (*static_cast<decltype(found)*>(map))[std::stoi(values[0])] = {std::stoi(values[1]),
                                                                   std::stoll(values[2])};
    return 0;
  };
  ASSERT_EQ(sqlite3_exec(database.get(), "select ftype, count(*), sum(size) from files group by ftype;",
                         take_row, &found, nullptr),
            SQLITE_OK);
  EXPECT_EQ(found, expected);
  for (const int type : {1, 2, 4, 6, 9}) EXPECT_TRUE(found.contains(type)) << type;
}

TEST_F(SampleContent, HasADtmShareOfRootAndTheSystemGroup) {
  const std::string text = listing(folder_ / "accounts/1000/sys/dtm");
  EXPECT_THAT(text, HasSubstr("\n/revision 100660 0:10002 "));
  EXPECT_THAT(text, HasSubstr("\n/latest 120777 0:10002 "));
  EXPECT_THAT(text, HasSubstr("\n/contacts/avatars 40770 0:10002 "));
}

TEST_F(SampleContent, HasSubscriberScriptsThatNoteTheirArgument) {
  const Outcome result = run_device(
      {"sh", "-c",
       "cd /base/scripts/backup_and_restore; ./media-server backup_start; settings/display restore_end;"
       "cat /var/log/subscribers.log"});
  EXPECT_EQ(result.output, "media-server backup_start\ndisplay restore_end\n");
}

TEST(BareDevice, HasNoSampleContent) {
  REQUIRE_ROOT();
  EXPECT_EQ(run_device({"--bare", "find", "/accounts/1000/shared", "/accounts/1000/sys/dtm",
                        "/accounts/1000/db", "/base/scripts/backup_and_restore", "-mindepth", "1"})
                .output,
            "/base/scripts/backup_and_restore/settings\n");
}

TEST(MediaType, GoesByTheExtension) {
  using device::media_type;
  using device::MediaType;
  EXPECT_EQ(media_type("a.mp3"), MediaType::audio);
  EXPECT_EQ(media_type("b/a.b.mp4"), MediaType::video);
  EXPECT_EQ(media_type("a.jpg"), MediaType::photo);
  EXPECT_EQ(media_type("a.amr"), MediaType::recording);
  EXPECT_EQ(media_type("mp3"), MediaType::other);
  EXPECT_EQ(media_type("a.MP3"), MediaType::other);
}

TEST(Random, IsTheSameOnEveryMachine) {
  EXPECT_EQ(device::hash(""), 0xcbf29ce484222325U);
  EXPECT_EQ(device::hash("a"), 0xaf63dc4c8601ec8cU);
  device::Random random(std::uint64_t{1234567});
  EXPECT_EQ(random.next(), 6457827717110365317U);
  EXPECT_EQ(random.next(), 3203168211198807973U);
  EXPECT_EQ(device::Random("x").bytes(11), device::Random("x").bytes(16).substr(0, 11));
}

}  // namespace
}  // namespace harbix::test
