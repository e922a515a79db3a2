#include "device/pps/store_loader.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <ostream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "device/pps/attribute_line.h"
#include "device/pps/open_name.h"
#include "device/refuse.h"

namespace pps {

namespace {

using base::FileDescriptor;

struct FolderCloser {
  // A folder that was only read has nothing to lose when it is closed.
  void operator()(DIR* folder) const noexcept { static_cast<void>(::closedir(folder)); }
};

[[noreturn]] void fail_to_read(const std::string& path) {
  const int error = errno;
  device::refuse(error, "cannot read '" + path + "' of the store");
}

FileDescriptor open_at(int folder, const std::string& path, int flags) {
  FileDescriptor opened(::openat(folder, path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | flags));
  if (!opened) fail_to_read(path);
  return opened;
}

std::vector<std::string> sorted_names(FileDescriptor opened, const std::string& path) {
  const std::unique_ptr<DIR, FolderCloser> folder(::fdopendir(opened.get()));
  if (!folder) fail_to_read(path);
  static_cast<void>(opened.release());  // the folder's stream closes it
  std::vector<std::string> names;
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(folder.get());
    if (entry == nullptr && errno != 0) fail_to_read(path);
    if (entry == nullptr) break;
    const std::string name = static_cast<const char*>(entry->d_name);
    if (name != "." && name != "..") names.push_back(name);
  }
  std::ranges::sort(names);
  return names;
}

std::string read_whole(const FileDescriptor& file, const std::string& path) {
  std::string text;
  std::array<char, 65536> piece{};
  for (;;) {
    const ssize_t count = ::read(file.get(), piece.data(), piece.size());
    if (count == -1 && errno == EINTR) continue;
    if (count == -1) fail_to_read(path);
    if (count == 0) return text;
    text.append(piece.data(), static_cast<std::size_t>(count));
  }
}

class Loader {
 public:
  Loader(int folder, Tree& tree, std::ostream& warnings)
      : folder_(folder), tree_(tree), warnings_(warnings) {}

  void load_root() {
    tree_.root().metadata = metadata_of(look_at("."));
    tree_.root().stored_as.emplace_back("");
    // What a kill left of a save; nothing there is the usual case.
    if (::unlinkat(folder_, Store::UNFINISHED, 0) == -1 && errno != ENOENT) fail_to_read(Store::UNFINISHED);
    load_folder(tree_.root(), "");
  }

 private:
  void load_folder(Node& directory, const std::string& path) {
    FileDescriptor folder = open_at(folder_, path.empty() ? "." : path, O_DIRECTORY);
    const std::string prefix = path.empty() ? "" : path + "/";
    for (const std::string& name : sorted_names(std::move(folder), path)) {
      load_item(directory, name, prefix + name);
    }
  }

  void load_item(Node& directory, const std::string& stored, const std::string& path) {
    const std::string_view name = live_name(stored);
    const struct stat record = look_at(path);
    const bool is_folder = S_ISDIR(record.st_mode);
    if (check_name(name) != 0 || (!is_folder && !S_ISREG(record.st_mode))) return pass_over(path);

    const auto known = directory.children.find(name);
    if (known != directory.children.end() && known->second->is_directory() != is_folder)
      return pass_over(path);
    const Node::Kind kind = is_folder ? Node::Kind::directory : Node::Kind::object;
    Node& node =
        known != directory.children.end() ? *known->second : tree_.add(directory, name, kind, Metadata{});
    node.metadata = metadata_of(record);
    node.stored_as.push_back(path);
    if (is_folder) {
      load_folder(node, path);
    } else {
      load_object(node, path);
    }
  }

  void load_object(Node& object, const std::string& path) {
    const std::string text = read_whole(open_at(folder_, path, 0), path);
    object.attributes.clear();
    object.stamp = tree_.next_stamp();
    object.parent->stamp = object.stamp;
    for (std::string_view rest = text; !rest.empty();) {
      const std::string_view line = rest.substr(0, rest.find('\n'));
      rest.remove_prefix(std::min(line.size() + 1, rest.size()));
      const auto parsed = parse_attribute_line(line);
      if (!parsed) {
        warnings_ << "malformed line in '" << path << "' of the store: '" << line << "'\n";
      } else if (parsed->kind == AttributeLine::Kind::set && parsed->persistent) {
        object.attributes.apply(*parsed, {.stamp = object.stamp});
      }
    }
  }

  [[nodiscard]] struct stat look_at(const std::string& path) const {
    struct stat record {};
    if (::fstatat(folder_, path.c_str(), &record, AT_SYMLINK_NOFOLLOW) == -1) fail_to_read(path);
    return record;
  }

  void pass_over(const std::string& path) {
    warnings_ << "no object can be made of '" << path << "' of the store\n";
  }

  int folder_;
  Tree& tree_;
  std::ostream& warnings_;
};

}  // namespace

void load(const Store& store, Tree& tree, std::ostream& warnings) {
  if (store.keeps()) Loader(store.descriptor(), tree, warnings).load_root();
}

}  // namespace pps
