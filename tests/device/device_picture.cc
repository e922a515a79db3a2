#include "tests/device/device_picture.h"

#include <dirent.h>
#include <fcntl.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <numeric>
#include <sstream>
#include <string_view>
#include <vector>

#include "tests/support/tree.h"

namespace harbix::test {
namespace {

struct DirectoryCloser {
  // A folder that was only read has nothing left to report.
  void operator()(::DIR* directory) const noexcept { ::closedir(directory); }
};

constexpr std::int64_t NANOSECONDS = 1'000'000'000;

std::int64_t nanoseconds(const std::timespec& time) { return time.tv_sec * NANOSECONDS + time.tv_nsec; }

/// Whether a file could change once more without another time: the system's clock for files has steps.
bool may_change_unseen(std::int64_t changed) {
  constexpr std::int64_t LONGEST_STEP = NANOSECONDS / 50;
  std::timespec now{};
  return std::timespec_get(&now, TIME_UTC) != TIME_UTC || nanoseconds(now) - changed < LONGEST_STEP;
}

std::string with_sorted_lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line + '\n');
  std::ranges::sort(lines);
  return std::accumulate(lines.begin(), lines.end(), std::string());
}

PicturedObject status_of(const std::string& path, const struct ::stat& record) {
  PicturedObject object{.mode = record.st_mode, .user = record.st_uid, .group = record.st_gid, .target = {}};
  if (S_ISLNK(record.st_mode)) object.target = std::filesystem::read_symlink(path).string();
  if (S_ISREG(record.st_mode) && !is_below_pps(path)) object.size = record.st_size;
  return object;
}

/// Goes through everything below a folder, in the order of the file system.
template <typename Visit>
void visit_below(std::string path, const std::set<std::string>& left_out, const Visit& visit) {
  const std::unique_ptr<::DIR, DirectoryCloser> folder(::opendir(path.c_str()));
  if (folder == nullptr) return;
  const std::size_t length = path.size();
  while (const ::dirent* entry = ::readdir(folder.get())) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    path.append("/").append(name);
    struct ::stat record {};
    if (!left_out.contains(path) &&
        ::fstatat(::dirfd(folder.get()), entry->d_name, &record, AT_SYMLINK_NOFOLLOW) == 0) {
      visit(path, record);
      if (S_ISDIR(record.st_mode)) visit_below(path, left_out, visit);
    }
    path.resize(length);
  }
}

bool is_object_folder(const std::string& path) {
  struct ::stat record {};
  return is_below_pps(path) && ::lstat(path.c_str(), &record) == 0 && S_ISDIR(record.st_mode);
}

std::vector<std::string> folders_below(const std::string& path) {
  std::vector<std::string> folders{path};
  visit_below(path, {}, [&folders](const std::string& below, const struct ::stat& record) {
    if (S_ISDIR(record.st_mode)) folders.push_back(below);
  });
  return folders;
}

/// Adds the objects of one folder, which its object ".all" shows together: each is a line "@NAME" and its
/// attributes.
void add_objects(Picture& picture, const std::string& folder) {
  std::istringstream lines(read_file(folder + "/.all"));
  std::string name;
  std::string text;
  const auto add = [&] {
    const std::uint64_t hash = std::hash<std::string>()(with_sorted_lines(text));
    if (!name.empty()) picture[folder + '/' + name] = {.mode = S_IFREG, .detail = hash, .target = {}};
    text.clear();
  };
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with('@')) {
      text += line + '\n';
      continue;
    }
    add();
    name = line.substr(1);
  }
  add();
}

void mix(std::uint64_t& hash, std::uint64_t value) {
  constexpr std::uint64_t PRIME = 1099511628211U;
  hash = (hash ^ value) * PRIME;
}

}  // namespace

bool is_below_pps(const std::string& path) { return path.starts_with("/pps/"); }

void print_difference(const Picture& expected, const Picture& found) {
  constexpr int MOST_LINES = 5;
  int lines = 0;
  const auto print = [&lines](std::string_view what, const std::string& path) {
    if (lines++ < MOST_LINES) std::cout << "    " << what << ' ' << path << '\n';
  };
  for (const auto& [path, object] : expected) {
    const auto same = found.find(path);
    if (same == found.end()) {
      print("missing:", path);
    } else if (same->second != object) {
      print("different:", path);
    }
  }
  for (const auto& [path, object] : found) {
    if (!expected.contains(path)) print("new:", path);
  }
}

void Camera::add(Picture& picture, const std::string& path) {
  if (is_object_folder(path)) {
    std::vector<std::string>& folders = folders_[path];
    if (folders.empty()) folders = folders_below(path);
    for (const std::string& folder : folders) add_objects(picture, folder);
    return;
  }
  struct ::stat record {};
  // What is not there, or has just gone, is not in the picture.
  if (::lstat(path.c_str(), &record) == -1) return;
  if (!S_ISDIR(record.st_mode)) picture.emplace(path, describe(path, record));
  visit_below(path, {}, [&](const std::string& below, const struct ::stat& its) {
    picture.emplace(below, describe(below, its));
  });
}

PicturedObject Camera::describe(const std::string& path, const struct ::stat& record) {
  PicturedObject object = status_of(path, record);
  if (S_ISREG(record.st_mode)) {
    object.detail = is_below_pps(path) ? std::hash<std::string>()(with_sorted_lines(read_file(path)))
                                       : hash_of(path, record);
  }
  return object;
}

std::uint64_t Camera::hash_of(const std::string& path, const struct ::stat& record) {
  const std::int64_t changed = nanoseconds(record.st_ctim);
  const auto known = read_.find(path);
  if (known != read_.end() && known->second.inode == record.st_ino && known->second.changed == changed)
    return known->second.hash;
  const bool is_certain = !may_change_unseen(changed);
  const std::uint64_t hash = std::hash<std::string>()(read_file(path));
  if (is_certain) read_.insert_or_assign(path, Content{record.st_ino, changed, hash});
  return hash;
}

Watch::Watch(std::vector<std::string> folders, std::set<std::string> left_out)
    : folders_(std::move(folders)),
      left_out_(std::move(left_out)),
      expected_(picture()),
      fingerprint_(fingerprint()) {}

bool Watch::is_undisturbed() {
  const std::uint64_t now = fingerprint();
  if (now == fingerprint_) return true;
  // The order of a folder's entries alone may have changed.
  const Picture found = picture();
  print_difference(expected_, found);
  if (found != expected_) return false;
  fingerprint_ = now;
  return true;
}

std::uint64_t Watch::fingerprint() const {
  std::uint64_t hash = 0;
  for (const std::string& folder : folders_) {
    visit_below(folder, left_out_, [&hash](const std::string& path, const struct ::stat& record) {
      mix(hash, std::hash<std::string>()(path));
      for (const std::uint64_t value : {record.st_mode, record.st_uid, record.st_gid}) mix(hash, value);
      if (S_ISLNK(record.st_mode)) mix(hash, record.st_ino);
      if (!S_ISREG(record.st_mode)) return;
      mix(hash, static_cast<std::uint64_t>(record.st_size));
      mix(hash, static_cast<std::uint64_t>(nanoseconds(record.st_mtim)));
    });
  }
  return hash;
}

Picture Watch::picture() const {
  Picture picture;
  for (const std::string& folder : folders_) {
    visit_below(folder, left_out_, [&picture](const std::string& path, const struct ::stat& record) {
      PicturedObject object = status_of(path, record);
      if (S_ISREG(record.st_mode)) object.detail = static_cast<std::uint64_t>(nanoseconds(record.st_mtim));
      picture.emplace(path, std::move(object));
    });
  }
  return picture;
}

}  // namespace harbix::test
