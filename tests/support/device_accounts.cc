#include "support/device_accounts.h"

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <string>

#include "support/child_process.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace test {
namespace {

std::string group_line(const char* name, gid_t id) {
  return std::string(name) + ":x:" + std::to_string(id) + ":\n";
}

}  // namespace

::testing::AssertionResult passes_with_device_accounts(const std::function<void()>& body) {
  const TemporaryFolder folder;
  write_file(folder / "group", group_line("root", 0) + group_line("1000_shared", SHARED_GROUP) +
                                   group_line("protected_media", PROTECTED_GROUP) +
                                   group_line("1000_sys", SYSTEM_GROUP));
  write_file(folder / "passwd",
             "root:x:0:0::/:/bin/sh\nmedia:x:" + std::to_string(MEDIA_USER) + ":5005::/:/bin/sh\n");
  return passes_in_child([&] {
    ASSERT_EQ(0, ::unshare(CLONE_NEWNS)) << "needs root and mount namespaces, errno " << errno;
    ASSERT_EQ(0, ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr)) << errno;
    ASSERT_EQ(0, ::mount((folder / "group").c_str(), "/etc/group", nullptr, MS_BIND, nullptr)) << errno;
    ASSERT_EQ(0, ::mount((folder / "passwd").c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr)) << errno;
    body();
  });
}

}  // namespace test
