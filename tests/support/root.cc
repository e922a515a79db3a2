#include "tests/support/root.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

std::string group_line(const char* name, gid_t id) {
  return std::string(name) + ":x:" + std::to_string(id) + ":\n";
}

}  // namespace

::testing::AssertionResult passes_in_root(const std::string& root, const std::function<void()>& body) {
  return passes_in_child([&] {
    ASSERT_EQ(::unshare(CLONE_NEWNS), 0) << "needs root and mount namespaces, errno " << errno;
    ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0) << errno;
    for (const char* folder : {"/bin", "/lib", "/lib64", "/usr", "/dev", "/proc"}) {
      if (!std::filesystem::exists(folder)) continue;
      const std::string target = root + folder;
      std::filesystem::create_directory(target);
      ASSERT_EQ(::mount(folder, target.c_str(), nullptr, MS_BIND | MS_REC, nullptr), 0) << target << errno;
    }
    ASSERT_EQ(::chroot(root.c_str()), 0) << errno;
    ASSERT_EQ(::chdir("/"), 0) << errno;
    body();
  });
}

::testing::AssertionResult RootTest::on_the_device(const std::function<void()>& body) const {
  return passes_in_root(root_.path(), [&] {
    set_up_root();
    body();
    leave_root();
  });
}

::testing::AssertionResult passes_with_device_accounts(const std::function<void()>& body) {
  const TemporaryFolder folder;
  write_file(folder / "group", group_line("root", 0) + group_line("1000_shared", SHARED_GROUP) +
                                   group_line("protected_media", PROTECTED_GROUP) +
                                   group_line("1000_sys", SYSTEM_GROUP));
  write_file(folder / "passwd",
             "root:x:0:0::/:/bin/sh\nmedia:x:" + std::to_string(MEDIA_USER) + ":5005::/:/bin/sh\n");
  return passes_in_child([&] {
    ASSERT_EQ(::unshare(CLONE_NEWNS), 0) << "needs root and mount namespaces, errno " << errno;
    ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0) << errno;
    ASSERT_EQ(::mount((folder / "group").c_str(), "/etc/group", nullptr, MS_BIND, nullptr), 0) << errno;
    ASSERT_EQ(::mount((folder / "passwd").c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr), 0) << errno;
    body();
  });
}

}  // namespace harbix::test
