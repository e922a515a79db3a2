#include "settings/backup.h"

#include <iostream>
#include <vector>

#include "archive/archivable.h"
#include "archive/file_record.h"
#include "archive/item_error.h"
#include "archive/metadata_entry.h"
#include "archive/pps_object.h"
#include "base/flags.h"
#include "base/log.h"
#include "fs/exception.h"
#include "fs/working_directory.h"
#include "platform/streams.h"
#include "settings/path_list.h"
#include "settings/places.h"
#include "settings/script_lists.h"
#include "subscribers/subscriber_manager.h"
#include "subscribers/subscriber_notice.h"

namespace harbix {
namespace {

/// The paths that exist and that an archive can hold, in order.
std::vector<fs::File> kept_items(const ArchiveWriter& writer) {
  std::vector<fs::File> items;
  for (fs::Path& path : settings_path_list()) {
    try {
      fs::File item(std::move(path));
      if (is_archivable(item, writer)) items.push_back(std::move(item));
    } catch (const fs::Exception& gone) {
      diagnostics::line(5, "%s", gone.what());
    }
  }
  return items;
}

void archive_item(ArchiveWriter& writer, const fs::File& item, bool size_only) {
  const fs::Path name = fs::Path(places::SETTINGS_PREFIX) / item.path();
  if (verbose) std::cerr << "Archive: " << item.path() << '\n';
  if (size_only) {
    writer.write_header_only(item, name);
  } else if (is_pps_path(item.path())) {
    store_pps_object(writer, item, name);
  } else {
    writer.write(open_source(item.path()), name);
  }
}

void archive_items(ArchiveWriter& writer, const std::vector<fs::File>& items, bool size_only) {
  for (const fs::File& item : items) {
    tolerate_item_error([&] { archive_item(writer, item, size_only); });
  }
}

void archive_settings(ArchiveWriter& writer, bool size_only, SizeResult& result) {
  const fs::WorkingDirectory root{fs::Path(places::ROOT)};
  const std::vector<fs::File> items = kept_items(writer);
  meta::Manifest manifest;
  for (const fs::File& item : items) manifest.push_back(plain_record(item));
  store_manifest(writer, fs::Path(places::SETTINGS_PREFIX), METADATA_NAME, manifest);
  archive_items(writer, items, size_only);
  result.files += static_cast<std::int32_t>(items.size());
}

}  // namespace

int harbix_settings(ArchiveWriter& writer, bool size_only, SizeResult& result) {
  {
    subscribers::SubscriberNotice notice(false, subscribers::SubscriberManager::NOTIFY_MODE);
    if (!size_only) {
      // So that what the scripts print comes after what was printed so far; a stream that fails is told of
      // elsewhere.
      platform::flushall();
      static_cast<void>(settings_script_list(ScriptList::WHITELIST));
      static_cast<void>(settings_script_list(ScriptList::BLACKLIST));
      notice.start();
    }
    archive_settings(writer, size_only, result);
  }
  platform::flushall();
  return 0;
}

}  // namespace harbix
