#include <string_view>

#include "device/content/contents.h"

namespace device {

void write_subscriber_scripts(TreeWriter& tree) {
  // One short write, so that scripts that run at the same time do not mix their lines.
  constexpr std::string_view SCRIPT = R"(#!/bin/sh
# Notes that a backup or a restore has begun or ended.
printf '%s %s\n' "${0##*/}" "$1" >> /var/log/subscribers.log
)";
  for (const char* path :
       {"/base/scripts/backup_and_restore/media-server", "/base/scripts/backup_and_restore/search-index",
        "/base/scripts/backup_and_restore/settings/display",
        "/base/scripts/backup_and_restore/settings/network"}) {
    tree.file(path, ROOT_OWNER, 0755, SCRIPT);
  }
}

}  // namespace device
