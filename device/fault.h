#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace device {

class SignalSource;

/// What is to go wrong on the device, so that programs can be tried against it.
struct Faults {
  /// How many bytes are free in the shared media; nothing: as many as its file system has.
  std::optional<std::uint64_t> share_left;
  enum class Library { sound, unreadable, corrupt };
  Library library = Library::sound;
  /// Objects, as paths below /pps, whose readers wait for ever.
  std::vector<std::string> hanging_objects;
  /// The action at which the installer kills itself, once, or "all"; empty: none.
  std::string installer_dies_of;
  /// The power goes when COMMAND has ended.
  bool power_loss = false;
};

/// Adds to `faults` the one that `text` asks for.
/// Shape: "full-share[=BYTES]", "unreadable-library", "corrupt-library", "hanging-object=/pps/PATH",
/// "dying-installer[=ACTION]", "power-loss".
/// @throws WrongOption quoting what is wrong in `text`.
void add_fault(Faults& faults, const std::string& text);

/// Spoils the shared media and the media library of the device whose root is in the folder `root`, by what is
/// mounted over them: what is kept there stays sound. To be called in the device's own mount namespace.
/// @throws Failure when there is nothing to spoil, or the system refuses, also for a signal, see
/// copy_folder().
void spoil_files(const Faults& faults, const std::string& root, const SignalSource& signals);

/// Asks the installer to die. To be called when the services run, on the device. @throws Failure
void spoil_installer(const Faults& faults);

}  // namespace device
