#include "tests/support/folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <gtest/gtest.h>

#include "tests/support/require.h"

namespace harbix::test {

TemporaryFolder::TemporaryFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "harbix-test-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) fail("mkdtemp " + name);
  path_ = std::filesystem::canonical(name).string();
  if (::chmod(path_.c_str(), 0755) == -1) fail("chmod " + path_);
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
  EXPECT_FALSE(error) << path_ << ": " << error.message();
}

std::string TemporaryFolder::operator/(std::string_view name) const {
  return name.empty() ? path_ : path_ + "/" + std::string(name);
}

InsideFolder::InsideFolder(const std::string& folder)
    : saved_(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
  if (saved_ == -1) fail("open .");
  if (::chdir(folder.c_str()) == -1) {
    const int error = errno;
    ::close(saved_);
    throw std::system_error(error, std::generic_category(), "chdir " + folder);
  }
}

InsideFolder::~InsideFolder() {
  // The next test that depends on its directory fails when this did.
  static_cast<void>(::fchdir(saved_));
  ::close(saved_);
}

}  // namespace harbix::test
