#pragma once

#include <string>
#include <vector>

#include "device/fault.h"

namespace device {

/// What the command line asks for.
struct Options {
  enum class Action { run, enter, reset, snapshot, rollback };

  bool help = false;
  bool version = false;
  /// Accounts and well-known folders only, no sample content.
  bool bare = false;
  /// Folder that is the device's root and is kept; empty: the device lives in memory and is forgotten.
  std::string state;
  /// File on the host for the system log; empty: /var/log/messages on the device.
  std::string log;
  Action action = Action::run;
  /// The snapshot's name, for the actions that have one.
  std::string snapshot;
  bool has_faults = false;
  Faults faults;
  /// The program to run on the device and its arguments; empty: a login shell, or nothing for the actions
  /// that run none.
  std::vector<std::string> command;
};

/// Reads the command line's `words` (without the program's name). Options end at the first operand or at
/// "--".
/// @throws Failure with EXIT_USAGE for an unknown option, a missing or empty value, options that do not go
/// together, or a COMMAND where there can be none.
[[nodiscard]] Options parse_options(const std::vector<std::string>& words);

/// The text of --help, many lines, newline at the end.
[[nodiscard]] const std::string& help_text();

}  // namespace device
