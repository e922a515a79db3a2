#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class MediaRestore : public testing::Test {
 protected:
  static std::string dtm(const std::string& path) { return std::string(DTM) + "/" + path; }

  Outcome restore(const std::string& archive, std::vector<std::string> options = {}) {
    options.insert(options.end(), {"-r", "media"});
    return device_.harbix(options, archive);
  }

  Device device_;
};

TEST_F(MediaRestore, PutsFilesInTheirPlaces) {
  const Outcome outcome = restore(TarBuilder()
                                      .file("/media/Music/.backup.metadata", "File: 1\nMusic\n\n", 0700)
                                      .folder("/media/Music/")
                                      .file("/media/Music/a.mp3", "music", 0664)
                                      .file("/media/bookmarks/x.html", "bookmark")
                                      .file("/dtm/f/y", "dtm", 0660)
                                      .file("/dtmx/a", "prefix")
                                      .text());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, "Relocating: /media/bookmarks/x.html to: ./misc/lost_and_found/\n");
  EXPECT_EQ(device_.read(shared("Music/a.mp3")), "music");
  EXPECT_EQ(device_.read(shared("misc/lost_and_found/bookmarks/x.html")), "bookmark");
  EXPECT_EQ(device_.read(dtm("f/y")), "dtm");
  EXPECT_EQ(device_.read(dtm("x/a")), "prefix");
  EXPECT_FALSE(device_.exists(shared("Music/.backup.metadata")));

  const Snapshot media = device_.snapshot(SHARED);
  EXPECT_EQ(media.at("Music/a.mp3").mode, S_IFREG | 0660U);
  EXPECT_EQ(media.at("Music/a.mp3").owner, device_.user("media"));
  EXPECT_EQ(media.at("Music/a.mp3").group, device_.group("1000_shared"));
  EXPECT_EQ(media.at("misc").mode, S_IFDIR | 0770U);
  EXPECT_EQ(media.at("misc").owner, device_.user("media"));
  const Snapshot share = device_.snapshot(DTM);
  EXPECT_EQ(share.at("f/y").owner, 0U);
  EXPECT_EQ(share.at("f/y").group, device_.group("1000_sys"));
}

TEST_F(MediaRestore, RelocatesOnlyWhatLiesBelowTheBookmarks) {
  const Outcome outcome = restore(TarBuilder()
                                      .folder("/media/bookmarks/")
                                      .file("/media/bookmarks2/x.html", "other")
                                      .file("/media/bookmarks/deep/x.html", "deep")
                                      .text());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_TRUE(device_.exists(shared("bookmarks")));
  EXPECT_EQ(device_.read(shared("bookmarks2/x.html")), "other");
  EXPECT_EQ(device_.read(shared("misc/lost_and_found/bookmarks/deep/x.html")), "deep");
}

TEST_F(MediaRestore, EmptiesTheSharedFoldersFirst) {
  device_.write(shared("Music/old/deep/a.mp3"), "old");
  device_.write(shared("Music/.hidden"), "old");
  device_.link(shared("Music/link"), "/etc/passwd");
  device_.write(shared("top.mp3"), "top");
  device_.make_folder(shared("Empty"));
  const Outcome outcome = restore(TarBuilder().file("/media/Photos/b.jpg", "photo").text(), {"-d", "4"});
  EXPECT_EQ(outcome.status, 0);
  std::vector<std::string> left;
  for (const auto& [path, item] : device_.snapshot(SHARED)) left.push_back(path);
  EXPECT_THAT(left, ElementsAre("Empty", "Music", "Photos", "Photos/b.jpg", "top.mp3"));
  EXPECT_TRUE(device_.exists("/etc/passwd"));
  EXPECT_THAT(device_.logged(LOG_PRIORITY_DEBUG), Contains("harbix_media_wipe"));
  EXPECT_THAT(device_.logged(LOG_PRIORITY_INFO),
              testing::IsSupersetOf({"Unlinking content of '" + shared("Music") + "'",
                                     "Unlinking '" + shared("Music/old/deep/a.mp3") + "'"}));
  EXPECT_THAT(device_.logged(LOG_PRIORITY_WARNING),
              ElementsAre("Error while unlinking content: " + shared("top.mp3")));
}

TEST_F(MediaRestore, LeavesFoldersWhoseNamesBeginWithADotAsTheyAre) {
  device_.write(shared(".thumbnails/small"), "kept");
  device_.write(shared("Music/.hidden"), "old");
  EXPECT_EQ(restore(TarBuilder().text(), {"-d", "3"}).status, 0);
  EXPECT_EQ(device_.read(shared(".thumbnails/small")), "kept");
  EXPECT_FALSE(device_.exists(shared("Music/.hidden")));
  EXPECT_THAT(device_.logged(test::LOG_PRIORITY_INFO),
              testing::IsSupersetOf({"Unlinking content of '" + shared(".thumbnails") + "'",
                                     std::string("skip"), "Unlinking '" + shared("Music/.hidden") + "'"}));
}

TEST_F(MediaRestore, OfAnArchiveWithoutMediaStillEmptiesTheFolders) {
  device_.write(shared("Music/a.mp3"), "old");
  EXPECT_EQ(restore(TarBuilder().text()).status, 0);
  EXPECT_TRUE(device_.exists(shared("Music")));
  EXPECT_FALSE(device_.exists(shared("Music/a.mp3")));
}

TEST_F(MediaRestore, SparesProtectedAndUnreadableItems) {
  device_.write(shared("Music/guarded/inside"), "inside");
  device_.own(shared("Music/guarded"), "media", "protected_media");
  device_.write(shared("Music/locked"), "locked", 0000);
  device_.write(shared("Music/sub/locked"), "locked", 0000);
  const Outcome outcome = restore(TarBuilder()
                                      .file("/media/Music/guarded/inside", "new")
                                      .file("/media/Music/locked", "new")
                                      .file("/media/Music/fresh", "new")
                                      .text(),
                                  {"-v", "-d", "4"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(device_.read(shared("Music/guarded/inside")), "inside");
  EXPECT_EQ(device_.read(shared("Music/locked")), "locked");
  EXPECT_EQ(device_.read(shared("Music/fresh")), "new");
  EXPECT_THAT(outcome.errors, HasSubstr("Restoring: ./Music/locked\nSkipping ./Music/locked\n"));
  EXPECT_THAT(outcome.errors, HasSubstr("Restoring: ./Music/fresh\n"));
  EXPECT_THAT(device_.logged(LOG_PRIORITY_DEBUG), Contains("Skipping ./Music/locked"));
  EXPECT_THAT(device_.logged(LOG_PRIORITY_WARNING),
              testing::IsSupersetOf({"can't access: '" + shared("Music/locked") + "'; skipping.",
                                     "Failed to rmdir '" + shared("Music/sub") + "' (Directory not empty)",
                                     "Skipped '" + shared("Music/sub") + "'"}));
}

TEST_F(MediaRestore, OverwritesFilesOfTheDtmShare) {
  device_.write(dtm("f/y"), "old and longer");
  EXPECT_EQ(restore(TarBuilder().file("/dtm/f/y", "new").text()).status, 0);
  EXPECT_EQ(device_.read(dtm("f/y")), "new");
}

TEST_F(MediaRestore, EndsAtAnEntryOfAnotherKind) {
  const Outcome outcome =
      restore(TarBuilder().file("/media/M/a", "a").file("/other/b", "b").file("/media/M/c", "c").text());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "Error: Path '/other/b' is not subdirectory of '/media'\n");
  EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR),
              ElementsAre("Error occured: 'Path '/other/b' is not subdirectory of '/media''"));
  EXPECT_TRUE(device_.exists(shared("M/a")));
  EXPECT_FALSE(device_.exists(shared("M/c")));
}

TEST_F(MediaRestore, SparesTheArchiveThatItReads) {
  device_.write(shared("Music/a.mp3"), "music");
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "media"}).status, 0);
  std::filesystem::rename(device_.outside("/tmp/a.tar"), device_.outside(shared("Music/a.tar")));
  device_.own(shared("Music/a.tar"), "media", "1000_shared");
  for (const char* way :
       {"-r -f /accounts/1000/shared/Music/a.tar media", "-r media < /accounts/1000/shared/Music/a.tar"}) {
    EXPECT_EQ(device_.shell("harbix " + std::string(way)).status, 0);
    EXPECT_EQ(device_.read(shared("Music/a.mp3")), "music");
    EXPECT_TRUE(device_.exists(shared("Music/a.tar")));
  }
}

TEST_F(MediaRestore, PassesOverThePackagesOfEarlierKeywords) {
  EXPECT_EQ(restore(TarBuilder()
                        .file("/app/com.example/appdata/.backup.metadata", "Package: com.example\n\n")
                        .file("/app/com.example/appdata/data/x", "x")
                        .file("/media/Music/.backup.metadata", "File: 1\nMusic\n\n")
                        .file("/media/Music/a", "a")
                        .text())
                .status,
            0);
  EXPECT_EQ(device_.read(shared("Music/a")), "a");
}

TEST_F(MediaRestore, TakesWhateverTarsWrite) {
  device_.write("/tmp/in/media/Music/caf\xc3\xa9", "gnu");
  device_.write("/tmp/in/media/Music/" + std::string(200, 'l'), "long");
  for (const char* tar :
       {"tar --format=gnu -C /tmp/in -c .", "tar --format=pax -C /tmp/in -c .", "bsdtar -C /tmp/in -c ."}) {
    // Names in the archive begin with "/media", as in archives of our own.
    const Outcome outcome = device_.shell(
        std::string(tar).replace(std::string(tar).find(" -c ."), 5, " -P -c -s ,^media,/media, media") +
        " | cat > /tmp/x.tar");
    if (std::string(tar).starts_with("tar")) {
      ASSERT_EQ(device_.shell("tar -P --transform 's,^media,/media,' -C /tmp/in -cf /tmp/x.tar media").status,
                0);
    }
    EXPECT_EQ(device_.harbix({"-r", "-f", "/tmp/x.tar", "media"}).status, 0);
    EXPECT_EQ(device_.read(shared("Music/caf\xc3\xa9")), "gnu");
    EXPECT_EQ(device_.read(shared("Music/" + std::string(200, 'l'))), "long");
  }
}

TEST_F(MediaRestore, SettlesTheModesOfFolders) {
  EXPECT_EQ(restore(TarBuilder()
                        .folder("/media/M/", 0770)
                        .folder("/media/M/readonly/", 0550)
                        .file("/media/M/readonly/inside", "inside", 0440)
                        .file("/media/M/setid", "s", 06775)
                        .text())
                .status,
            0);
  const Snapshot media = device_.snapshot(SHARED);
  EXPECT_EQ(media.at("M/readonly").mode, S_IFDIR | 0550U);
  EXPECT_EQ(media.at("M/readonly/inside").content, "inside");
  EXPECT_EQ(media.at("M/readonly/inside").mode, S_IFREG | 0440U);
  EXPECT_EQ(media.at("M/setid").mode, S_IFREG | 0770U);
}

TEST_F(MediaRestore, NeedsItsFolders) {
  std::filesystem::remove_all(device_.outside(SHARED));
  const Outcome outcome = restore(TarBuilder().file("/media/M/a", "a").text());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors,
            "Error: Failed to chdir to '/accounts/1000/shared' [errno:2 'No such file or directory']\n");
}

TEST_F(MediaRestore, LeavesTheProcessAsItWas) {
  // What the shell finds after the run is what it had before; inside, the last log line is sent by root in
  // "/".
  EXPECT_EQ(restore(TarBuilder().file("/media/M/a", "a").file("/dtm/b", "b").text(), {"-d", "2"}).status, 0);
  EXPECT_THAT(device_.logged(LOG_PRIORITY_NOTICE), Contains("Restoring media finished. Return:0"));
  EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), IsEmpty());
}

}  // namespace
}  // namespace harbix::test
