#pragma once

namespace subscribers {

/// Tells the settings subscribers that work begins, and at the end of the scope that it has ended, on every
/// way out.
class SubscriberNotice {
 public:
  /// Runs nothing yet. `restore` chooses the restore events over the backup events; any `mode` but
  /// SubscriberManager::NOTIFY_MODE keeps the notice silent.
  [[nodiscard("name the notice, or it ends at the semicolon")]] SubscriberNotice(bool restore, int mode)
      : restore_(restore), mode_(mode) {}

  /// Runs the start scripts and waits for each.
  /// @throws as SubscriberManager::notify does; no end is told then.
  void start();

  /// Launches the end scripts if start() came back, without waiting for them.
  ~SubscriberNotice();
  SubscriberNotice(const SubscriberNotice&) = delete;
  SubscriberNotice& operator=(const SubscriberNotice&) = delete;
  SubscriberNotice(SubscriberNotice&&) = delete;
  SubscriberNotice& operator=(SubscriberNotice&&) = delete;

 private:
  bool restore_;
  int mode_;
  bool armed_ = false;
};

}  // namespace subscribers
