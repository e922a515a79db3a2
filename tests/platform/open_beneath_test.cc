#include "platform/open_beneath.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "base/file_descriptor.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using base::FileDescriptor;

/// For the rest of the process's life the kernel answers as one that does not know openat2.
void forget_openat2() {
  std::array<::sock_filter, 4> program{{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(::seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  }};
  ::sock_fprog filter{.len = program.size(), .filter = program.data()};
  ASSERT_EQ(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
  ASSERT_EQ(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0);
  ASSERT_EQ(::syscall(SYS_openat2, AT_FDCWD, ".", nullptr, 0), -1);
  ASSERT_EQ(errno, ENOSYS);
}

/// Both ways must keep the same promises: "true" for a kernel that opens beneath a folder in one call.
class OpenBeneath : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    Tree{file("top", "1"),
         dir("a",
             {dir("b", {file("deep", "22")}), link("out", ".."), link("here", "."), link("file", "b/deep")}),
         link("root", "/")}
        .build(folder_.path());
  }

  /// Runs the body in a process whose kernel offers this way alone.
  template <typename Body>
  void check(const Body& body) {
    EXPECT_TRUE(passes_in_child([&] {
      if (!GetParam()) forget_openat2();
      const FileDescriptor folder(::open(folder_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
      ASSERT_TRUE(folder);
      body(folder.get());
    }));
  }

  TemporaryFolder folder_;
};

INSTANTIATE_TEST_SUITE_P(WithAndWithoutTheCall, OpenBeneath, testing::Bool());

off_t size_of(const FileDescriptor& file) {
  struct ::stat record {};
  return ::fstat(file.get(), &record) == 0 ? record.st_size : -1;
}

TEST_P(OpenBeneath, ReachesWhatLiesBelow) {
  check([](int folder) {
    struct Row {
      const char* path;
      off_t size;
    };
    for (const Row& row : {Row{"top", 1}, Row{"a/b/deep", 2}, Row{"./a//b/./deep", 2}}) {
      const FileDescriptor file(platform::open_beneath(folder, row.path, O_RDONLY));
      EXPECT_EQ(size_of(file), row.size) << row.path;
      EXPECT_EQ(::fcntl(file.get(), F_GETFD), FD_CLOEXEC) << row.path;
    }
    for (const char* path : {"", ".", "a", "a/", "a/b//"}) {
      EXPECT_TRUE(FileDescriptor(platform::open_beneath(folder, path, O_RDONLY | O_DIRECTORY))) << path;
    }
  });
}

TEST_P(OpenBeneath, CreatesWithTheModeLessTheMask) {
  check([](int folder) {
    ::umask(027);
    const FileDescriptor made(platform::open_beneath(folder, "a/b/new", O_WRONLY | O_CREAT | O_EXCL, 0666));
    struct ::stat record {};
    ASSERT_EQ(::fstat(made.get(), &record), 0);
    EXPECT_EQ(record.st_mode, S_IFREG | 0640U);
  });
}

TEST_P(OpenBeneath, FollowsNoLinkAndLeavesNoFolder) {
  check([](int folder) {
    struct Row {
      const char* path;
      bool (*expected)(int error);
    };
    const auto is_link_error = [](int error) { return error == ELOOP || error == ENOTDIR; };
    const auto is_way_out = [](int error) { return error == EXDEV; };
    const auto is_missing = [](int error) { return error == ENOENT; };
    for (const Row& row :
         {Row{"a/out", is_link_error}, Row{"a/out/top", is_link_error}, Row{"a/here/b/deep", is_link_error},
          Row{"a/file", is_link_error}, Row{"root/etc/passwd", is_link_error}, Row{"root", is_link_error},
          Row{"..", is_way_out}, Row{"a/../top", is_way_out}, Row{"../x", is_way_out},
          Row{"a/b/..", is_way_out}, Row{"/", is_way_out}, Row{"/etc/passwd", is_way_out},
          Row{"a/none/x", is_missing}, Row{"none", is_missing}}) {
      errno = 0;
      EXPECT_EQ(platform::open_beneath(folder, row.path, O_RDONLY), -1) << row.path;
      EXPECT_TRUE(row.expected(errno)) << row.path << ": " << std::strerror(errno);
    }
  });
}

TEST_P(OpenBeneath, NamesThatOnlyBeginWithTwoDotsAreNames) {
  write_file(folder_ / "..odd", "333");
  check([](int folder) {
    EXPECT_EQ(size_of(FileDescriptor(platform::open_beneath(folder, "..odd", O_RDONLY))), 3);
  });
}

TEST_P(OpenBeneath, ReachesWhatOneCallCannotName) {
  check([](int folder) {
    constexpr int DEPTH = 700;
    const std::string name = "folder";
    std::string path;
    FileDescriptor last(::dup(folder));
    for (int depth = 0; depth < DEPTH; ++depth) {
      ASSERT_EQ(::mkdirat(last.get(), name.c_str(), 0755), 0);
      last = FileDescriptor(::openat(last.get(), name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
      path += name + '/';
    }
    const FileDescriptor made(
        platform::open_beneath(folder, (path + "leaf").c_str(), O_WRONLY | O_CREAT, 0600));
    EXPECT_TRUE(made) << std::strerror(errno);
    struct ::stat record {};
    EXPECT_EQ(::fstatat(last.get(), "leaf", &record, 0), 0);
    EXPECT_EQ(platform::open_beneath(folder, (path + std::string(5000, 'x')).c_str(), O_RDONLY), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
  });
}

TEST_P(OpenBeneath, LeavesNoDescriptorBehind) {
  check([](int folder) {
    const int before = ::dup(folder);
    ::close(before);
    { const FileDescriptor file(platform::open_beneath(folder, "a/b/deep", O_RDONLY)); }
    EXPECT_EQ(platform::open_beneath(folder, "a/b/none", O_RDONLY), -1);
    const int after = ::dup(folder);
    ::close(after);
    EXPECT_EQ(after, before);
  });
}

}  // namespace
}  // namespace harbix::test
