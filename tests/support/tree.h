#pragma once

#include <sys/types.h>

#include <compare>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace harbix::test {

struct Owner {
  uid_t user = 0;
  gid_t group = 0;
  friend bool operator==(const Owner&, const Owner&) = default;
};

/// One object of a tree. Names are bytes, without '/'.
struct TreeItem {
  enum class Kind { FILE, LINK, DIRECTORY, FIFO, OTHER };

  Kind kind = Kind::FILE;
  std::string name;
  std::string text;             ///< content of a file, target of a link
  std::optional<mode_t> mode;   ///< permission, set-id and sticky bits; without one it is not compared
  std::optional<Owner> owner;   ///< without one it is not compared
  std::vector<TreeItem> items;  ///< of a directory

  /// The same item, owned by these numeric ids.
  [[nodiscard]] TreeItem owned_by(uid_t user, gid_t group) const;
};

/// Leaves the mode of an item open: it is built with the default, and any is accepted.
inline constexpr std::optional<mode_t> ANY_MODE = std::nullopt;

[[nodiscard]] TreeItem file(std::string name, std::string content = "", std::optional<mode_t> mode = 0644);
/// Links have no mode.
[[nodiscard]] TreeItem link(std::string name, std::string target);
[[nodiscard]] TreeItem dir(std::string name, std::vector<TreeItem> items = {},
                           std::optional<mode_t> mode = 0755);
[[nodiscard]] TreeItem fifo(std::string name, std::optional<mode_t> mode = 0644);

/// What is below a folder. The order of items does not matter.
class Tree {
 public:
  Tree() = default;
  Tree(std::initializer_list<TreeItem> items) : items_(items) {}
  explicit Tree(std::vector<TreeItem> items) : items_(std::move(items)) {}

  /// What is below `folder` now, with modes and owners. Sockets and devices come out as Kind::OTHER.
  /// @throws std::system_error
  [[nodiscard]] static Tree read(const std::string& folder);

  /// Creates the items below `folder`, which exists already, with their modes; the umask does not count.
  /// @throws std::system_error
  void build(const std::string& folder) const;

  /// Whether `folder` holds this tree and nothing else; if not, the message has each difference with both
  /// sides, and what is missing or extra.
  [[nodiscard]] ::testing::AssertionResult matches(const std::string& folder) const;
  /// The same against another tree.
  [[nodiscard]] ::testing::AssertionResult matches(const Tree& actual) const;

  [[nodiscard]] const std::vector<TreeItem>& items() const noexcept { return items_; }

 private:
  std::vector<TreeItem> items_;
};

/// Text for a message: bytes outside of printable ASCII as \xNN, long ones cut, with their length.
[[nodiscard]] std::string printable(const std::string& bytes);

/// The content of a file, and its creation with the default mode.
/// @throws std::system_error
[[nodiscard]] std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& content);

/// The same, with the folders above the file.
void put(const std::string& path, const std::string& content = "");

/// One object of a tree, as a person would compare it.
struct Item {
  mode_t mode = 0;  ///< with the type bits
  uid_t owner = 0;
  gid_t group = 0;
  std::string content;  ///< of a file; the target of a link

  friend bool operator==(const Item&, const Item&) = default;
};

/// One line for each item below `folder`, in the order of the names' bytes: name, type and mode, owner, time
/// of change, and a file's size with a checksum of its content, or a link's target.
[[nodiscard]] std::string listing(const std::string& folder);

/// Everything below a folder, by its path relative to that.
using Snapshot = std::map<std::string, Item>;

[[nodiscard]] Snapshot take_snapshot(const std::filesystem::path& folder);

std::ostream& operator<<(std::ostream& stream, const Item& item);

/// What stands in only one of two trees or differs between them, a line an item; empty for equal trees.
[[nodiscard]] std::string difference(const Snapshot& expected, const Snapshot& found);

}  // namespace harbix::test
