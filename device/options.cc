#include "device/options.h"

#include <cstddef>
#include <string_view>

#include "device/failure.h"

namespace device {
namespace {

constexpr std::string_view HELP_HINT = "; 'harbix-device --help' explains";

Failure usage(const std::string& text) { return Failure(text + std::string(HELP_HINT), EXIT_USAGE); }

/// Walks over the options; what is left afterwards is COMMAND.
class Arguments {
 public:
  explicit Arguments(const std::vector<std::string>& words) : words_(words) {}

  [[nodiscard]] bool at_option() const {
    return next_ < words_.size() && words_[next_].size() > 1 && words_[next_].front() == '-';
  }
  const std::string& take() { return words_[next_++]; }

  /// The value of `option`, given as "--option=VALUE" in `word` or as the next argument.
  std::string value(const std::string& option, const std::string& word) {
    std::string text;
    if (word.size() > option.size()) {
      text = word.substr(option.size() + 1);
    } else if (next_ < words_.size()) {
      text = take();
    } else {
      throw usage("option '" + option + "' needs a value");
    }
    if (text.empty()) throw usage("option '" + option + "' has an empty value");
    return text;
  }

  [[nodiscard]] std::vector<std::string> rest() const {
    return {words_.begin() + static_cast<std::ptrdiff_t>(next_), words_.end()};
  }

 private:
  const std::vector<std::string>& words_;
  std::size_t next_ = 0;
};

}  // namespace

Options parse_options(const std::vector<std::string>& words) {
  Options options;
  Arguments arguments(words);
  while (arguments.at_option()) {
    const std::string& word = arguments.take();
    if (word == "--") break;
    const std::string name = word.substr(0, word.find('='));
    if (word == "--help") {
      options.help = true;
    } else if (word == "--version") {
      options.version = true;
    } else if (word == "--bare") {
      options.bare = true;
    } else if (name == "--state") {
      options.state = arguments.value(name, word);
    } else if (name == "--log") {
      options.log = arguments.value(name, word);
    } else {
      throw usage("unknown option '" + word + "'");
    }
  }
  options.command = arguments.rest();
  if (options.help || options.version) return options;
  if (options.command.empty()) throw usage("no command given");
  if (options.command.front().empty()) throw usage("the command's name is empty");
  return options;
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
                it gets sample content: media, a dtm share, a media library, subscriber scripts.
  --help        Print this text.
  --version     Print the version.

On the tablet:
  /accounts/1000/shared           the user's media (media:1000_shared)
  /accounts/1000/sys/dtm          the dtm share (root:1000_sys)
  /accounts/1000/db/mmlibrary.db  the media library, an SQLite database
  /base/scripts/backup_and_restore, and settings/ in it: the subscriber scripts;
                                  the sample ones write to /var/log/subscribers.log
  /pps                            the publish/subscribe file system, served by harbix-pps;
                                  its objects are kept in /var/pps
  /dev/log                        the system log's socket
  /opt/harbix/bin                 harbix, harbix-device and harbix-pps, first on PATH

Processes that COMMAND leaves running in the background have 5 seconds to end. SIGINT, SIGTERM,
SIGHUP and SIGQUIT are passed on to COMMAND; then there is no such wait. The services end last.

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
