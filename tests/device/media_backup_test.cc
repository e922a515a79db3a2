#include <sys/stat.h>

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"
#include "tests/support/text.h"

namespace harbix::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::UnorderedElementsAre;

class MediaBackup : public testing::Test {
 protected:
  static std::string dtm(const std::string& path) { return std::string(DTM) + "/" + path; }

  Outcome back_up(std::vector<std::string> options = {}) {
    options.insert(options.end(), {"-f", ARCHIVE, "media"});
    return device_.harbix(options);
  }

  /// The archive's names, as another tar reads them.
  std::vector<std::string> names(const std::string& tar = "tar --quoting-style=literal -Ptf") {
    const Outcome outcome = run_program({"bash", "-c", tar + " \"$1\"", "bash", device_.outside(ARCHIVE)});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    return lines_of(outcome.output);
  }

  std::string content(const std::string& name) {
    return run_program({"tar", "-PxOf", device_.outside(ARCHIVE), name}).output;
  }

  static constexpr char ARCHIVE[] = "/tmp/a.tar";
  Device device_;
};

TEST_F(MediaBackup, WritesPackagesThatOtherTarsRead) {
  device_.write(shared("Music/a.mp3"), "music");
  device_.make_folder(shared("Music/empty"));
  device_.link(shared("Music/link"), "a.mp3");
  device_.write(shared("Photos/b.jpg"), "photo");
  device_.write(dtm("folder/file"), "dtm");
  device_.write(dtm("plain"), "plain");
  device_.link(dtm("link"), "plain");
  const Outcome outcome = back_up();
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output + outcome.errors, "");
  const std::vector<std::string> expected{"/media/Music/.backup.metadata",
                                          "/media/Music/",
                                          "/media/Music/a.mp3",
                                          "/media/Music/empty/",
                                          "/media/Music/link",
                                          "/media/Photos/.backup.metadata",
                                          "/media/Photos/",
                                          "/media/Photos/b.jpg",
                                          "/dtm/folder/.backup.metadata",
                                          "/dtm/folder/",
                                          "/dtm/folder/file",
                                          "/dtm/plain/.backup.metadata",
                                          "/dtm/plain"};
  EXPECT_THAT(names(), testing::UnorderedElementsAreArray(expected));
  EXPECT_EQ(names(), names("bsdtar -Ptf"));
}

TEST_F(MediaBackup, BeginsEachPackageWithItsManifest) {
  device_.write(shared("Music/a.mp3"), "music");
  ASSERT_EQ(back_up().status, 0);
  EXPECT_EQ(names()[0], "/media/Music/.backup.metadata");
  struct ::stat folder {};
  ASSERT_EQ(::lstat(device_.outside(shared("Music")).c_str(), &folder), 0);
  EXPECT_EQ(content("/media/Music/.backup.metadata"),
            "File: " + std::to_string(folder.st_size) + "\nMusic\nFile: 5\nMusic/a.mp3\n\n");
  const Outcome listing = run_program(
      {"tar", "--numeric-owner", "-Ptvf", device_.outside(ARCHIVE), "/media/Music/.backup.metadata"});
  EXPECT_THAT(listing.output, testing::StartsWith("-rwx------ 0/0 "));
}

TEST_F(MediaBackup, IsUnblockedTar) {
  device_.write(shared("Music/a.mp3"), std::string(1000, 'x'));
  ASSERT_EQ(back_up().status, 0);
  const std::string archive = device_.read(ARCHIVE);
  // Manifest header and block, folder, file header and two blocks, and an end mark of two blocks.
  EXPECT_EQ(archive.size(), (1 + 1 + 1 + 1 + 2 + 2) * 512U);
  EXPECT_EQ(archive.substr(archive.size() - 1024), std::string(1024, '\0'));
}

TEST_F(MediaBackup, GoesToStandardOutputByDefault) {
  device_.write(shared("Music/a.mp3"), "music");
  const Outcome to_pipe = device_.harbix({"media"});
  const Outcome dashed = device_.harbix({"-f", "-", "media"});
  ASSERT_EQ(back_up().status, 0);
  EXPECT_EQ(to_pipe.status, 0);
  EXPECT_EQ(to_pipe.output.size(), device_.read(ARCHIVE).size());
  EXPECT_EQ(dashed.output.size(), to_pipe.output.size());
}

TEST_F(MediaBackup, CreatesTheArchiveUnderTheCallersMask) {
  ASSERT_EQ(device_.shell("umask 027; harbix -f /tmp/a.tar media").status, 0);
  struct ::stat record {};
  ASSERT_EQ(::lstat(device_.outside(ARCHIVE).c_str(), &record), 0);
  EXPECT_EQ(record.st_mode & 07777U, 0640U);
  EXPECT_EQ(record.st_uid, 0U);
}

TEST_F(MediaBackup, KeepsNamesByteForByte) {
  const std::vector<std::string> odd{"caf\xc3\xa9", "cafe\xcc\x81", "latin\xe9", std::string(255, 'n'),
                                     " blanks ",    "-dash",        "colon:",    "a: b",
                                     "back\\slash", "new\nline",    "quote\"'",  "tab\there",
                                     "*",           "%s%n"};
  for (const std::string& name : odd) device_.write(shared("Odd/" + name), name);
  ASSERT_EQ(back_up().status, 0);
  const Outcome listing =
      run_program({"bash", "-c", "bsdtar -xPOf \"$1\" | wc -c", "bash", device_.outside(ARCHIVE)});
  EXPECT_EQ(listing.status, 0);
  for (const std::string& name : odd) {
    const Outcome found = run_program(
        {"tar", "--no-wildcards", "--no-unquote", "-PxOf", device_.outside(ARCHIVE), "/media/Odd/" + name});
    EXPECT_EQ(found.output, name) << found.errors;
  }
}

TEST_F(MediaBackup, TakesTopLevelFoldersOfAnyName) {
  const std::vector<std::string> odd{"latin\xe9", "caf\xc3\xa9", "[a]", "new\nline", " x"};
  for (const std::string& name : odd) device_.write(shared(name + "/file"), name);
  ASSERT_EQ(back_up().status, 0);
  for (const std::string& name : odd) {
    const Outcome found = run_program({"tar", "--no-wildcards", "--no-unquote", "-PxOf",
                                       device_.outside(ARCHIVE), "/media/" + name + "/file"});
    EXPECT_EQ(found.output, name) << found.errors;
  }
}

TEST_F(MediaBackup, LeavesOutTopLevelFilesLinksAndHiddenFolders) {
  device_.write(shared("top.mp3"), "top");
  device_.write(shared("Music/a.mp3"), "music");
  device_.link(shared("Link"), "Music");
  device_.write(shared(".hidden/a"), "hidden");
  device_.write(shared("Music/.hidden"), "inside");
  ASSERT_EQ(back_up().status, 0);
  EXPECT_THAT(names(), UnorderedElementsAre("/media/Music/.backup.metadata", "/media/Music/",
                                            "/media/Music/a.mp3", "/media/Music/.hidden"));
}

TEST_F(MediaBackup, DoesNotFollowLinks) {
  device_.write("/etc/secret/file", "secret");
  device_.make_folder(shared("Music"));
  device_.link(shared("Music/out"), "/etc/secret");
  ASSERT_EQ(back_up().status, 0);
  EXPECT_THAT(names(),
              UnorderedElementsAre("/media/Music/.backup.metadata", "/media/Music/", "/media/Music/out"));
}

TEST_F(MediaBackup, SkipsProtectedItemsAndJudgesEachByItself) {
  device_.write(shared("Music/protected"), "p");
  device_.own(shared("Music/protected"), "media", "protected_media");
  device_.write(shared("Music/folder/ordinary"), "o");
  device_.write(shared("Music/folder/protected"), "p");
  device_.own(shared("Music/folder"), "media", "protected_media");
  device_.own(shared("Music/folder/protected"), "media", "protected_media");
  device_.write(shared("Guarded/a"), "a");
  device_.own(shared("Guarded"), "media", "protected_media");

  const Outcome quiet = back_up();
  EXPECT_EQ(quiet.status, 0);
  EXPECT_EQ(quiet.errors, "");
  EXPECT_THAT(device_.log(), testing::IsEmpty());
  EXPECT_THAT(names(), UnorderedElementsAre("/media/Music/.backup.metadata", "/media/Music/",
                                            "/media/Music/folder/ordinary"));
  const std::vector<std::string> told = lines_of(back_up({"-v"}).errors);
  EXPECT_THAT(told, testing::IsSupersetOf({"Skip: Guarded", "Skip: Music/protected", "Skip: Music/folder",
                                           "Skip: Music/folder/protected"}));
}

TEST_F(MediaBackup, SkipsUnreadableItemsAtAnyDepth) {
  device_.write(shared("Music/locked"), "l", 0000);
  device_.write(shared("Music/sub/locked"), "l", 0060);
  device_.write(shared("Music/sub/closed/inside"), "i");
  device_.write(shared("Music/sub/ordinary"), "o", 0400);
  device_.write(shared("Closed/a"), "a");
  ASSERT_EQ(::chmod(device_.outside(shared("Music/sub/closed")).c_str(), 0000), 0);
  ASSERT_EQ(::chmod(device_.outside(shared("Closed")).c_str(), 0000), 0);

  const Outcome outcome = back_up({"-v"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(names(), UnorderedElementsAre("/media/Music/.backup.metadata", "/media/Music/",
                                            "/media/Music/sub/", "/media/Music/sub/ordinary"));
  EXPECT_THAT(
      device_.logged(LOG_PRIORITY_WARNING),
      UnorderedElementsAre("can't access: 'Closed'; skipping.", "can't access: 'Music/locked'; skipping.",
                           "can't access: 'Music/sub/locked'; skipping.",
                           "can't access: 'Music/sub/closed'; skipping."));
  EXPECT_THAT(
      lines_of(outcome.errors),
      testing::IsSupersetOf({"permission denied: Closed skipping", "permission denied: Music/locked skipping",
                             "permission denied: Music/sub/closed skipping"}));
}

TEST_F(MediaBackup, GoesOnPastAFolderThatMayBeReadButNotEntered) {
  device_.write(shared("Music/sub/inside"), "i");
  device_.write(shared("Music/other"), "o");
  ASSERT_EQ(::chmod(device_.outside(shared("Music/sub")).c_str(), 0440), 0);
  EXPECT_EQ(back_up().status, 0);
  EXPECT_THAT(names(), UnorderedElementsAre("/media/Music/.backup.metadata", "/media/Music/",
                                            "/media/Music/sub/", "/media/Music/other"));
}

TEST_F(MediaBackup, LeavesOutWhatNoArchiveCanHoldWithAMessage) {
  device_.write(shared("Music/a"), "a");
  ASSERT_EQ(device_
                .shell("cd /accounts/1000/shared/Music && mkfifo -m 666 fifo && mknod -m 666 null c 1 3 && "
                       "mkfifo -m 666 /accounts/1000/sys/dtm/fifo")
                .status,
            0);
  const Outcome outcome = back_up();
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(names(),
              UnorderedElementsAre("/media/Music/.backup.metadata", "/media/Music/", "/media/Music/a"));
  EXPECT_THAT(content("/media/Music/.backup.metadata"), Not(HasSubstr("fifo")));
  EXPECT_THAT(lines_of(outcome.errors),
              UnorderedElementsAre("not a file, folder or link: Music/fifo skipping",
                                   "not a file, folder or link: Music/null skipping",
                                   "not a file, folder or link: fifo skipping"));
}

TEST_F(MediaBackup, NeverContainsItself) {
  device_.write(shared("Music/a"), "a");
  for (const char* way :
       {"-f /accounts/1000/shared/Music/self.tar media", "media > /accounts/1000/shared/Music/self.tar"}) {
    const Outcome outcome = device_.shell("umask 0; harbix " + std::string(way));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors, "is the archive itself: Music/self.tar skipping\n");
    std::filesystem::rename(device_.outside(shared("Music/self.tar")), device_.outside(ARCHIVE));
    EXPECT_THAT(names(),
                UnorderedElementsAre("/media/Music/.backup.metadata", "/media/Music/", "/media/Music/a"));
    EXPECT_THAT(content("/media/Music/.backup.metadata"), Not(HasSubstr("self.tar")));
  }
}

TEST_F(MediaBackup, GoesOnPastAFileThatVanished) {
  for (int i = 0; i < 3; ++i) device_.write(shared("Music/f" + std::to_string(i)), "content");
  device_.write(shared("Zoo/last"), "last");
  // The archive goes into a fifo that no program reads until the walk is over and a file is gone.
  const Outcome outcome = device_.shell(
      "mkfifo /tmp/fifo; head -c 3000000 /dev/zero > /accounts/1000/shared/Aaa; mkdir "
      "/accounts/1000/shared/A; "
      "mv /accounts/1000/shared/Aaa /accounts/1000/shared/A/big; chown -R media:1000_shared "
      "/accounts/1000/shared/A; "
      "for i in $(seq 100); do echo x > /accounts/1000/shared/A/x$i; done; chmod -R 770 "
      "/accounts/1000/shared/A; "
      "(exec 3</tmp/fifo; sleep 0.4; rm /accounts/1000/shared/A/x*; cat <&3 > /tmp/a.tar) & "
      "harbix -f /tmp/fifo media; echo status $?; wait");
  EXPECT_THAT(outcome.output, HasSubstr("status 0"));
  // Whether a file was archived before or after the others vanished is the file system's choice of order.
  EXPECT_THAT(outcome.errors, testing::AnyOf("", HasSubstr("Error: Error opening: A/x")));
  EXPECT_THAT(names(), testing::IsSupersetOf({"/media/A/big", "/media/Music/f2", "/media/Zoo/last"}));
}

TEST_F(MediaBackup, TellsNamesWhenVerbose) {
  device_.write(shared("Music/a.mp3"), "music");
  const Outcome outcome = back_up({"-v", "-d", "3"});
  EXPECT_EQ(outcome.errors,
            "Filename: /tmp/a.tar\nKeywords: \nmedia\nArchiving\nMedia\nArchive: Music to /media/Music\n"
            "Archive: Music/a.mp3 to /media/Music/a.mp3\n");
  EXPECT_THAT(
      device_.logged(LOG_PRIORITY_INFO),
      ElementsAre(testing::StartsWith("Debug level 3"), "Archiving", "archiving media sizeonly is false",
                  "Current dir: /accounts/1000/shared", "Storing manifest to '/media/Music'",
                  "Archive: Music to /media/Music", "Archive: Music/a.mp3 to /media/Music/a.mp3",
                  "Current dir: /accounts/1000/sys/dtm"));
}

TEST_F(MediaBackup, NeedsItsRootFolders) {
  for (const char* root : {DTM, SHARED}) {
    std::filesystem::remove_all(device_.outside(root));
    const Outcome outcome = back_up();
    EXPECT_EQ(outcome.status, 1);
    const std::string reason =
        "Failed to chdir to '" + std::string(root) + "' [errno:2 'No such file or directory']";
    EXPECT_EQ(outcome.errors, "Error: " + reason + "\n");
    EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), ElementsAre("ERROR: " + reason));
  }
}

TEST_F(MediaBackup, RefusesARootThatIsALinkElsewhere) {
  device_.write("/tmp/elsewhere/Music/a", "a");
  std::filesystem::remove_all(device_.outside(SHARED));
  device_.link(SHARED, "/tmp/elsewhere");
  const Outcome outcome = back_up();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors,
            "Error: Could not change working directory cwd: /tmp/elsewhere wanted: /accounts/1000/shared\n");
}

TEST_F(MediaBackup, GoesDeeperThanAProcessMayOpenFiles) {
  std::string path = shared("Deep");
  for (int i = 0; i < 300; ++i) path += "/d";
  device_.write(path + "/leaf", "leaf");
  EXPECT_EQ(device_.shell("ulimit -n 32; harbix -f /tmp/a.tar media").status, 0);
  EXPECT_EQ(content("/media" + path.substr(std::string(SHARED).size()) + "/leaf"), "leaf");
}

TEST_F(MediaBackup, ReadsAsTheMediaUserOnly) {
  // Readable for root and for members of the supplementary groups, but not for the media user.
  device_.write(shared("Music/roots"), "r", 0640);
  device_.own(shared("Music/roots"), "root", "1000_sys");
  ASSERT_EQ(back_up().status, 0);
  EXPECT_THAT(names(), Not(Contains("/media/Music/roots")));
}

}  // namespace
}  // namespace harbix::test
