#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"
#include "tests/support/hostile_archives.h"
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
  const Outcome outcome = restore(hostile::media_with_dots().text());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("/../../../../tmp/evil: Path contains '..'\n"));
  EXPECT_EQ(device_.read(shared("M/last")), "last");
  EXPECT_EQ(device_.read(shared("tmp/victim/file")), "inside");
}

TEST_F(HostileArchive, CannotGoThroughItsOwnLinks) {
  const Outcome outcome = restore(hostile::media_through_own_links().text());
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
  EXPECT_EQ(restore(hostile::media_through_links_that_were_there().text()).status, 1);
  EXPECT_EQ(device_.read(shared("M/last")), "last");
}

TEST_F(HostileArchive, BringsNoHardLinksDevicesOrFifos) {
  const Outcome outcome = restore(hostile::media_of_other_kinds().text());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "");
  std::vector<std::string> media;
  for (const auto& [path, item] : device_.snapshot(SHARED)) media.push_back(path);
  EXPECT_THAT(media, testing::ElementsAre("M", "M/last", "Old"));
  EXPECT_THAT(device_.snapshot(DTM), testing::IsEmpty());
}

TEST_F(HostileArchive, BringsNoSetIdBits) {
  EXPECT_EQ(restore(hostile::media_with_set_id_bits().text()).status, 0);
  EXPECT_EQ(device_.snapshot(SHARED).at("M/s").mode, S_IFREG | 0770U);
  EXPECT_EQ(device_.snapshot(DTM).at("s").mode, S_IFREG | 0770U);
  EXPECT_EQ(device_.snapshot(DTM).at("d").mode, S_IFDIR | 0770U);
}

TEST_F(HostileArchive, MayClaimSizesBeyondItsEnd) {
  const Outcome outcome = restore(hostile::media_beyond_the_end().text());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "Error: Extracting data for './M/huge' failed ('%s')\n");
  EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR),
              testing::Contains("Failed restoring './M/huge' due to 'Truncated tar archive'"));
  EXPECT_EQ(device_.read(shared("M/first")), "first");
}

TEST_F(HostileArchive, MayClaimAHugeManifest) {
  EXPECT_EQ(restore(hostile::media_with_a_huge_manifest().text()).status, 1);
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
  for (const hostile::Archive& each : hostile::flipped_archives(hostile::good_media_archive(), 60)) {
    const Outcome outcome = restore(each.bytes);
    EXPECT_LE(outcome.status, 2) << each.what;
  }
}

}  // namespace
}  // namespace harbix::test
