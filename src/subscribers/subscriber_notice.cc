#include "subscribers/subscriber_notice.h"

#include <exception>

#include "base/log.h"
#include "subscribers/subscriber_manager.h"

namespace subscribers {

void SubscriberNotice::start() {
  SubscriberManager::notify(restore_ ? SubscriberManager::RESTORE_START : SubscriberManager::BACKUP_START,
                            mode_, Wait::YES);
  armed_ = true;
}

SubscriberNotice::~SubscriberNotice() {
  if (!armed_) return;
  try {
    SubscriberManager::notify(restore_ ? SubscriberManager::RESTORE_END : SubscriberManager::BACKUP_END,
                              mode_, Wait::NO);
  } catch (const std::exception& error) {
    // A script that vanished since the start must not turn the end of the work into the end of the process.
    diagnostics::line(1, "Subscribers were not told of the end: %s", error.what());
  }
}

}  // namespace subscribers
