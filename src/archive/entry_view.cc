#include "archive/entry_view.h"

#include <utility>

#include <archive_entry.h>

#include "archive/package_name.h"

namespace harbix {

std::optional<fs::Path> EntryView::name() const {
  const char* text = ::archive_entry_pathname(entry_);
  if (text == nullptr) return std::nullopt;
  std::string_view name(text);
  if (name.size() > 1 && name.ends_with('/')) name.remove_suffix(1);
  return fs::Path(rooted_name(name));
}

std::optional<std::string_view> EntryView::link_target() const {
  const char* target = ::archive_entry_symlink(entry_);
  if (target == nullptr) return std::nullopt;
  return target;
}

bool EntryView::is_restorable() const {
  if (is_hard_link()) return false;
  switch (::archive_entry_filetype(entry_)) {
    case AE_IFREG:
    case AE_IFDIR:
      return true;
    case AE_IFLNK:
      return link_target().has_value();
    default:
      return false;
  }
}

bool EntryView::begins_package() const {
  const char* text = ::archive_entry_pathname(entry_);
  // Few names end so: no other needs to be copied.
  if (text == nullptr || !std::string_view(text).ends_with(METADATA_NAME)) return false;
  return is_plain_file() && harbix::begins_package(rooted_name(text));
}

bool EntryView::is_plain_file() const {
  return !is_hard_link() && ::archive_entry_filetype(entry_) == AE_IFREG;
}

bool EntryView::is_hard_link() const { return ::archive_entry_hardlink(entry_) != nullptr; }

std::int64_t EntryView::size() const { return ::archive_entry_size(entry_); }

fs::File EntryView::destination(fs::Path target) const {
  return {std::move(target), *::archive_entry_stat(entry_)};
}

}  // namespace harbix
