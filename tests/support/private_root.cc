#include "support/private_root.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "support/child_process.h"

namespace test {

::testing::AssertionResult passes_in_root(const std::string& root, const std::function<void()>& body) {
  return passes_in_child([&] {
    ASSERT_EQ(0, ::unshare(CLONE_NEWNS)) << "needs root and mount namespaces, errno " << errno;
    ASSERT_EQ(0, ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr)) << errno;
    for (const char* folder : {"/bin", "/lib", "/lib64", "/usr", "/dev", "/proc"}) {
      if (!std::filesystem::exists(folder)) continue;
      const std::string target = root + folder;
      std::filesystem::create_directory(target);
      ASSERT_EQ(0, ::mount(folder, target.c_str(), nullptr, MS_BIND | MS_REC, nullptr)) << target << errno;
    }
    ASSERT_EQ(0, ::chroot(root.c_str())) << errno;
    ASSERT_EQ(0, ::chdir("/")) << errno;
    body();
  });
}

}  // namespace test
