#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string_view>
#include <vector>

#include "fs/file.h"
#include "fs/path.h"

namespace harbix {

/// Short texts, one behind the other in large blocks: a text takes its own bytes and one more.
class PackedTexts {
 public:
  /// Keeps a text without null bytes.
  /// @return where it is.
  /// @throws std::bad_alloc also for more than 4 GiB of texts.
  std::uint32_t add(std::string_view text);

  /// The text, which stays where it is as long as this object lives.
  [[nodiscard]] const char* at(std::uint32_t place) const noexcept;

 private:
  std::vector<std::unique_ptr<char[]>> blocks_;  // NOLINT(modernize-avoid-c-arrays): of one size, not cleared
  std::size_t used_ = 0;                         ///< of the last one
};

/// The items of a package as they were listed, in the order of listing. A share can hold a million: each
/// takes 50 bytes and its last component, as the items of one folder, which follow each other, share that
/// folder's path.
class ItemList {
 public:
  /// Keeps what an archive and a manifest want to know: the path, and of the status device, inode, mode,
  /// owner, group, size and the seconds of the last change.
  void add(const fs::File& item);

  [[nodiscard]] std::size_t size() const noexcept { return items_.size(); }
  [[nodiscard]] bool empty() const noexcept { return items_.empty(); }

  /// An item as it was listed, with zeros where the status is not kept.
  [[nodiscard]] fs::File operator[](std::size_t index) const;

  /// The last component of an item's path.
  [[nodiscard]] std::string_view name(std::size_t index) const noexcept {
    return names_.at(items_[index].name);
  }

  /// Whether the item is a plain file, and how large it was.
  [[nodiscard]] bool is_regular(std::size_t index) const noexcept { return S_ISREG(items_[index].mode); }
  [[nodiscard]] std::int64_t bytes(std::size_t index) const noexcept { return items_[index].size; }

  /// Takes an item out: what stands behind it keeps its order.
  void remove(std::size_t index);

 private:
  struct Item {
    std::uint64_t inode;
    std::int64_t size;
    std::int64_t modified;
    std::uint32_t name;    ///< in names_
    std::uint32_t folder;  ///< in names_; NO_FOLDER for a path of one component
    std::uint32_t mode;
    std::uint32_t user;
    std::uint32_t group;
    std::uint32_t device;  ///< in devices_
  };

  std::uint32_t folder_of(std::string_view path, std::size_t length);
  std::uint32_t number_of(dev_t device);

  PackedTexts names_;
  std::deque<Item> items_;  // not a vector: that takes three times its size when it grows
  std::vector<dev_t> devices_;
};

}  // namespace harbix
