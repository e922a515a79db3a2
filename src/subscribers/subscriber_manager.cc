#include "subscribers/subscriber_manager.h"

#include <cstdlib>

#include "driver/base/places.h"
#include "fs/file.h"
#include "fs/glob.h"

namespace subscribers {

const fs::Path SubscriberManager::FSSCRIPTROOT(harbix::places::SUBSCRIBER_SCRIPTS);
const fs::Path SubscriberManager::FSSETTINGSSCRIPTROOT(FSSCRIPTROOT / "/settings");
const std::string SubscriberManager::whitelist_tag("whitelist");
const std::string SubscriberManager::blacklist_tag("blacklist");
const std::string SubscriberManager::BACKUP_START("backup_start");
const std::string SubscriberManager::BACKUP_END("backup_end");
const std::string SubscriberManager::RESTORE_START("restore_start");
const std::string SubscriberManager::RESTORE_END("restore_end");

void SubscriberManager::run(const std::string& event, Wait wait, std::span<const fs::Path> scripts) {
  for (const fs::Path& script : scripts) {
    if (fs::File(script).is_directory()) continue;
    const std::string command =
        script.text() + " " + event + " > /dev/null 2>&1" + (wait == Wait::YES ? "" : " &");
    // The result does not matter: a failing subscriber must not stop a backup. The shell is the interface:
    // scripts come from the device's read-only system folder.
    static_cast<void>(std::system(command.c_str()));  // NOLINT(cert-env33-c,concurrency-mt-unsafe): see above
  }
}

void SubscriberManager::notify(const std::string& event, int mode, Wait wait) {
  if (mode != NOTIFY_MODE) return;
  run(event, wait, fs::list_by_glob(FSSETTINGSSCRIPTROOT));
}

}  // namespace subscribers
