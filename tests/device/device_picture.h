#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace harbix::test {

/// An object of a device, by what can be compared between two restores.
struct PicturedObject {
  mode_t mode = 0;
  uid_t user = 0;
  gid_t group = 0;
  off_t size = 0;  ///< of a file
  std::uint64_t detail =
      0;               ///< of a file or an object of PPS: a hash of its content, or the time of its change
  std::string target;  ///< of a link

  friend bool operator==(const PicturedObject&, const PicturedObject&) = default;
};

/// Objects by their paths.
using Picture = std::map<std::string, PicturedObject>;

/// Prints, indented, the first few paths that are missing, different or new.
void print_difference(const Picture& expected, const Picture& found);

/// Whether a path is that of an object of PPS, or of a folder of these.
[[nodiscard]] bool is_below_pps(const std::string& path);

/// Takes pictures of folders and files again and again. A file is read only where it may have changed since
/// it was read last. Objects of PPS are read a folder at a time; the order of their lines does not count, and
/// their folders are those of the first picture.
class Camera {
 public:
  /// Adds what is at a path, if anything is, with everything below it.
  void add(Picture& picture, const std::string& path);

 private:
  struct Content {
    ino_t inode;
    std::int64_t changed;  ///< nanoseconds
    std::uint64_t hash;
  };

  PicturedObject describe(const std::string& path, const struct ::stat& record);
  std::uint64_t hash_of(const std::string& path, const struct ::stat& record);

  std::map<std::string, Content> read_;
  std::map<std::string, std::vector<std::string>> folders_;  ///< of PPS, by the paths that were asked for
};

/// Watches over folders: says whether anything in them has changed, contents by size and time.
class Watch {
 public:
  /// Everything below `folders`, but for `left_out` and what is below these.
  Watch(std::vector<std::string> folders, std::set<std::string> left_out);

  /// @return whether all is as it was at first; what is not is printed as print_difference() does.
  [[nodiscard]] bool is_undisturbed();

 private:
  [[nodiscard]] std::uint64_t fingerprint() const;
  [[nodiscard]] Picture picture() const;

  std::vector<std::string> folders_;
  std::set<std::string> left_out_;
  Picture expected_;
  std::uint64_t fingerprint_;  ///< of the last look that found all as it was
};

}  // namespace harbix::test
