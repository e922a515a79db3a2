#include "device/options.h"

#include <array>

#include "device/failure.h"
#include "device/option_reader.h"

namespace device {
namespace {

void choose(Options& options, Options::Action action) {
  if (options.action != Options::Action::run && options.action != action) {
    throw WrongOption("only one of '--enter', '--reset', '--snapshot' and '--rollback' can be done");
  }
  options.action = action;
}

const char* option_of(Options::Action action) {
  switch (action) {
    case Options::Action::run:
      break;
    case Options::Action::enter:
      return "--enter";
    case Options::Action::reset:
      return "--reset";
    case Options::Action::snapshot:
      return "--snapshot";
    case Options::Action::rollback:
      return "--rollback";
  }
  return "";
}

/// @throws WrongOption when the options do not go together.
void check(const Options& options) {
  if (!options.command.empty() && options.command.front().empty()) {
    throw WrongOption("the command's name is empty");
  }
  if (options.faults.power_loss && options.state.empty()) {
    throw WrongOption("fault 'power-loss' needs '--state DIR'");
  }
  if (options.action == Options::Action::run) return;
  const std::string option = option_of(options.action);
  if (options.state.empty()) throw WrongOption("option '" + option + "' needs '--state DIR'");
  if (!options.log.empty()) throw WrongOption("options '" + option + "' and '--log' do not go together");
  if (options.has_faults) throw WrongOption("options '" + option + "' and '--fault' do not go together");
  if (options.bare && options.action != Options::Action::reset) {
    throw WrongOption("options '" + option + "' and '--bare' do not go together");
  }
  if (!options.command.empty() && options.action != Options::Action::enter) {
    throw WrongOption("option '" + option + "' takes no command");
  }
  // A name of a file, and none of those that this program makes for itself.
  if (options.snapshot.starts_with('.') || options.snapshot.find('/') != std::string::npos) {
    throw WrongOption("'" + options.snapshot +
                      "' is no name for a snapshot: it begins with '.' or has a '/'");
  }
}

}  // namespace

Options parse_options(const std::vector<std::string>& words) try {
  Options options;
  const std::array rules = {
      Option{.name = "help", .letter = 'h', .take = [&](const auto&) { options.help = true; }},
      Option{.name = "version", .take = [&](const auto&) { options.version = true; }},
      Option{.name = "bare", .take = [&](const auto&) { options.bare = true; }},
      Option{.name = "state", .has_value = true, .take = [&](const auto& value) { options.state = value; }},
      Option{.name = "enter", .take = [&](const auto&) { choose(options, Options::Action::enter); }},
      Option{.name = "reset", .take = [&](const auto&) { choose(options, Options::Action::reset); }},
      Option{.name = "snapshot",
             .has_value = true,
             .take =
                 [&](const auto& value) {
                   choose(options, Options::Action::snapshot);
                   options.snapshot = value;
                 }},
      Option{.name = "rollback",
             .has_value = true,
             .take =
                 [&](const auto& value) {
                   choose(options, Options::Action::rollback);
                   options.snapshot = value;
                 }},
      Option{.name = "fault",
             .has_value = true,
             .take =
                 [&](const auto& value) {
                   add_fault(options.faults, value);
                   options.has_faults = true;
                 }},
      Option{.name = "log", .has_value = true, .take = [&](const auto& value) { options.log = value; }},
  };
  options.command = read_options(rules, words);
  if (options.help || options.version) return options;
  check(options);
  return options;
} catch (const WrongOption& problem) {
  throw Failure(problem.what() + std::string("; 'harbix-device --help' explains"), EXIT_USAGE);
}

const std::string& help_text() {
  static const std::string TEXT =
      R"(Usage: harbix-device [--state DIR] [--log FILE] [--bare] [--fault NAME]...
                      [COMMAND [ARG...]]
       harbix-device --state DIR --enter [COMMAND [ARG...]]
       harbix-device --state DIR --reset [--bare]
       harbix-device --state DIR --snapshot NAME | --rollback NAME
       harbix-device --help | --version

Starts a simulated tablet, runs COMMAND, or a login shell, on it as root and exits with its status.
The tablet has a root file system, accounts, processes and a system log of its own. The
programs of this machine are on it, read-only, and so is harbix. When COMMAND has ended,
nothing of the tablet is left on this machine except what --state and --log ask for.

Options (they end at the first operand, so that COMMAND can have options of its own):
  --state DIR   Keep the tablet in the folder DIR and start it again from there. DIR is
                the tablet's root: DIR/accounts/1000/shared holds its media. A missing or
                empty DIR is filled first; any other folder that is not a tablet is refused,
                and so is one that is running. Without this option the tablet lives in
                memory and is forgotten at its end.
  --log FILE    Write the tablet's system log to FILE on this machine, emptied first, one
                line a message with its "<priority>" in front. Without this option the log
                goes to /var/log/messages on the tablet.
  --bare        Fill a new tablet with accounts and empty folders only. Without this option
                it gets sample content: media, a dtm share, a media library, subscriber
                scripts, PPS objects, settings, applications and a home screen.
  --enter       Run COMMAND, or a login shell, on the tablet that is running in DIR. It ends
                with the tablet.
  --reset       Take the tablet in DIR back to what it was when it was new.
  --snapshot NAME
                Keep the state of the tablet in DIR as NAME, in DIR.snapshots/NAME.
  --rollback NAME
                Bring the tablet in DIR back to the state that was kept as NAME. Like
                --reset and --snapshot, it is refused while the tablet is running.
  --fault NAME[=VALUE]
                Let something go wrong on this run of the tablet; can be given several times.
                What is kept stays sound. The faults are:
    full-share[=BYTES]            shared media with no room, or BYTES, left; it is a copy in
                                  memory that is forgotten
    unreadable-library            a media library that cannot be opened
    corrupt-library               a media library that is damaged
    hanging-object=/pps/PATH      an object that readers wait for in vain
    dying-installer[=ACTION]      an installer that dies once when it is asked for something,
                                  or for ACTION
    power-loss                    no power any more when COMMAND has ended: what was not
                                  synced is lost, and DIR holds what is left
  --help, -h    Print this text.
  --version     Print the version.

On the tablet:
  /accounts/1000/appdata          the data of applications, a folder each
  /accounts/1000/db/mmlibrary.db  the media library, an SQLite database
  /accounts/1000/shared           the user's media (media:1000_shared)
  /accounts/1000/sys/dtm          the dtm share (root:1000_sys)
  /apps                           the binaries of applications, a folder each
  /base/bin/sh                    a link to the shell
  /base/bin/slay                  stops the home screen: "slay -f navigator"; the sample one
                                  writes to /var/log/home-screen.log, as the next does
  /base/scripts/startup.sh        stops the launcher: "startup.sh launcher stop"
  /base/scripts/backup_and_restore
                                  the subscriber scripts, more of them in settings/; the
                                  sample ones write to /var/log/subscribers.log
  /dev/log                        the system log's socket
  /opt/harbix/bin                 harbix, harbix-device, harbix-pps, harbix-installer and
                                  use, first on PATH
  /opt/harbix/share/man           the manual pages: "man harbix"
  /pps                            the publish/subscribe file system, served by harbix-pps
  /pps/system/installer/upd/current
                                  requests to the installer, harbix-installer
  /pps/system/installer/registeredapps/.all
                                  the list of registered applications
  /pps/system/installer/control   makes the installer late, refusing, noisy or dead
  /var/installer                  the installer's ledger
  /var/pps                        the objects of /pps, one file each
  /.harbix-device                 the version of a kept tablet's layout

Processes that COMMAND leaves running in the background have 5 seconds to end. SIGINT, SIGTERM,
SIGHUP and SIGQUIT are passed on to COMMAND; then there is no such wait. The services end last.
A shell with job control stops and continues COMMAND as any job.

Exit status: COMMAND's own; 128 + N if signal N ended it; 126 if it cannot be executed, 127 if
it does not exist; 64 for a wrong command line; 70 if the tablet cannot be set up; 77 if this
machine cannot run one (not root, no namespaces, no FUSE, or / is not a mount point).

Examples:
  harbix-device
  harbix-device --state /tmp/tablet --enter
  harbix-device --state /tmp/tablet --snapshot before
  harbix-device --state /tmp/tablet --log /tmp/tablet.log harbix -f /tmp/backup.tar media
  harbix-device --bare harbix -f - media > backup.tar
)";
  return TEXT;
}

}  // namespace device
