#include "media/backup.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>

#include "archive/error.h"
#include "archive/package_writer.h"
#include "base/domains.h"
#include "base/flags.h"
#include "base/log.h"
#include "base/report.h"
#include "fs/accounts.h"
#include "fs/exception.h"
#include "fs/identity.h"
#include "fs/walk.h"
#include "fs/working_directory.h"
#include "media/library.h"
#include "media/share.h"

namespace harbix {
namespace {

constexpr mode_t ARCHIVING_MASK = 0117;
constexpr PackageStyle STYLE{.record = plain_record, .announce = announce_with_name, .write = write_object};

void require_share(const fs::Path& share) {
  const fs::WorkingDirectory directory(share);
  fs::require_working_directory(share, "Could not change working directory cwd: " +
                                           fs::current_directory().text() + " wanted: " + share.text());
}

/// The names directly below a share in order, hidden ones left out.
std::vector<fs::Path> top_level_names(fs::Folder& share) {
  std::vector<fs::Path> names;
  fs::Walk walk(share, {}, share.path());
  while (const fs::WalkItem* item = walk.next()) {
    walk.stay_out();
    const fs::Path& path = item->file.path();
    if (item->failure && path == share.path()) throw fs::Exception(*item->failure);
    if (const fs::Path name = path.basename(); !name.text().starts_with('.')) names.push_back(name);
  }
  std::ranges::sort(names);
  diagnostics::line(3, "Current dir: %s", share.path().c_str());
  return names;
}

/// The status of a top-level item; nothing, with a line in the log, when it cannot be had.
std::optional<fs::File> reach(fs::Folder& share, const fs::Path& name, Completeness& completeness) {
  try {
    return fs::File(name, share.file(name).record());
  } catch (const fs::Exception& failure) {
    diagnostics::line(4, "Can not access: '%s'", name.c_str());
    if (failure.error() != ENOENT && failure.error() != EACCES) report_unlisted(failure, completeness);
    return std::nullopt;
  }
}

/// Reports what a walk cannot give. What is gone, or what the user may not read, is no error of the backup.
void report_failure(const fs::WalkItem& item, Completeness& completeness) {
  const bool may_not = item.failure->error() == EACCES && ::geteuid() != fs::SUPERUSER;
  if (item.has_vanished() || may_not) {
    report_unreadable(item.file.path());
  } else {
    report_unlisted(*item.failure, completeness);
  }
}

/// Gathers a top-level folder of the shared media: each item below it is judged by itself.
void collect_media(fs::Folder& share, const fs::File& folder, PackageWriter& package,
                   Completeness& completeness) {
  package.add(folder);
  const fs::EffectiveIds ids = fs::effective_ids();
  fs::Walk walk(share, folder.path(), folder.path());
  while (const fs::WalkItem* item = walk.next()) {
    if (item->failure) {
      report_failure(*item, completeness);
      continue;
    }
    if (!is_skipped(item->file, ids)) package.add(item->file);
    if (!item->file.allows(fs::READ, ids)) walk.stay_out();
  }
}

/// Gathers a top-level item of the dtm share with everything below it.
void collect_dtm(fs::Folder& share, const fs::File& top, PackageWriter& package, Completeness& completeness) {
  package.add(top);
  if (!top.is_directory()) return;
  fs::Walk walk(share, top.path(), top.path());
  while (const fs::WalkItem* item = walk.next()) {
    if (item->failure) {
      report_failure(*item, completeness);
    } else {
      package.add(item->file);
    }
  }
}

void report_items(const PackageWriter& package) {
  if (!verbose) return;
  for (std::size_t i = 0; i < package.items().size(); ++i) {
    const fs::File item = package.items()[i];
    diagnostics::line(3, "Item: %s", item.path().c_str());
    report::progress("Item: ", item.path());
  }
}

/// Calls `handle` with the package of each top-level folder of the shared media, as media is handled.
template <typename Handle>
void for_each_media_folder(ArchiveWriter& writer, Completeness& completeness, Handle handle) {
  const fs::Path path(places::SHARED);
  require_share(path);
  fs::Folder share(path);
  const std::vector<fs::Path> names = top_level_names(share);
  const fs::EffectiveGroup group(media_groups().shared);
  const fs::EffectiveUser user{std::string(domains::MEDIA_USER)};
  // Where this user may not search the share, everything in it would seem to be gone.
  require_share(path);
  for (const fs::Path& name : names) {
    const std::optional<fs::File> item = reach(share, name, completeness);
    if (!item || is_skipped(*item) || !item->is_directory()) continue;
    PackageWriter package(writer, share, STYLE);
    collect_media(share, *item, package, completeness);
    const fs::EffectiveUser superuser(fs::SUPERUSER);
    const fs::FileMask mask(ARCHIVING_MASK);
    handle(package, item->path());
  }
}

void archive_shared_media(ArchiveWriter& writer, Completeness& completeness) {
  for_each_media_folder(writer, completeness, [](PackageWriter& package, const fs::Path& folder) {
    package.store(fs::Path(places::MEDIA_PREFIX) / folder, folder);
  });
}

void measure_shared_media(ArchiveWriter& writer, SizeResult& result, Completeness& completeness) {
  for_each_media_folder(writer, completeness,
                        [&result](const PackageWriter& package, const fs::Path& /*folder*/) {
                          result += package.estimate();
                          report_items(package);
                        });
}

void archive_dtm_share(ArchiveWriter& writer, Completeness& completeness) {
  diagnostics::line(2, "archiving dtm share");
  const fs::EffectiveGroup group(fs::group_id(domains::SYSTEM_GROUP));
  const fs::EffectiveUser user(fs::SUPERUSER);
  const fs::Path path(places::DTM_SHARE);
  require_share(path);
  fs::Folder share(path);
  for (const fs::Path& name : top_level_names(share)) {
    const std::optional<fs::File> item = reach(share, name, completeness);
    if (!item || item->is_symbolic_link()) continue;
    PackageWriter package(writer, share, STYLE);
    collect_dtm(share, *item, package, completeness);
    if (!package.items().empty()) package.store(fs::Path(places::DTM_PREFIX) / name, name);
  }
}

/// @return 0, or 1 after an error, which is reported, or when `work` is not complete. What ends the run
/// passes.
template <typename Work>
int guarded(bool size_only, Work work) {
  diagnostics::line(3, "archiving media sizeonly is %s", size_only ? "true" : "false");
  try {
    Completeness completeness;
    work(completeness);
    return completeness.result();
  } catch (const std::exception& error) {
    if (ends_run(error)) throw;
    report::error(error.what());
    return 1;
  }
}

}  // namespace
}  // namespace harbix

namespace harbix::media {

int back_up(ArchiveWriter& writer) {
  return guarded(false, [&writer](Completeness& completeness) {
    archive_shared_media(writer, completeness);
    archive_dtm_share(writer, completeness);
  });
}

int measure(ArchiveWriter& writer, SizeResult& result) {
  return guarded(true, [&writer, &result](Completeness& completeness) {
    if (const std::optional<SizeResult> known = query_library(places::MEDIA_LIBRARY)) {
      result = *known;
    } else {
      measure_shared_media(writer, result, completeness);
    }
  });
}

}  // namespace harbix::media
