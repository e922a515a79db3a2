#include "settings/backup.h"

#include <cerrno>

#include "archive/error.h"
#include "archive/package_writer.h"
#include "archive/pps_object.h"
#include "archive/source.h"
#include "base/log.h"
#include "base/report.h"
#include "fs/exception.h"
#include "fs/folder.h"
#include "fs/working_directory.h"
#include "platform/streams.h"
#include "settings/path_list.h"
#include "settings/script_lists.h"
#include "subscribers/subscribers.h"

namespace harbix {
namespace {

void announce(report::ProgressLines& /*progress*/, const fs::Path& path, const fs::Path& /*name*/) {
  report::progress("Archive: ", path);
}

void write_setting(ArchiveWriter& writer, fs::Folder& root, const fs::File& item, const fs::Path& name) {
  (is_pps_path(item.path()) ? write_pps_object : write_object)(writer, root, item, name);
}

void write_header(ArchiveWriter& writer, fs::Folder& root, const fs::File& item, const fs::Path& name) {
  const fs::File file = root.file(root.relative(item.path()));
  writer.write_header_only(file, file.is_symbolic_link() ? read_link(root, item.path()) : "", name);
}

bool is_plain_setting(const fs::Path& path) { return !is_pps_path(path); }
bool is_never_read(const fs::Path& /*path*/) { return false; }

constexpr PackageStyle STORED{
    .record = plain_record, .announce = announce, .write = write_setting, .is_on_disk = is_plain_setting};
constexpr PackageStyle MEASURED{
    .record = plain_record, .announce = announce, .write = write_header, .is_on_disk = is_never_read};

/// @return how many items there are.
std::size_t write_settings(ArchiveWriter& writer, const PackageStyle& style, Completeness& completeness) {
  const fs::WorkingDirectory directory{places::ROOT};
  fs::Folder root(places::ROOT);
  PackageWriter package(writer, root, style);
  for (const fs::Path& path : settings_path_list(completeness)) {
    try {
      package.add(root.file(root.relative(path)));
    } catch (const fs::Exception& failure) {
      if (ends_run(failure)) throw;
      diagnostics::line(5, "%s", failure.what());
      if (failure.error() != ENOENT && failure.error() != ENOTDIR) report::error(failure.what());
    }
  }
  const std::size_t count = package.items().size();
  package.store(places::SETTINGS_PREFIX, places::ROOT);
  return count;
}

}  // namespace
}  // namespace harbix

namespace harbix::settings {

int back_up(ArchiveWriter& writer) {
  Completeness completeness;
  {
    subscribers::SubscriberNotice notice(false, subscribers::SubscriberManager::NOTIFY_MODE);
    // So that what the scripts print comes after what was printed so far; a stream that fails is reported
    // elsewhere.
    platform::flushall();
    static_cast<void>(settings_script_list(ScriptList::WHITELIST));
    static_cast<void>(settings_script_list(ScriptList::BLACKLIST));
    notice.start();
    static_cast<void>(write_settings(writer, STORED, completeness));
  }
  platform::flushall();
  return completeness.result();
}

int measure(ArchiveWriter& writer, SizeResult& result) {
  Completeness completeness;
  result.files += static_cast<std::int32_t>(write_settings(writer, MEASURED, completeness));
  platform::flushall();
  return completeness.result();
}

}  // namespace harbix::settings
