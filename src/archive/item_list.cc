#include "archive/item_list.h"

#include <algorithm>
#include <limits>
#include <new>
#include <optional>
#include <string>
#include <utility>

namespace harbix {
namespace {

// A place is the number of a block and an offset in it.
constexpr unsigned OFFSET_BITS = 16;
constexpr std::size_t TEXT_BLOCK = std::size_t{1} << OFFSET_BITS;
constexpr std::size_t MOST_BLOCKS = std::size_t{1} << (32 - OFFSET_BITS);
constexpr std::uint32_t NO_FOLDER = std::numeric_limits<std::uint32_t>::max();

}  // namespace

std::uint32_t PackedTexts::add(std::string_view text) {
  const std::size_t size = text.size() + 1;
  if (blocks_.empty() || used_ + size > TEXT_BLOCK) {
    // One block is never taken: so no place is the largest number.
    if (blocks_.size() + 1 == MOST_BLOCKS) throw std::bad_alloc();
    // A path that is larger than a block, in a very deep tree, gets one of its own.
    blocks_.push_back(std::make_unique_for_overwrite<char[]>(  // NOLINT(modernize-avoid-c-arrays)
        std::max(size, TEXT_BLOCK)));
    used_ = 0;
  }
  char* const begin = blocks_.back().get() + used_;
  begin[text.copy(begin, text.size())] = '\0';
  const std::size_t place = (blocks_.size() - 1) << OFFSET_BITS | used_;
  used_ += size;
  return static_cast<std::uint32_t>(place);
}

const char* PackedTexts::at(std::uint32_t place) const noexcept {
  return blocks_[place >> OFFSET_BITS].get() + place % TEXT_BLOCK;
}

void ItemList::add(const fs::File& item) {
  const struct ::stat& record = item.record();
  const std::string_view path = item.path().text();
  const std::optional<std::size_t> separator = item.path().last_separator();
  const std::uint32_t folder = separator ? folder_of(path, *separator) : NO_FOLDER;
  items_.push_back({.inode = record.st_ino,
                    .size = record.st_size,
                    .modified = record.st_mtim.tv_sec,
                    .name = names_.add(path.substr(separator ? *separator + 1 : 0)),
                    .folder = folder,
                    .mode = record.st_mode,
                    .user = record.st_uid,
                    .group = record.st_gid,
                    .device = number_of(record.st_dev)});
}

std::uint32_t ItemList::folder_of(std::string_view path, std::size_t length) {
  const std::string_view folder = path.substr(0, length);
  if (!items_.empty() && items_.back().folder != NO_FOLDER && folder == names_.at(items_.back().folder))
    return items_.back().folder;
  return names_.add(folder);
}

std::uint32_t ItemList::number_of(dev_t device) {
  // A handful at most, and nearly always the first one.
  const auto number = static_cast<std::size_t>(std::ranges::find(devices_, device) - devices_.begin());
  if (number == devices_.size()) devices_.push_back(device);
  return static_cast<std::uint32_t>(number);
}

fs::File ItemList::operator[](std::size_t index) const {
  const Item& item = items_[index];
  std::string path;
  if (item.folder != NO_FOLDER) path.append(names_.at(item.folder)) += fs::Path::SEPARATOR;
  path.append(names_.at(item.name));
  struct ::stat record {};
  record.st_dev = devices_[item.device];
  record.st_ino = item.inode;
  record.st_mode = item.mode;
  record.st_uid = item.user;
  record.st_gid = item.group;
  record.st_size = item.size;
  record.st_mtim.tv_sec = item.modified;
  return {fs::Path(std::move(path)), record};
}

void ItemList::remove(std::size_t index) {
  items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(index));
}

}  // namespace harbix
