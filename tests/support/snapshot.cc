#include "support/snapshot.h"

#include <sys/stat.h>

#include <fstream>
#include <iomanip>
#include <sstream>
#include <system_error>

namespace test {
namespace {

namespace stdfs = std::filesystem;

constexpr std::size_t SHOWN_CONTENT = 60;
constexpr off_t LARGEST_CONTENT = off_t{64} << 20;

/// The content of a file; of a huge one, which a hostile archive can leave behind, its size only.
std::string read_content(const stdfs::path& path, off_t size) {
  if (size > LARGEST_CONTENT) return "(" + std::to_string(size) + " bytes)";
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

Item describe(const stdfs::path& path) {
  struct ::stat record {};
  if (::lstat(path.c_str(), &record) == -1) {
    throw std::system_error(errno, std::generic_category(), path.string());
  }
  Item item{.mode = record.st_mode, .owner = record.st_uid, .group = record.st_gid, .content = {}};
  if (S_ISREG(record.st_mode)) item.content = read_content(path, record.st_size);
  if (S_ISLNK(record.st_mode)) item.content = stdfs::read_symlink(path).string();
  return item;
}

std::string describe_side(const Snapshot& tree, const std::string& path) {
  const auto found = tree.find(path);
  if (found == tree.end()) return "nothing";
  std::ostringstream text;
  text << found->second;
  return text.str();
}

}  // namespace

Snapshot take_snapshot(const stdfs::path& folder) {
  Snapshot tree;
  for (const stdfs::directory_entry& entry : stdfs::recursive_directory_iterator(folder)) {
    tree.emplace(entry.path().lexically_relative(folder).string(), describe(entry.path()));
  }
  return tree;
}

std::ostream& operator<<(std::ostream& stream, const Item& item) {
  stream << std::oct << item.mode << std::dec << ' ' << item.owner << ':' << item.group << ' '
         << item.content.size() << " bytes " << std::quoted(item.content.substr(0, SHOWN_CONTENT));
  return stream;
}

std::string difference(const Snapshot& expected, const Snapshot& found) {
  Snapshot all = expected;
  all.insert(found.begin(), found.end());
  std::ostringstream text;
  for (const auto& [path, item] : all) {
    const std::string left = describe_side(expected, path);
    const std::string right = describe_side(found, path);
    const bool same = expected.contains(path) && found.contains(path) && expected.at(path) == found.at(path);
    if (!same) text << std::quoted(path) << ": expected " << left << ", found " << right << '\n';
  }
  return text.str();
}

}  // namespace test
