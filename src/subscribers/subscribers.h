#pragma once

#include <optional>
#include <span>
#include <string>

#include "fs/path.h"
#include "subscribers/interruption.h"

namespace subscribers {

/// Whether a notification waits for the scripts or leaves them to run in the background.
enum class Wait { NO, YES };

/// Runs the scripts by which components of the device follow backups and restores: executable files in a
/// fixed folder, run with the name of the event as their only argument, their output discarded.
class SubscriberManager {
 public:
  static const fs::Path FSSCRIPTROOT;          ///< scripts for the device's own announcements (-i, -t)
  static const fs::Path FSSETTINGSSCRIPTROOT;  ///< scripts around the settings operations
  static const std::string whitelist_tag;
  static const std::string blacklist_tag;
  static const std::string BACKUP_START;
  static const std::string BACKUP_END;
  static const std::string RESTORE_START;
  static const std::string RESTORE_END;

  /// The only mode in which notify() does anything.
  static constexpr int NOTIFY_MODE = 2;

  /// Runs each script in the order given, folders left out. Scripts that fail change nothing.
  /// @throws fs::Exception "Path '...' stat failed." at a script that is not there; those after it do not
  /// run.
  static void run(const std::string& event, Wait wait, std::span<const fs::Path> scripts);

  /// Runs the scripts of FSSETTINGSSCRIPTROOT when `mode` is NOTIFY_MODE; a missing folder has none.
  /// @throws as run does; fs::Exception when the folder cannot be read.
  static void notify(const std::string& event, int mode, Wait wait);
};

/// Tells the settings subscribers that work begins, and at the end of the scope that it has ended, on every
/// way out.
class SubscriberNotice {
 public:
  /// Runs nothing yet. `restore` chooses the restore events over the backup events; any `mode` but
  /// SubscriberManager::NOTIFY_MODE keeps the notice silent.
  [[nodiscard("name the notice, or it ends at the semicolon")]] SubscriberNotice(bool restore, int mode)
      : restore_(restore), mode_(mode) {}

  /// Runs the start scripts and waits for each.
  /// @throws as SubscriberManager::notify does; no end is told then. From here on to the end of the scope a
  /// signal that ends the process (SIGTERM, SIGINT, SIGHUP) launches the end scripts first.
  void start();

  /// Launches the end scripts if start() came back, without waiting for them.
  ~SubscriberNotice();
  SubscriberNotice(const SubscriberNotice&) = delete;
  SubscriberNotice& operator=(const SubscriberNotice&) = delete;
  SubscriberNotice(SubscriberNotice&&) = delete;
  SubscriberNotice& operator=(SubscriberNotice&&) = delete;

 private:
  [[nodiscard]] const std::string& end_event() const noexcept;

  bool restore_;
  int mode_;
  bool armed_ = false;
  std::optional<Interruption> interruption_;
};

}  // namespace subscribers
