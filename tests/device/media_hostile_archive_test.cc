#include <sys/stat.h>

#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

using testing::HasSubstr;

/// Restores crafted archives, and holds the whole device outside of the two media places against what it was.
class HostileArchive : public testing::Test {
 protected:
  HostileArchive() {
    device_.write("/tmp/victim/file", "untouched");
    device_.write(shared("Old/photo"), "old");
  }

  Outcome restore(const std::string& archive) {
    const Snapshot before = rest_of_device();
    Outcome outcome = device_.harbix({"-r", "media"}, archive);
    EXPECT_EQ(difference(before, rest_of_device()), "");
    EXPECT_LT(outcome.status, 128) << outcome.errors;
    return outcome;
  }

  Snapshot rest_of_device() {
    Snapshot rest;
    for (const char* folder : {"/accounts", "/apps", "/base", "/etc", "/root", "/tmp", "/var"}) {
      for (auto& [path, item] : device_.snapshot(folder)) {
        const std::string full = std::string(folder) + "/" + path;
        if (!full.starts_with(SHARED) && !full.starts_with(DTM)) rest.emplace(full, std::move(item));
      }
    }
    return rest;
  }

  Device device_;
};

TEST_F(HostileArchive, CannotClimbOutByDots) {
  const Outcome outcome = restore(TarBuilder()
                                      .file("/media/../../../../tmp/evil", "evil")
                                      .file("/media/M/../../../../tmp/evil", "evil")
                                      .file("/dtm/../../../../tmp/evil", "evil")
                                      .file("/dtm../../../../tmp/evil", "evil")
                                      .file("/media/..", "evil")
                                      .file("/media//tmp/victim/file", "inside")
                                      .file("/media/M/last", "last")
                                      .text());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("/../../../../tmp/evil: Path contains '..'\n"));
  EXPECT_EQ(device_.read(shared("M/last")), "last");
  EXPECT_EQ(device_.read(shared("tmp/victim/file")), "inside");
}

TEST_F(HostileArchive, CannotGoThroughItsOwnLinks) {
  const Outcome outcome = restore(TarBuilder()
                                      .link("/media/M/out", "/tmp/victim")
                                      .file("/media/M/out/evil", "evil")
                                      .file("/media/M/out/file", "evil")
                                      .link("/media/M/up", "../../../../tmp/victim")
                                      .file("/media/M/up/evil", "evil")
                                      .link("/media/M/a", "b")
                                      .link("/media/M/b", "/tmp/victim")
                                      .file("/media/M/a/evil", "evil")
                                      .link("/dtm/out", "/tmp/victim")
                                      .file("/dtm/out/file", "evil")
                                      .file("/dtm/out/evil", "evil")
                                      .link("/media/top", "/tmp/victim/file")
                                      .file("/media/top", "evil")
                                      .link("/dtm/direct", "/tmp/victim/file")
                                      .file("/dtm/direct", "evil")
                                      .file("/media/M/last", "last")
                                      .text());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(device_.read("/tmp/victim/file"), "untouched");
  EXPECT_EQ(device_.read(shared("M/last")), "last");
  EXPECT_EQ(device_.snapshot(SHARED).at("M/out").content, "/tmp/victim");
}

TEST_F(HostileArchive, CannotGoThroughLinksThatWereThere) {
  ASSERT_EQ(device_
                .shell("ln -s /tmp/victim /accounts/1000/shared/TopLink; ln -s /tmp/victim "
                       "/accounts/1000/sys/dtm/link")
                .status,
            0);
  EXPECT_EQ(restore(TarBuilder()
                        .file("/media/TopLink/evil", "evil")
                        .file("/dtm/link/evil", "evil")
                        .file("/dtm/link/file", "evil")
                        .file("/media/M/last", "last")
                        .text())
                .status,
            1);
  EXPECT_EQ(device_.read(shared("M/last")), "last");
}

TEST_F(HostileArchive, BringsNoHardLinksDevicesOrFifos) {
  const Outcome outcome =
      restore(TarBuilder()
                  .add(TarBuilder::HARD_LINK, "/media/M/hard", "", 0660, "/tmp/victim/file")
                  .add(TarBuilder::HARD_LINK, "/dtm/hard", "", 0660, "../../../../tmp/victim/file")
                  .add(TarBuilder::CHARACTER_DEVICE, "/media/M/null", "", 0666)
                  .add(TarBuilder::BLOCK_DEVICE, "/dtm/disk", "", 0666)
                  .add(TarBuilder::FIFO, "/media/M/fifo", "", 0666)
                  .file("/media/M/last", "last")
                  .text());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "");
  std::vector<std::string> media;
  for (const auto& [path, item] : device_.snapshot(SHARED)) media.push_back(path);
  EXPECT_THAT(media, testing::ElementsAre("M", "M/last", "Old"));
  EXPECT_THAT(device_.snapshot(DTM), testing::IsEmpty());
}

TEST_F(HostileArchive, BringsNoSetIdBits) {
  EXPECT_EQ(restore(TarBuilder()
                        .file("/media/M/s", "s", 06777)
                        .file("/dtm/s", "s", 06777)
                        .folder("/dtm/d/", 07777)
                        .text())
                .status,
            0);
  EXPECT_EQ(device_.snapshot(SHARED).at("M/s").mode, S_IFREG | 0770U);
  EXPECT_EQ(device_.snapshot(DTM).at("s").mode, S_IFREG | 0770U);
  EXPECT_EQ(device_.snapshot(DTM).at("d").mode, S_IFDIR | 0770U);
}

TEST_F(HostileArchive, MayClaimSizesBeyondItsEnd) {
  const std::uint64_t huge = (std::uint64_t{1} << 33) - 1;
  const Outcome outcome = restore(TarBuilder()
                                      .file("/media/M/first", "first")
                                      .add(TarBuilder::FILE, "/media/M/huge", "short", 0660, "", huge)
                                      .text());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "Error: Extracting data for './M/huge' failed ('%s')\n");
  EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR),
              testing::Contains("Failed restoring './M/huge' due to 'Truncated tar archive'"));
  EXPECT_EQ(device_.read(shared("M/first")), "first");
}

TEST_F(HostileArchive, MayClaimAHugeManifest) {
  EXPECT_EQ(
      restore(TarBuilder()
                  .add(TarBuilder::FILE, "/media/M/.backup.metadata", "x", 0660, "", std::uint64_t{1} << 32)
                  .text())
          .status,
      1);
}

TEST_F(HostileArchive, ThatIsNoArchiveRemovesNothing) {
  struct Row {
    std::string archive;
    int status;
    std::string errors;
  };
  const std::string unrecognized = "ERROR: Archive error: Unrecognized archive format\n";
  for (const Row& row :
       {Row{"", 2, "ERROR: Archive error: The archive is empty\n"}, Row{"hello\n", 2, unrecognized},
        Row{std::string(4096, 'x'), 2, unrecognized},
        Row{"#mtree v2.0\n/media/M/leak type=file contents=/etc/passwd mode=0644\n", 2, unrecognized},
        Row{std::string(512, 'x') + TarBuilder().file("/media/M/a", "a").text(), 2, unrecognized}}) {
    const Outcome outcome = restore(row.archive);
    EXPECT_EQ(outcome.status, row.status);
    EXPECT_EQ(outcome.errors, row.errors);
    EXPECT_EQ(device_.read(shared("Old/photo")), "old");
  }
}

TEST_F(HostileArchive, CutAnywhereIsNeverASuccess) {
  const std::string archive = TarBuilder()
                                  .folder("/media/M/")
                                  .file("/media/M/first", std::string(600, '1'))
                                  .file("/media/M/second", std::string(100, '2'))
                                  .text();
  for (std::size_t length = 0; length < archive.size(); length += 256) {
    const Outcome outcome = restore(archive.substr(0, length));
    EXPECT_NE(outcome.status, 0) << length;
    EXPECT_NE(outcome.errors, "") << length;
    // Everything before the damage is back.
    if (length >= std::size_t{4} * 512) {
      EXPECT_EQ(device_.read(shared("M/first")), std::string(600, '1')) << length;
    }
  }
  EXPECT_EQ(restore(archive).status, 0);
}

TEST_F(HostileArchive, WithFlippedBitsStaysInItsPlaces) {
  const std::string archive = TarBuilder()
                                  .folder("/media/M/")
                                  .link("/media/M/link", "first")
                                  .file("/media/M/first", "1")
                                  .file("/dtm/second", "2")
                                  .text();
  std::mt19937 random(20);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same damage every time
  for (int round = 0; round < 60; ++round) {
    std::string damaged = archive;
    const std::size_t position = random() % (archive.size() - 1024);
    damaged[position] = static_cast<char>(damaged[position] ^ (1 << (random() % 8)));
    const Outcome outcome = restore(damaged);
    EXPECT_LE(outcome.status, 2) << "byte " << position;
  }
}

}  // namespace
}  // namespace harbix::test
