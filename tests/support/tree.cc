#include "tests/support/tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <system_error>

#include "tests/support/require.h"

namespace harbix::test {
namespace {

constexpr mode_t MODE_BITS = 07777;
constexpr std::size_t LONGEST_PRINTED = 120;

void build_items(const std::vector<TreeItem>& items, const std::string& folder);

void build_item(const TreeItem& item, const std::string& path) {
  switch (item.kind) {
    case TreeItem::Kind::FILE:
      write_file(path, item.text);
      break;
    case TreeItem::Kind::LINK:
      require(::symlink(item.text.c_str(), path.c_str()) == 0, "symlink " + path);
      break;
    case TreeItem::Kind::DIRECTORY:
      require(::mkdir(path.c_str(), 0755) == 0, "mkdir " + path);
      build_items(item.items, path);
      break;
    case TreeItem::Kind::FIFO:
      require(::mkfifo(path.c_str(), 0644) == 0, "mkfifo " + path);
      break;
    case TreeItem::Kind::OTHER:
      errno = ENOTSUP;
      require(false, "build " + path);
  }
  // The owner first: a change of owner takes the set-id bits away.
  if (item.owner) {
    require(::lchown(path.c_str(), item.owner->user, item.owner->group) == 0, "chown " + path);
  }
  if (item.mode && item.kind != TreeItem::Kind::LINK)
    require(::chmod(path.c_str(), *item.mode) == 0, "chmod " + path);
}

void build_items(const std::vector<TreeItem>& items, const std::string& folder) {
  for (const TreeItem& item : items) build_item(item, folder + "/" + item.name);
}

std::string read_link(const std::string& path) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
  require(length >= 0, "readlink " + path);
  return {target.data(), static_cast<std::size_t>(length)};
}

std::vector<TreeItem> read_items(const std::string& folder);

TreeItem read_item(const std::string& folder, const std::string& name) {
  const std::string path = folder + "/" + name;
  struct ::stat record {};
  require(::lstat(path.c_str(), &record) == 0, "lstat " + path);
  TreeItem item;
  item.name = name;
  item.mode = record.st_mode & MODE_BITS;
  item.owner = Owner{.user = record.st_uid, .group = record.st_gid};
  if (S_ISREG(record.st_mode)) {
    item.kind = TreeItem::Kind::FILE;
    item.text = read_file(path);
  } else if (S_ISLNK(record.st_mode)) {
    item.kind = TreeItem::Kind::LINK;
    item.mode.reset();
    item.text = read_link(path);
  } else if (S_ISDIR(record.st_mode)) {
    item.kind = TreeItem::Kind::DIRECTORY;
    item.items = read_items(path);
  } else {
    item.kind = S_ISFIFO(record.st_mode) ? TreeItem::Kind::FIFO : TreeItem::Kind::OTHER;
  }
  return item;
}

std::vector<TreeItem> read_items(const std::string& folder) {
  std::vector<TreeItem> items;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    items.push_back(read_item(folder, entry.path().filename().string()));
  }
  return items;
}

std::string octal(mode_t mode) {
  std::ostringstream text;
  text << '0' << std::oct << mode;
  return text.str();
}

const char* kind_name(TreeItem::Kind kind) {
  switch (kind) {
    case TreeItem::Kind::FILE:
      return "file";
    case TreeItem::Kind::LINK:
      return "link";
    case TreeItem::Kind::DIRECTORY:
      return "directory";
    case TreeItem::Kind::FIFO:
      return "fifo";
    case TreeItem::Kind::OTHER:
      break;
  }
  return "other";
}

/// What an item is, leaving out what `measure` leaves open.
std::string describe(const TreeItem& item, const TreeItem& measure) {
  std::string text = kind_name(item.kind);
  if (measure.mode && item.mode) text += " " + octal(*item.mode);
  if (measure.owner && item.owner) {
    text += " " + std::to_string(item.owner->user) + ":" + std::to_string(item.owner->group);
  }
  if (item.kind == TreeItem::Kind::FILE) text += " \"" + printable(item.text) + "\"";
  if (item.kind == TreeItem::Kind::LINK) text += " -> \"" + printable(item.text) + "\"";
  return text;
}

bool is_same(const TreeItem& expected, const TreeItem& actual) {
  return expected.kind == actual.kind && expected.text == actual.text &&
         (!expected.mode || expected.mode == actual.mode) &&
         (!expected.owner || expected.owner == actual.owner);
}

using ItemsByName = std::map<std::string, const TreeItem*>;

ItemsByName by_name(const std::vector<TreeItem>& items) {
  ItemsByName named;
  for (const TreeItem& item : items) named.emplace(item.name, &item);
  return named;
}

void compare(const std::vector<TreeItem>& expected, const std::vector<TreeItem>& actual,
             const std::string& folder, std::ostream& report) {
  const ItemsByName wanted = by_name(expected);
  ItemsByName found = by_name(actual);
  for (const auto& [name, item] : wanted) {
    const std::string path = folder + printable(name);
    const auto position = found.find(name);
    if (position == found.end()) {
      report << "missing: " << path << " (" << describe(*item, *item) << ")\n";
      continue;
    }
    const TreeItem& other = *position->second;
    if (!is_same(*item, other)) {
      report << path << "\n  expected: " << describe(*item, *item)
             << "\n  actual:   " << describe(other, *item) << '\n';
    }
    if (item->kind == TreeItem::Kind::DIRECTORY && other.kind == TreeItem::Kind::DIRECTORY) {
      compare(item->items, other.items, path + "/", report);
    }
    found.erase(position);
  }
  for (const auto& [name, item] : found) {
    report << "extra: " << folder << printable(name) << " (" << describe(*item, *item) << ")\n";
  }
}

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

TreeItem TreeItem::owned_by(uid_t user, gid_t group) const {
  TreeItem item = *this;
  item.owner = Owner{.user = user, .group = group};
  return item;
}

TreeItem file(std::string name, std::string content, std::optional<mode_t> mode) {
  return {.kind = TreeItem::Kind::FILE,
          .name = std::move(name),
          .text = std::move(content),
          .mode = mode,
          .owner = std::nullopt,
          .items = {}};
}

TreeItem link(std::string name, std::string target) {
  return {.kind = TreeItem::Kind::LINK,
          .name = std::move(name),
          .text = std::move(target),
          .mode = std::nullopt,
          .owner = std::nullopt,
          .items = {}};
}

TreeItem dir(std::string name, std::vector<TreeItem> items, std::optional<mode_t> mode) {
  return {.kind = TreeItem::Kind::DIRECTORY,
          .name = std::move(name),
          .text = "",
          .mode = mode,
          .owner = std::nullopt,
          .items = std::move(items)};
}

TreeItem fifo(std::string name, std::optional<mode_t> mode) {
  return {.kind = TreeItem::Kind::FIFO,
          .name = std::move(name),
          .text = "",
          .mode = mode,
          .owner = std::nullopt,
          .items = {}};
}

Tree Tree::read(const std::string& folder) { return Tree(read_items(folder)); }

void Tree::build(const std::string& folder) const { build_items(items_, folder); }

::testing::AssertionResult Tree::matches(const std::string& folder) const { return matches(read(folder)); }

::testing::AssertionResult Tree::matches(const Tree& actual) const {
  std::ostringstream report;
  compare(items_, actual.items_, "", report);
  if (report.str().empty()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "the trees differ:\n" << report.str();
}

std::string printable(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes.substr(0, LONGEST_PRINTED)) {
    if (byte >= ' ' && byte <= '~' && byte != '\\') {
      text += byte;
    } else {
      std::array<char, 5> escaped{};
      std::snprintf(escaped.data(), escaped.size(), "\\x%02X", static_cast<unsigned char>(byte));
      text += escaped.data();
    }
  }
  if (bytes.size() > LONGEST_PRINTED) text += "... (" + std::to_string(bytes.size()) + " bytes)";
  return text;
}

std::string read_file(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  require(stream.is_open(), "open " + path);
  // Not byte by byte: tests are compiled without optimization.
  std::ostringstream text;
  text << stream.rdbuf();
  return std::move(text).str();
}

void write_file(const std::string& path, const std::string& content) {
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  require(stream.is_open(), "open " + path);
  stream << content << std::flush;
  require(stream.good(), "write " + path);
}

Snapshot take_snapshot(const stdfs::path& folder) {
  Snapshot tree;
  for (const stdfs::directory_entry& entry : stdfs::recursive_directory_iterator(folder)) {
    tree.emplace(entry.path().lexically_relative(folder).string(), describe(entry.path()));
  }
  return tree;
}

std::string listing(const std::string& folder) {
  std::set<std::string> names;
  for (const auto& item : stdfs::recursive_directory_iterator(folder)) names.insert(item.path().string());
  std::ostringstream text;
  for (const std::string& name : names) {
    struct ::stat record {};
    require(::lstat(name.c_str(), &record) == 0, "lstat " + name);
    text << name.substr(folder.size()) << ' ' << std::oct << record.st_mode << std::dec << ' '
         << record.st_uid << ':' << record.st_gid << ' ' << record.st_mtim.tv_sec;
    if (S_ISREG(record.st_mode))
      text << ' ' << record.st_size << ' ' << std::hash<std::string>()(read_file(name));
    if (S_ISLNK(record.st_mode)) text << ' ' << read_link(name);
    text << '\n';
  }
  return text.str();
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

void put(const std::string& path, const std::string& content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  write_file(path, content);
}

}  // namespace harbix::test
