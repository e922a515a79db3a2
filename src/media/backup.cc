#include "media/backup.h"

#include <exception>
#include <iostream>

#include "base/domains.h"
#include "base/flags.h"
#include "base/log.h"
#include "fs/accounts.h"
#include "fs/exception.h"
#include "fs/glob.h"
#include "fs/identity.h"
#include "fs/working_directory.h"
#include "media/groups.h"
#include "media/library.h"
#include "media/package.h"
#include "media/places.h"
#include "media/skip_test.h"

namespace harbix {
namespace {

constexpr mode_t ARCHIVING_MASK = 0117;

void require_stands_in(const fs::Path& wanted) {
  fs::require_working_directory(wanted, "Could not change working directory cwd: " +
                                            fs::current_directory().text() + " wanted: " + wanted.text());
}

/// The names directly below the working directory, hidden ones left out.
std::vector<fs::Path> top_level_names() {
  std::vector<fs::Path> names = fs::glob(fs::Path("*"));
  diagnostics::line(3, "Current dir: %s", fs::current_directory().c_str());
  return names;
}

/// The status of a top-level item; nothing, with a line in the log, when it cannot be had.
std::optional<fs::File> reach(const fs::Path& name) {
  try {
    return fs::File(name);
  } catch (const fs::Exception&) {
    diagnostics::line(4, "Can not access: '%s'", name.c_str());
    return std::nullopt;
  }
}

void report_items(const MediaPackage& package) {
  if (!verbose) return;
  for (const fs::Path& path : package.paths()) {
    diagnostics::line(3, "Item: %s", path.c_str());
    std::cerr << "Item: " << path << '\n';
  }
}

void handle_media_folder(const fs::File& folder, ArchiveWriter& writer, bool size_only, SizeResult& result) {
  MediaPackage package(folder, writer);
  package.collect_media();
  const fs::EffectiveUser superuser(fs::SUPERUSER);
  const fs::FileMask mask(ARCHIVING_MASK);
  if (!size_only) {
    package.store(writer, fs::Path(places::MEDIA_PREFIX));
    return;
  }
  const SizeResult estimate = package.estimate();
  result.bytes += estimate.bytes;
  result.files += estimate.files;
  report_items(package);
}

void handle_shared_media(ArchiveWriter& writer, bool size_only, SizeResult& result) {
  const fs::Path shared(places::SHARED);
  const fs::WorkingDirectory directory(shared);
  require_stands_in(shared);
  const std::vector<fs::Path> names = top_level_names();
  const fs::EffectiveGroup group(media_groups().shared);
  const fs::EffectiveUser user{std::string(domains::MEDIA_USER)};
  for (const fs::Path& name : names) {
    const std::optional<fs::File> item = reach(name);
    if (!item || is_skipped(*item) || !item->is_directory()) continue;
    handle_media_folder(*item, writer, size_only, result);
  }
}

void archive_dtm_share(ArchiveWriter& writer) {
  diagnostics::line(2, "archiving dtm share");
  const fs::EffectiveGroup group(fs::group_id(domains::SYSTEM_GROUP));
  const fs::EffectiveUser user(fs::SUPERUSER);
  const fs::Path share(places::DTM_SHARE);
  const fs::WorkingDirectory directory(share);
  require_stands_in(share);
  for (const fs::Path& name : top_level_names()) {
    const std::optional<fs::File> item = reach(name);
    if (!item || item->is_symbolic_link()) continue;
    MediaPackage package(*item, writer);
    package.collect_dtm_share();
    if (!package.empty()) package.store(writer, fs::Path(places::DTM_PREFIX));
  }
}

}  // namespace

int harbix_media(ArchiveWriter& writer, bool size_only, SizeResult& result) {
  diagnostics::line(3, "archiving media sizeonly is %s", size_only ? "true" : "false");
  try {
    if (size_only) {
      if (const std::optional<SizeResult> known = query_library(fs::Path(places::MEDIA_LIBRARY))) {
        result = *known;
        return 0;
      }
    }
    handle_shared_media(writer, size_only, result);
    if (!size_only) archive_dtm_share(writer);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "Error: " << error.what() << '\n';
    diagnostics::line(0, "ERROR: %s", error.what());
    return 1;
  }
}

}  // namespace harbix
