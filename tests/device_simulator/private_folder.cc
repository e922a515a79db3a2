#include "private_folder.h"

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "device/content/random.h"

namespace device_test {

PrivateFolder::PrivateFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "harbix-device-test-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot create " + name);
  path_ = name;
}

PrivateFolder::~PrivateFolder() {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
  EXPECT_FALSE(error) << path_ << ": " << error.message();
}

std::string PrivateFolder::operator/(std::string_view name) const {
  return name.empty() ? path_.string() : (path_ / name).string();
}

std::string content_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

void write_file(const std::string& path, std::string_view content) {
  std::ofstream file(path, std::ios::binary);
  file << content << std::flush;
  ASSERT_TRUE(file.good()) << path;
}

std::string listing(const std::string& folder) {
  std::set<std::string> names;
  for (const auto& item : std::filesystem::recursive_directory_iterator(folder))
    names.insert(item.path().string());
  std::ostringstream text;
  for (const std::string& name : names) {
    struct stat status = {};
    EXPECT_EQ(::lstat(name.c_str(), &status), 0) << name;
    text << name.substr(folder.size()) << ' ' << std::oct << status.st_mode << std::dec << ' '
         << status.st_uid << ':' << status.st_gid << ' ' << status.st_mtim.tv_sec;
    if (S_ISREG(status.st_mode)) text << ' ' << status.st_size << ' ' << device::hash(content_of(name));
    if (S_ISLNK(status.st_mode)) text << ' ' << std::filesystem::read_symlink(name).string();
    text << '\n';
  }
  return text.str();
}

}  // namespace device_test
