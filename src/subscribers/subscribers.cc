#include "subscribers/subscribers.h"

#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <utility>
#include <vector>

#include "base/log.h"
#include "base/places.h"
#include "fs/file.h"
#include "fs/glob.h"

namespace subscribers {
namespace {

/// What a script itself says does not matter: a failing subscriber must not stop a backup. A shell that could
/// not be started looks like one that ended with this status, but for the error number.
bool was_not_started(int status, int error) {
  constexpr int NOT_STARTED = 127;
  return error != 0 && (status == -1 || (WIFEXITED(status) && WEXITSTATUS(status) == NOT_STARTED));
}

/// Scripts read nothing: standard input may be the archive, or the list that a caller works through.
std::string command_for(const fs::Path& script, const std::string& event, Wait wait) {
  return script.text() + " " + event + " < /dev/null > /dev/null 2>&1" + (wait == Wait::YES ? "" : " &");
}

}  // namespace

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
    const std::string command = command_for(script, event, wait);
    errno = 0;
    // The shell is the interface: scripts come from the device's read-only system folder.
    const int status = std::system(command.c_str());  // NOLINT(cert-env33-c,concurrency-mt-unsafe): see above
    if (const int error = errno; was_not_started(status, error)) {
      diagnostics::line(1, "Subscriber script '%s' could not be run: %s", script.text().c_str(),
                        std::strerror(error));
    }
  }
}

void SubscriberManager::notify(const std::string& event, int mode, Wait wait) {
  if (mode != NOTIFY_MODE) return;
  run(event, wait, fs::list_by_glob(FSSETTINGSSCRIPTROOT));
}

const std::string& SubscriberNotice::end_event() const noexcept {
  return restore_ ? SubscriberManager::RESTORE_END : SubscriberManager::BACKUP_END;
}

void SubscriberNotice::start() {
  if (mode_ == SubscriberManager::NOTIFY_MODE) {
    std::vector<std::string> commands;
    for (const fs::Path& script : fs::list_by_glob(SubscriberManager::FSSETTINGSSCRIPTROOT)) {
      if (!fs::File(script).is_directory()) commands.push_back(command_for(script, end_event(), Wait::NO));
    }
    interruption_.emplace(std::move(commands));
  }
  SubscriberManager::notify(restore_ ? SubscriberManager::RESTORE_START : SubscriberManager::BACKUP_START,
                            mode_, Wait::YES);
  armed_ = true;
}

SubscriberNotice::~SubscriberNotice() {
  if (!armed_) return;
  if (interruption_) interruption_->take_over();
  try {
    SubscriberManager::notify(end_event(), mode_, Wait::NO);
  } catch (const std::exception& error) {
    // A script that vanished since the start must not turn the end of the work into the end of the process.
    diagnostics::line(1, "Subscribers were not told of the end: %s", error.what());
  }
}

}  // namespace subscribers
