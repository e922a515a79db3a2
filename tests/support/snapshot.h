#pragma once

#include <sys/types.h>

#include <compare>
#include <filesystem>
#include <map>
#include <ostream>
#include <string>

namespace test {

/// One object of a tree, as a person would compare it.
struct Item {
  mode_t mode = 0;  ///< with the type bits
  uid_t owner = 0;
  gid_t group = 0;
  std::string content;  ///< of a file; the target of a link

  friend bool operator==(const Item&, const Item&) = default;
};

/// Everything below a folder, by its path relative to that.
using Snapshot = std::map<std::string, Item>;

[[nodiscard]] Snapshot take_snapshot(const std::filesystem::path& folder);

std::ostream& operator<<(std::ostream& stream, const Item& item);

/// What stands in only one of two trees or differs between them, a line an item; empty for equal trees.
[[nodiscard]] std::string difference(const Snapshot& expected, const Snapshot& found);

}  // namespace test
