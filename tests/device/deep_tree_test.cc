#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <system_error>

#include <gtest/gtest.h>

#include "base/file_descriptor.h"
#include "tests/device/measured_run.h"
#include "tests/support/device.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

using base::FileDescriptor;

constexpr char TOP[] = "/accounts/1000/shared/Deep";
constexpr int DEPTH = 2200;  // longer than any path may be, even with names of one character

void require(bool is_done) {
  if (!is_done) throw std::system_error(errno, std::generic_category(), "deep tree");
}

/// A chain of folders, each called "d", on a device's share. No path reaches its end.
class DeepTree : public testing::Test {
 protected:
  DeepTree() { device_.make_folder(TOP); }
  ~DeepTree() override {
    // The device's own way of removing what is left keeps all folders open.
    static_cast<void>(run_program({"rm", "-rf", device_.outside(TOP)}));
  }
  DeepTree(const DeepTree&) = delete;
  DeepTree& operator=(const DeepTree&) = delete;
  DeepTree(DeepTree&&) = delete;
  DeepTree& operator=(DeepTree&&) = delete;

  /// Opens the last folder of the chain; @return how many there are below the top.
  int descend(FileDescriptor& folder) const {
    folder = FileDescriptor(::open(device_.outside(TOP).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    require(bool(folder));
    for (int depth = 0;; ++depth) {
      FileDescriptor next(::openat(folder.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      if (!next) return depth;
      folder = std::move(next);
    }
  }

  void make(int depth) const {
    FileDescriptor folder;
    for (int made = descend(folder); made < depth; ++made) {
      require(::mkdirat(folder.get(), "d", 0770) == 0);
      FileDescriptor next(::openat(folder.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      require(next && ::fchown(next.get(), device_.user("media"), device_.group("1000_shared")) == 0);
      folder = std::move(next);
    }
  }

  void write_at_the_end(const char* name) const {
    FileDescriptor folder;
    descend(folder);
    const FileDescriptor file(::openat(folder.get(), name, O_WRONLY | O_CREAT | O_CLOEXEC, 0660));
    require(file && ::write(file.get(), "deep", 4) == 4);
    require(::fchown(file.get(), device_.user("media"), device_.group("1000_shared")) == 0);
  }

  [[nodiscard]] bool is_at_the_end(const char* name) const {
    FileDescriptor folder;
    descend(folder);
    return ::faccessat(folder.get(), name, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
  }

  Device device_;
};

TEST_F(DeepTree, IsBackedUpWipedAndRestored) {
  make(DEPTH);
  write_at_the_end("file");
  const Outcome backup = device_.harbix({"-f", "/tmp/a.tar", "media"});
  EXPECT_EQ(backup.status, 0);
  EXPECT_EQ(backup.errors, "");
  for (const char* tar : {"tar", "bsdtar"}) {
    const Outcome list = run_program({tar, "-Ptf", device_.outside("/tmp/a.tar")});
    EXPECT_EQ(list.status, 0) << list.errors;
    // The manifest, the top, the chain and the file.
    EXPECT_EQ(std::ranges::count(list.output, '\n'), DEPTH + 3) << tar;
  }

  write_at_the_end("later");
  const Outcome restore = device_.harbix({"-r", "-f", "/tmp/a.tar", "media"});
  EXPECT_EQ(restore.status, 0);
  EXPECT_EQ(restore.errors, "");
  FileDescriptor end;
  EXPECT_EQ(descend(end), DEPTH);
  EXPECT_TRUE(is_at_the_end("file"));
  EXPECT_FALSE(is_at_the_end("later"));
}

TEST_F(DeepTree, IsWipedInLittleMemoryAndTimeHoweverDeepItIs) {
  constexpr int VERY_DEEP = 32000;
  make(VERY_DEEP);
  write_at_the_end("file");
  device_.write("/tmp/a.tar", TarBuilder().file("/media/M/a", "1").text());
  const MeasuredRun restore = measured_run(device_, {"harbix", "-r", "-f", "/tmp/a.tar", "media"});
  EXPECT_EQ(restore.status, 0);
  EXPECT_EQ(restore.errors, "");
  // The sanitizers take memory of their own.
#ifndef HARBIX_SANITIZED
  EXPECT_LE(restore.mebibytes, 64);
#endif
  EXPECT_LE(restore.seconds, 20);
  FileDescriptor end;
  EXPECT_EQ(descend(end), 0);
  EXPECT_EQ(device_.read(shared("M/a")), "1");
}

TEST_F(DeepTree, IsWipedButForWhatIsProtectedInIt) {
  constexpr int FEW = 5;
  make(FEW);
  write_at_the_end("file");
  const std::string inner = std::string(TOP) + "/d/d";
  device_.write(inner + "/protected/kept", "kept");
  device_.own(inner + "/protected", "media", "protected_media");
  device_.write(inner + "/other/deep/file", "goes");
  device_.write("/tmp/a.tar", TarBuilder().text());
  EXPECT_EQ(device_.harbix({"-r", "-f", "/tmp/a.tar", "media"}).status, 0);
  std::vector<std::string> left;
  for (const auto& [path, item] : device_.snapshot(TOP)) left.push_back(path);
  EXPECT_EQ(left, (std::vector<std::string>{"d", "d/d", "d/d/protected", "d/d/protected/kept"}));
}

}  // namespace
}  // namespace harbix::test
