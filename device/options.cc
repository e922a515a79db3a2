#include "device/options.h"

#include <array>

#include "device/failure.h"
#include "device/option_reader.h"

namespace device {
Options parse_options(const std::vector<std::string>& words) try {
  Options options;
  const std::array rules = {
      Option{.name = "help", .letter = 'h', .take = [&](const auto&) { options.help = true; }},
      Option{.name = "version", .take = [&](const auto&) { options.version = true; }},
      Option{.name = "bare", .take = [&](const auto&) { options.bare = true; }},
      Option{.name = "state", .has_value = true, .take = [&](const auto& value) { options.state = value; }},
      Option{.name = "log", .has_value = true, .take = [&](const auto& value) { options.log = value; }},
  };
  options.command = read_options(rules, words);
  if (options.help || options.version) return options;
  if (options.command.empty()) throw WrongOption("no command given");
  if (options.command.front().empty()) throw WrongOption("the command's name is empty");
  return options;
} catch (const WrongOption& problem) {
  throw Failure(problem.what() + std::string("; 'harbix-device --help' explains"), EXIT_USAGE);
}

const std::string& help_text() {
  static const std::string TEXT =
      R"(Usage: harbix-device [--state DIR] [--log FILE] [--bare] COMMAND [ARG...]
       harbix-device --help | --version

Starts a simulated tablet, runs COMMAND on it as root and exits with COMMAND's status.
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
  /opt/harbix/bin                 harbix, harbix-device, harbix-pps and harbix-installer,
                                  first on PATH
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
machine cannot run one (not root, no namespaces, no FUSE).

Examples:
  harbix-device bash
  harbix-device --state /tmp/tablet --log /tmp/tablet.log harbix -f /tmp/backup.tar media
  harbix-device --bare harbix -f - media > backup.tar
)";
  return TEXT;
}

}  // namespace device
