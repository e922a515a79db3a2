#include "archive/survey.h"

#include <algorithm>
#include <utility>

#include <archive.h>
#include <archive_entry.h>

#include "archive/entry_view.h"
#include "archive/error.h"
#include "archive/package_name.h"
#include "archive/plain_headers.h"
#include "archive/read_handle.h"
#include "base/size_result.h"

namespace harbix {

Survey::Survey(InputFile input) {
  PlainHeaders plain(input);
  while (const std::optional<PlainHeader> header = plain.next()) {
    const bool is_package =
        header->is_file && header->name.ends_with(METADATA_NAME) && begins_package(rooted_name(header->name));
    const Kind kind = header->is_file ? Kind::FILE : Kind::OTHER;
    count(header->name, is_package ? Kind::PACKAGE : kind, header->size);
  }
  input.begin_at(plain.end());
  ReadHandle handle(std::move(input));
  int status = ARCHIVE_OK;
  while ((status = handle.next_header()) == ARCHIVE_OK) {
    const EntryView entry(handle.entry());
    const Kind kind = entry.is_plain_file() ? Kind::FILE : Kind::OTHER;
    const char* name = ::archive_entry_pathname(handle.entry());
    count(name == nullptr ? "" : name, entry.begins_package() ? Kind::PACKAGE : kind, entry.size());
  }
  if (status != ARCHIVE_EOF) damage_ = error_text(handle.get());
  if (handle.has_more_behind_end()) damage_ = MORE_BEHIND_END;
}

void Survey::count(std::string_view name, Kind kind, std::int64_t size) {
  is_empty_ = false;
  const std::string_view prefix = part_of(name);
  if (prefix.empty()) return;
  Part& part = parts_[prefix];
  ++part.entries;
  if (kind == Kind::PACKAGE) ++part.packages;
  if (kind == Kind::FILE && size > 0)
    part.file_bytes = saturated_sum(part.file_bytes, static_cast<std::uint64_t>(size));
}

bool Survey::has_packages() const {
  return std::ranges::any_of(parts_, [](const auto& part) { return part.second.packages > 0; });
}

bool Survey::has_packages_below(std::span<const fs::Path> prefixes) const {
  return sum_of(prefixes).packages > 0;
}

bool Survey::has_entries_below(std::span<const fs::Path> prefixes) const {
  return sum_of(prefixes).entries > 0;
}

std::uint64_t Survey::file_bytes_below(std::span<const fs::Path> prefixes) const {
  return sum_of(prefixes).file_bytes;
}

Survey::Part Survey::sum_of(std::span<const fs::Path> prefixes) const {
  Part sum;
  for (const fs::Path& prefix : prefixes) {
    const auto found = parts_.find(prefix.text());
    if (found == parts_.end()) continue;
    sum.packages += found->second.packages;
    sum.entries += found->second.entries;
    sum.file_bytes = saturated_sum(sum.file_bytes, found->second.file_bytes);
  }
  return sum;
}

}  // namespace harbix
